#include "records.h"

#include "exceptions.h"
#include "names.h"

namespace archive
{
const CkRTTI ArchiveHeader::RTTI(CK_T("ArchiveHeader"), CkISerializable::RTTI, nullptr, nullptr);
const CkRTTI ArchiveTrailer::RTTI(CK_T("ArchiveTrailer"), CkISerializable::RTTI, nullptr, nullptr);
const CkRTTI ArchiveEntry::RTTI(CK_T("ArchiveEntry"), CkISerializable::RTTI, nullptr, nullptr);
const CkRTTI ArchiveFile::RTTI(CK_T("ArchiveFile"), ArchiveEntry::RTTI, &CreateByFactory<ArchiveFile>, nullptr);
const CkRTTI ArchiveFolder::RTTI(CK_T("ArchiveFolder"), ArchiveEntry::RTTI, &CreateByFactory<ArchiveFolder>, nullptr);
const CkRTTI ArchiveLink::RTTI(CK_T("ArchiveLink"), ArchiveEntry::RTTI, &CreateByFactory<ArchiveLink>, nullptr);

namespace
{
constexpr const WCHAR* magic = CK_T("Tarvo archive");

/// Sizes beyond this would not fit the numbers that positions in a file are made of.
constexpr unsigned __int64 maximumFileSize = 1ull << 60;

[[noreturn]] void raiseDamage(unsigned int line, const WCHAR* text)
{
    throw DamageException(CK_SOURCE_FILE, line, text);
}

/// Reads a version that this program knows: all there have been begin with 1.
void readVersion(CkStreamReadBinary& stream, unsigned int currentVersion)
{
    if (stream.ReadAndCompareVersion(currentVersion) == 0)
        raiseDamage(__LINE__, CK_T("there is no such version"));
}

void readText(CkStreamReadBinary& stream, CString& text)
{
    stream >> text;
    if (text.IsEmpty())
        raiseDamage(__LINE__, CK_T("a text is missing"));
}

/// Writes the frame, the payload that `write` writes to a stream, and the checksum.
template <class Write>
Checksum appendRecord(MemoryWriter& memory, RecordKind kind, const Write& write)
{
    CkStreamWriteBinaryByteCount count;
    write(count);
    const unsigned int start = memory.GetBytes().GetCount();
    memory << static_cast<unsigned char>(kind) << static_cast<unsigned int>(count.GetByteCount());
    write(memory);
    const Bytes& bytes = memory.GetBytes();
    const Checksum checksum = extendChecksum(0, bytes.begin() + start, bytes.GetCount() - start);
    memory << checksum;
    return checksum;
}

/// The class goes with the object, so that a reader can make one.
void writeEntry(CkStreamWriteBinary& stream, const ArchiveEntry& entry)
{
    stream << entry.GetClassNameW();
    entry.Serialize(stream);
}

/// The part of a contents record that has a checksum.
void writeSummed(CkStreamWriteBinary& stream, const Bytes& contents)
{
    stream << static_cast<unsigned char>(RecordKind::contents) << (arraySize + contents.GetCount());
    contents.Serialize(stream);
}

void requireEnd(const MemoryReader& reader)
{
    if (reader.GetRest() != 0)
        raiseDamage(__LINE__, CK_T("there is more in the record than belongs there"));
}

/// What has been read must be all that was stored. A text is read up to its first zero only, and its length may be
/// given in more bytes than it takes; then what was read, stored again, has another size.
template <class Write>
void requireWhole(std::span<const unsigned char> payload, const Write& write)
{
    CkStreamWriteBinaryByteCount count;
    write(count);
    if (count.GetByteCount() != payload.size())
        raiseDamage(__LINE__, CK_T("a text is not stored as it should be"));
}
} // namespace

const WCHAR* nameOf(RecordKind kind) noexcept
{
    switch (kind)
    {
    case RecordKind::header: return CK_T("header");
    case RecordKind::entry: return CK_T("entry");
    case RecordKind::contents: return CK_T("contents");
    case RecordKind::trailer: return CK_T("trailer");
    }
    return CK_T("unknown kind");
}

void ArchiveHeader::Serialize(CkStreamWriteBinary& stream) const
{
    stream << magic;
    stream.WriteVersion(version);
}

void ArchiveHeader::Serialize(CkStreamReadBinary& stream)
{
    CString text;
    stream >> text;
    if (text != magic)
        raiseDamage(__LINE__, CK_T("this is no archive"));
    readVersion(stream, version);
}

void ArchiveTrailer::Serialize(CkStreamWriteBinary& stream) const
{
    stream.WriteVersion(version);
    stream << entryCount << size << checksum;
}

void ArchiveTrailer::Serialize(CkStreamReadBinary& stream)
{
    readVersion(stream, version);
    stream >> entryCount >> size >> checksum;
}

void ArchiveEntry::Serialize(CkStreamWriteBinary& stream) const
{
    stream.WriteVersion(version);
    stream << path << permissions << modified.seconds << modified.nanoseconds;
}

void ArchiveEntry::Serialize(CkStreamReadBinary& stream)
{
    readVersion(stream, version);
    readText(stream, path);
    stream >> permissions >> modified.seconds >> modified.nanoseconds;
    if (modified.nanoseconds >= 1000000000 || permissions > 07777)
        raiseDamage(__LINE__, CK_T("the permissions or the time are none"));
}

void ArchiveFile::Serialize(CkStreamWriteBinary& stream) const
{
    ArchiveEntry::Serialize(stream);
    stream.WriteVersion(version);
    stream << size;
}

void ArchiveFile::Serialize(CkStreamReadBinary& stream)
{
    ArchiveEntry::Serialize(stream);
    readVersion(stream, version);
    stream >> size;
    if (size > maximumFileSize)
        raiseDamage(__LINE__, CK_T("no file is that large"));
}

void ArchiveLink::Serialize(CkStreamWriteBinary& stream) const
{
    ArchiveEntry::Serialize(stream);
    stream.WriteVersion(version);
    stream << target;
}

void ArchiveLink::Serialize(CkStreamReadBinary& stream)
{
    ArchiveEntry::Serialize(stream);
    readVersion(stream, version);
    readText(stream, target);
}

Checksum appendHeader(MemoryWriter& memory)
{
    return appendRecord(memory, RecordKind::header,
                        [](CkStreamWriteBinary& stream) { ArchiveHeader().Serialize(stream); });
}

Checksum appendEntry(MemoryWriter& memory, const ArchiveEntry& entry)
{
    return appendRecord(memory, RecordKind::entry,
                        [&entry](CkStreamWriteBinary& stream) { writeEntry(stream, entry); });
}

Checksum appendTrailer(MemoryWriter& memory, const ArchiveTrailer& trailer)
{
    return appendRecord(memory, RecordKind::trailer,
                        [&trailer](CkStreamWriteBinary& stream) { trailer.Serialize(stream); });
}

void writeContents(CkStreamWriteBinary& stream, const Bytes& contents, Checksum checksum)
{
    writeSummed(stream, contents);
    stream << checksum;
}

Checksum checksumOfContents(const Bytes& contents)
{
    ChecksumWriter writer;
    writeSummed(writer, contents);
    return writer.GetChecksum();
}

void readHeader(std::span<const unsigned char> payload)
{
    MemoryReader reader(payload);
    ArchiveHeader header;
    header.Serialize(reader);
    requireEnd(reader);
    requireWhole(payload, [&header](CkStreamWriteBinary& stream) { header.Serialize(stream); });
}

ArchiveTrailer readTrailer(std::span<const unsigned char> payload)
{
    MemoryReader reader(payload);
    ArchiveTrailer trailer;
    trailer.Serialize(reader);
    requireEnd(reader);
    return trailer;
}

CkSmartPointer<ArchiveEntry> readEntry(std::span<const unsigned char> payload)
{
    MemoryReader reader(payload);
    CString className;
    reader >> className;
    const CkSmartPointer<CkISerializable> object = CkISerializable::CreateByName(className);
    if (!object || !object->IsKindOf(ArchiveEntry::RTTI))
        raiseDamage(__LINE__, CK_T("there is no such class of entries"));
    object->Serialize(reader);
    requireEnd(reader);
    const CkSmartPointer<ArchiveEntry> entry(static_cast<ArchiveEntry*>(object.Get()));
    requireWhole(payload, [&entry](CkStreamWriteBinary& stream) { writeEntry(stream, *entry); });
    return entry;
}

void readContents(std::span<const unsigned char> payload, unsigned int size, Bytes& contents)
{
    MemoryReader reader(payload);
    // An array makes room for as many elements as it is said to have; so a look at that number comes first.
    MemoryReader ahead = reader;
    unsigned int mark = 0;
    unsigned int version = 0;
    unsigned int count = 0;
    ahead >> mark >> version >> count;
    if (mark != 0xFFFFFFFF || version == 0 || count != size)
        raiseDamage(__LINE__, CK_T("these are not as many bytes of the file as should follow"));
    contents.Serialize(reader);
    requireEnd(reader);
}
} // namespace archive
