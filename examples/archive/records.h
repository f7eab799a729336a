#pragma once

#include "platform.h"
#include "streams.h"

#include <tarvo/tarvo.h>

#include <span>

// What an archive consists of; docs/archive-format.md has it byte by byte. Each record is
//
// | part     | bytes  | content                                       |
// |----------|--------|-----------------------------------------------|
// | kind     | 1      | RecordKind                                    |
// | length   | 4      | of the payload in bytes                       |
// | payload  | length | an object, or an array of bytes, as it stores itself |
// | checksum | 4      | of all the bytes in front of it               |

namespace archive
{
enum class RecordKind : unsigned char
{
    header = 1,   ///< ArchiveHeader.
    entry = 2,    ///< The name of a class that derives from ArchiveEntry, and an object of it.
    contents = 3, ///< A CkArray of bytes: the next part of the file that the entry in front of it describes.
    trailer = 4   ///< ArchiveTrailer.
};

/// What a record is called in messages.
const WCHAR* nameOf(RecordKind kind) noexcept;

inline constexpr unsigned int frameSize = 5; ///< Kind and length.
inline constexpr unsigned int checksumSize = 4;
inline constexpr unsigned int arraySize = 16; ///< A stored array without its elements.

/// Of a file, every contents record but the last has exactly so many bytes, and the last one at least 1.
inline constexpr unsigned int maximumContents = 1u << 20;

/// No record of any kind is larger.
inline constexpr unsigned int maximumPayload = maximumContents + arraySize;

/// The size of the record for `contents` bytes of a file.
constexpr unsigned int contentsRecordSize(unsigned int contents) noexcept
{
    return frameSize + arraySize + contents + checksumSize;
}

/// The size of all the contents records of a file of `size` bytes. Only for what has been read from an entry: that is
/// small enough.
constexpr unsigned __int64 allContentsSize(unsigned __int64 size) noexcept
{
    constexpr unsigned __int64 overhead = frameSize + arraySize + checksumSize;
    return size + overhead * ((size + maximumContents - 1) / maximumContents);
}

/// The first record: says what the file is and which layout it has.
class ArchiveHeader : public CkISerializable
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }

    void Serialize(CkStreamWriteBinary& stream) const override;

    /// Raises DamageException for another file, and CkExceptionWrongFileVersion for a newer archive.
    void Serialize(CkStreamReadBinary& stream) override;

private:
    static constexpr unsigned int version = 1;
};

/// The last record: what must have been in front of it.
class ArchiveTrailer : public CkISerializable
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }

    void Serialize(CkStreamWriteBinary& stream) const override;
    void Serialize(CkStreamReadBinary& stream) override;

    unsigned __int64 entryCount = 0;
    unsigned __int64 size = 0; ///< Of all records but this one.
    Checksum checksum = 0;     ///< Of the checksums of these records, in order.

private:
    static constexpr unsigned int version = 1;
};

/// Something that is archived: its path within the archive, and what every kind of thing has.
class ArchiveEntry : public CkISerializable
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }

    void Serialize(CkStreamWriteBinary& stream) const override;
    void Serialize(CkStreamReadBinary& stream) override;

    virtual unsigned __int64 GetSize() const { return 0; }

    CString path; ///< See `isStoredPath`.
    unsigned int permissions = 0;
    platform::Time modified;

private:
    static constexpr unsigned int version = 1;
};

/// A file, whose contents follow in records of their own.
class ArchiveFile : public ArchiveEntry
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static ArchiveFile* Create() { return new ArchiveFile; }

    void Serialize(CkStreamWriteBinary& stream) const override;
    void Serialize(CkStreamReadBinary& stream) override;

    unsigned __int64 GetSize() const override { return size; }

    unsigned __int64 size = 0;

private:
    static constexpr unsigned int version = 1;
};

/// A folder; what is in it are entries of their own.
class ArchiveFolder : public ArchiveEntry
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static ArchiveFolder* Create() { return new ArchiveFolder; }
};

/// A symbolic link.
class ArchiveLink : public ArchiveEntry
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static ArchiveLink* Create() { return new ArchiveLink; }

    void Serialize(CkStreamWriteBinary& stream) const override;
    void Serialize(CkStreamReadBinary& stream) override;

    CString target;

private:
    static constexpr unsigned int version = 1;
};

/// Write a whole record into memory, and return the checksum that it ends in.
Checksum appendHeader(MemoryWriter& memory);
Checksum appendEntry(MemoryWriter& memory, const ArchiveEntry& entry);
Checksum appendTrailer(MemoryWriter& memory, const ArchiveTrailer& trailer);

/// The checksum of the checksums so far, and of that of one more record.
inline Checksum addChecksum(Checksum before, Checksum ofRecord) noexcept
{
    return extendChecksum(before, &ofRecord, checksumSize);
}

/// Writes a whole contents record; `checksum` is that of the record, see `checksumOfContents`.
void writeContents(CkStreamWriteBinary& stream, const Bytes& contents, Checksum checksum);

/// The checksum that stands at the end of the record of these contents.
Checksum checksumOfContents(const Bytes& contents);

/// Read a whole payload. What is left over is an error.
ArchiveTrailer readTrailer(std::span<const unsigned char> payload);
void readHeader(std::span<const unsigned char> payload);
CkSmartPointer<ArchiveEntry> readEntry(std::span<const unsigned char> payload);

/// Reads a payload that must hold `size` bytes of a file.
void readContents(std::span<const unsigned char> payload, unsigned int size, Bytes& contents);
} // namespace archive
