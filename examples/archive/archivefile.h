#pragma once

#include "records.h"

#include <functional>

namespace archive
{
/// A record as it lies in the archive. The payload is valid until the next one is loaded.
struct Record
{
    RecordKind kind = RecordKind::header;
    std::span<const unsigned char> payload;
    Checksum checksum = 0; ///< The one stored with the record, which is right.
    unsigned __int64 size = 0;
};

/// Loads records of an open archive, of which it keeps a piece in memory: never more than the largest record.
///
/// Threads: one at a time; several loaders may read one file.
/// Failure: DamageException for what is no record; an ArchiveException where the file can't be read.
class RecordLoader
{
public:
    RecordLoader(const platform::File& file, unsigned __int64 fileSize) : m_file(file), m_fileSize(fileSize) {}

    /// The record at `position`, whose checksum is right. `expected` is what is read at once: the size of the record,
    /// where the caller knows it, or what may be worth having as well.
    Record Load(unsigned __int64 position, unsigned int expected);

private:
    /// The bytes at `position`, up to `size` of them; fewer where the file ends.
    std::span<const unsigned char> provide(unsigned __int64 position, unsigned int size, unsigned int expected);

    const platform::File& m_file;
    const unsigned __int64 m_fileSize;
    Bytes m_piece;
    unsigned __int64 m_pieceStart = 0;
};

/// Where a record is, for messages.
struct RecordPlace
{
    unsigned __int64 number = 0; ///< From 0, which is the header.
    unsigned __int64 position = 0;
};

/// An entry of an archive, and where its contents are.
struct FoundEntry
{
    CkSmartPointer<ArchiveEntry> entry;
    RecordPlace place;         ///< Of the entry.
    RecordPlace contentsPlace; ///< Of the first contents record; that of the next entry when there is none.
    unsigned __int64 recordSize = 0;
    Checksum checksum = 0; ///< The one that the entry's record ends in.
};

/// Opens an archive and goes from entry to entry, past the contents.
///
/// Threads: one at a time.
/// Failure: DamageException, which names the record; an ArchiveException where the file can't be read.
class ArchiveScanner
{
public:
    explicit ArchiveScanner(const CString& path);

    const platform::File& GetFile() const noexcept { return m_file; }
    unsigned __int64 GetFileSize() const noexcept { return m_fileSize; }
    unsigned __int64 GetEntryCount() const noexcept { return m_entryCount; }

    /// The size of the header, and the checksum that it ends in.
    unsigned __int64 GetHeaderSize() const noexcept { return m_headerSize; }
    Checksum GetHeaderChecksum() const noexcept { return m_headerChecksum; }

    /// The next entry; false when the trailer has been read, which tells what it should, and the file ends behind it.
    bool Next(FoundEntry& found);

    /// Begins again with the first entry.
    void Rewind() noexcept;

    /// Valid when `Next` has returned false.
    const ArchiveTrailer& GetTrailer() const noexcept { return m_trailer; }

    /// Raises DamageException unless this is what the trailer says of the checksums of all records.
    void RequireChecksum(Checksum checksum) const;

private:
    static constexpr unsigned int readAhead = 4096;

    void readEntryAt(const Record& record, FoundEntry& found);
    void readTrailerAt(const Record& record);

    platform::File m_file;
    unsigned __int64 m_fileSize;
    RecordLoader m_loader;
    RecordPlace m_next;
    unsigned __int64 m_entryCount = 0;
    unsigned __int64 m_headerSize = 0;
    Checksum m_headerChecksum = 0;
    ArchiveTrailer m_trailer;
    RecordPlace m_trailerPlace;
};

/// Calls `read`; what it raises because of the data is raised as a DamageException that says which record of which kind
/// that is, and what entry it is about unless `path` is empty.
void atRecord(const RecordPlace& place, const CString& kind, const CString& path, const std::function<void()>& read);
} // namespace archive
