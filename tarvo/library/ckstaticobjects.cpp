// The static objects of the library, in one file because their order matters: they are constructed in the order in
// which they stand here and destroyed in the reverse.

#include <tarvo/core/ckexception.h>
#include <tarvo/library/unloadsequence.h>
#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwriteascii.h>
#include <tarvo/streams/ckstreamwritebinary.h>

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
const CkRTTI CkException::RTTI(CK_T("CkException"), nullptr, &CloneByFactory<CkException>);
const CkRTTI CkExceptionPreconditionViolation::RTTI(CK_T("CkExceptionPreconditionViolation"), CkException::RTTI,
                                                    nullptr, &CloneByFactory<CkExceptionPreconditionViolation>);
const CkRTTI CkExceptionStream::RTTI(CK_T("CkExceptionStream"), CkException::RTTI, nullptr,
                                     &CloneByFactory<CkExceptionStream>);
const CkRTTI CkExceptionWrongFileVersion::RTTI(CK_T("CkExceptionWrongFileVersion"), CkException::RTTI, nullptr,
                                               &CloneByFactory<CkExceptionWrongFileVersion>);

namespace
{
/// Constructed last and destroyed first: what was made on first use goes before the static objects.
const struct UnloadOwner
{
    ~UnloadOwner() { tarvo::detail::unloadLibrary(); }
} unloadOwner;
} // namespace
