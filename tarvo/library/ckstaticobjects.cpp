// The static objects of the library, in one file because their order matters: they are constructed in the order in
// which they stand here and destroyed in the reverse.

#include <tarvo/core/ckexception.h>
#include <tarvo/core/detail/containerpool.h>
#include <tarvo/library/libraryentry.h>
#include <tarvo/streams/ckbasetypes.h>
#include <tarvo/streams/ckiserializable.h>
#include <tarvo/streams/ckpolylinebase.h>
#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwriteascii.h>
#include <tarvo/streams/ckstreamwritebinary.h>
#include <tarvo/threads/detail/eventregistry.h>

tarvo::detail::LibraryModuleState tarvo::detail::g_moduleState;
const CkRTTI CkExceptionCondition::RTTI(CK_T("CkExceptionCondition"), CkException::RTTI, nullptr,
                                        &CloneByFactory<CkExceptionCondition>);
const CkRTTI CkExceptionOutOfMemory::RTTI(CK_T("CkExceptionOutOfMemory"), CkException::RTTI, nullptr,
                                          &CloneByFactory<CkExceptionOutOfMemory>);
const CkRTTI CkStreamWriteASCII::RTTI(CK_T("CkStreamWriteASCII"), CkStreamWrite::RTTI, nullptr, nullptr);
const CkRTTI CkStreamWriteASCIIString::RTTI(CK_T("CkStreamWriteASCIIString"), CkStreamWriteASCII::RTTI, nullptr,
                                            nullptr);
const CkRTTI CkStreamWriteASCIITrace::RTTI(CK_T("CkStreamWriteASCIITrace"), CkStreamWriteASCII::RTTI, nullptr, nullptr);
const CkRTTI CkStreamWriteASCIITraceDiagnostic::RTTI(CK_T("CkStreamWriteASCIITraceDiagnostic"),
                                                     CkStreamWriteASCII::RTTI, nullptr, nullptr);
const CkRTTI CkStreamWriteBinaryByteCount::RTTI(CK_T("CkStreamWriteBinaryByteCount"), CkStreamWriteBinary::RTTI,
                                                nullptr, nullptr);
const CkRTTI CkStreamRead::RTTI(CK_T("CkStreamRead"), nullptr, nullptr);
const CkRTTI CkStreamReadBinary::RTTI(CK_T("CkStreamReadBinary"), CkStreamRead::RTTI, nullptr, nullptr);
const CkRTTI CkStreamWrite::RTTI(CK_T("CkStreamWrite"), nullptr, nullptr);
const CkRTTI CkStreamWriteBinary::RTTI(CK_T("CkStreamWriteBinary"), CkStreamWrite::RTTI, nullptr, nullptr);
const CkRTTI CkISerializable::RTTI(CK_T("CkISerializable"), nullptr, nullptr);
const CkRTTI CkException::RTTI(CK_T("CkException"), nullptr, &CloneByFactory<CkException>);
const CkRTTI CkExceptionPreconditionViolation::RTTI(CK_T("CkExceptionPreconditionViolation"), CkException::RTTI,
                                                    nullptr, &CloneByFactory<CkExceptionPreconditionViolation>);
const CkRTTI CkExceptionStream::RTTI(CK_T("CkExceptionStream"), CkException::RTTI, nullptr,
                                     &CloneByFactory<CkExceptionStream>);
const CkRTTI CkExceptionWrongFileVersion::RTTI(CK_T("CkExceptionWrongFileVersion"), CkException::RTTI, nullptr,
                                               &CloneByFactory<CkExceptionWrongFileVersion>);
tarvo::detail::ContainerPool tarvo::detail::g_containerPool;
constinit tarvo::detail::EventRegistry tarvo::detail::g_eventRegistry;
const CkRTTI tarvo::detail::BaseTypeRecord::RTTI(CK_T("CkBaseType"), CkISerializable::RTTI, nullptr, nullptr);
const CkRTTI CkBool::RTTI(CK_T("CkBool"), BaseTypeRecord::RTTI, &CreateByFactory<CkBool>, &CloneByFactory<CkBool>);
const CkRTTI CkInt8::RTTI(CK_T("CkInt8"), BaseTypeRecord::RTTI, &CreateByFactory<CkInt8>, &CloneByFactory<CkInt8>);
const CkRTTI CkInt16::RTTI(CK_T("CkInt16"), BaseTypeRecord::RTTI, &CreateByFactory<CkInt16>, &CloneByFactory<CkInt16>);
const CkRTTI CkInt32::RTTI(CK_T("CkInt32"), BaseTypeRecord::RTTI, &CreateByFactory<CkInt32>, &CloneByFactory<CkInt32>);
const CkRTTI CkLong::RTTI(CK_T("CkLong"), BaseTypeRecord::RTTI, &CreateByFactory<CkLong>, &CloneByFactory<CkLong>);
const CkRTTI CkInt64::RTTI(CK_T("CkInt64"), BaseTypeRecord::RTTI, &CreateByFactory<CkInt64>, &CloneByFactory<CkInt64>);
const CkRTTI CkUInt8::RTTI(CK_T("CkUInt8"), BaseTypeRecord::RTTI, &CreateByFactory<CkUInt8>, &CloneByFactory<CkUInt8>);
const CkRTTI CkUInt16::RTTI(CK_T("CkUInt16"), BaseTypeRecord::RTTI, &CreateByFactory<CkUInt16>,
                            &CloneByFactory<CkUInt16>);
const CkRTTI CkUInt32::RTTI(CK_T("CkUInt32"), BaseTypeRecord::RTTI, &CreateByFactory<CkUInt32>,
                            &CloneByFactory<CkUInt32>);
const CkRTTI CkULong::RTTI(CK_T("CkULong"), BaseTypeRecord::RTTI, &CreateByFactory<CkULong>, &CloneByFactory<CkULong>);
const CkRTTI CkUInt64::RTTI(CK_T("CkUInt64"), BaseTypeRecord::RTTI, &CreateByFactory<CkUInt64>,
                            &CloneByFactory<CkUInt64>);
const CkRTTI CkFloat32::RTTI(CK_T("CkFloat32"), BaseTypeRecord::RTTI, &CreateByFactory<CkFloat32>,
                             &CloneByFactory<CkFloat32>);
const CkRTTI CkFloat64::RTTI(CK_T("CkFloat64"), BaseTypeRecord::RTTI, &CreateByFactory<CkFloat64>,
                             &CloneByFactory<CkFloat64>);
const CkRTTI CkChar::RTTI(CK_T("CkChar"), BaseTypeRecord::RTTI, &CreateByFactory<CkChar>, &CloneByFactory<CkChar>);
const CkRTTI CkString::RTTI(CK_T("CkString"), BaseTypeRecord::RTTI, &CreateByFactory<CkString>,
                            &CloneByFactory<CkString>);
const CkRTTI CkPolyLineBase::RTTI(CK_T("CkPolyLineBase"), CkISerializable::RTTI, nullptr, nullptr);

namespace
{
/// Constructed last and destroyed first: the framework is told of a library that is complete, and what was made on
/// first use goes before the static objects.
const struct LibraryEntry
{
    LibraryEntry() { tarvo::detail::processAttach(); }
    ~LibraryEntry() { tarvo::detail::processDetach(); }
} libraryEntry;
} // namespace
