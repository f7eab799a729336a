#include "archivefile.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>

namespace archive
{
namespace
{
[[noreturn]] void raiseDamage(unsigned int line, const WCHAR* text)
{
    throw DamageException(CK_SOURCE_FILE, line, text);
}

unsigned int numberAt(std::span<const unsigned char> bytes)
{
    unsigned int number = 0;
    MemoryReader(bytes) >> number;
    return number;
}

platform::File openArchive(const CString& path)
{
    CString folder;
    CString name;
    platform::splitFilePath(path, folder, name);
    platform::File file = platform::Folder::Open(folder)->OpenNamedToRead(name);
    if (file.GetStatus().kind != platform::Kind::file)
        throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                               CString::FromUtf8(makePrintable(path)) + CK_T(": is not a file"));
    return file;
}
} // namespace

std::span<const unsigned char> RecordLoader::provide(unsigned __int64 position, unsigned int size,
                                                     unsigned int expected)
{
    const bool isThere = position >= m_pieceStart && position + size <= m_pieceStart + m_piece.GetCount();
    if (!isThere)
    {
        const unsigned __int64 rest = m_fileSize - std::min(position, m_fileSize);
        const auto count = static_cast<unsigned int>(std::min<unsigned __int64>(std::max(size, expected), rest));
        m_piece.SetCount(0, 0);
        m_piece.SetCount(count, 0);
        m_pieceStart = position;
        m_piece.SetCount(static_cast<unsigned int>(m_file.ReadAt(position, m_piece.begin(), count)), 1);
    }
    const auto offset = static_cast<unsigned int>(position - m_pieceStart);
    return {m_piece.begin() + offset, std::min(size, m_piece.GetCount() - offset)};
}

Record RecordLoader::Load(unsigned __int64 position, unsigned int expected)
{
    const std::span<const unsigned char> frame = provide(position, frameSize, expected);
    if (frame.size() < frameSize)
        raiseDamage(__LINE__, frame.empty() ? CK_T("the archive ends in front of the record")
                                            : CK_T("the archive ends within the record"));
    Record record;
    record.kind = static_cast<RecordKind>(frame[0]);
    const unsigned int length = numberAt(frame.subspan(1));
    if (frame[0] < 1 || frame[0] > 4 || length > maximumPayload)
        raiseDamage(__LINE__, CK_T("this is no record"));
    const unsigned int summed = frameSize + length;
    const std::span<const unsigned char> whole = provide(position, summed + checksumSize, expected);
    if (whole.size() < summed + checksumSize)
        raiseDamage(__LINE__, CK_T("the archive ends within the record"));
    record.payload = whole.subspan(frameSize, length);
    record.checksum = numberAt(whole.subspan(summed));
    record.size = whole.size();
    if (extendChecksum(0, whole.data(), summed) != record.checksum)
        raiseDamage(__LINE__, CK_T("the checksum is wrong"));
    return record;
}

void atRecord(const RecordPlace& place, const CString& kind, const CString& path, const std::function<void()>& read)
{
    const auto where = [&place, &kind, &path]
    {
        const CString of = path.IsEmpty() ? path : CK_T(" of ") + CString::FromUtf8(makePrintable(path));
        const CString what = kind + of;
        return CString(
            CkFormat(CK_T("record %I64u (%s) at byte %I64u"), place.number, what.GetString(), place.position));
    };
    try
    {
        read();
    }
    catch (const ArchiveException& exception)
    {
        if (exception.GetExitCode() != exitDamaged)
            throw;
        throw DamageException(CK_SOURCE_FILE, __LINE__, where(), exception);
    }
    catch (const CkExceptionOutOfMemory&)
    {
        throw;
    }
    catch (const CkException& exception)
    {
        throw DamageException(CK_SOURCE_FILE, __LINE__, where(), exception);
    }
}

ArchiveScanner::ArchiveScanner(const CString& path)
    : m_file(openArchive(path)), m_fileSize(m_file.GetStatus().size), m_loader(m_file, m_fileSize)
{
    atRecord(m_next, nameOf(RecordKind::header), CString(),
             [this]
             {
                 const Record record = m_loader.Load(0, readAhead);
                 if (record.kind != RecordKind::header)
                     raiseDamage(__LINE__, CK_T("this is no archive"));
                 readHeader(record.payload);
                 m_headerSize = record.size;
                 m_headerChecksum = record.checksum;
             });
    Rewind();
}

void ArchiveScanner::Rewind() noexcept
{
    m_next = {1, m_headerSize};
    m_entryCount = 0;
}

bool ArchiveScanner::Next(FoundEntry& found)
{
    bool isEntry = false;
    atRecord(m_next, CK_T("entry or trailer"), CString(),
             [this, &isEntry, &found]
             {
                 const Record record = m_loader.Load(m_next.position, readAhead);
                 isEntry = record.kind == RecordKind::entry;
                 if (isEntry)
                     readEntryAt(record, found);
                 else if (record.kind == RecordKind::trailer)
                     readTrailerAt(record);
                 else
                     raiseDamage(__LINE__, CK_T("neither an entry nor the trailer"));
             });
    return isEntry;
}

void ArchiveScanner::readEntryAt(const Record& record, FoundEntry& found)
{
    found.entry = readEntry(record.payload);
    found.place = m_next;
    found.recordSize = record.size;
    found.checksum = record.checksum;
    const unsigned __int64 size = found.entry->GetSize();
    const unsigned __int64 contents = allContentsSize(size);
    const unsigned __int64 rest = m_fileSize - m_next.position - record.size;
    if (contents > rest)
        raiseDamage(__LINE__, CK_T("the archive ends within the contents of the file"));
    found.contentsPlace = {m_next.number + 1, m_next.position + record.size};
    m_next = {found.contentsPlace.number + (size + maximumContents - 1) / maximumContents,
              found.contentsPlace.position + contents};
    ++m_entryCount;
}

void ArchiveScanner::readTrailerAt(const Record& record)
{
    m_trailer = readTrailer(record.payload);
    m_trailerPlace = m_next;
    if (m_trailer.entryCount != m_entryCount)
        raiseDamage(__LINE__, CK_T("the archive has another number of entries"));
    if (m_trailer.size != m_next.position)
        raiseDamage(__LINE__, CK_T("the archive has another size"));
    if (m_next.position + record.size != m_fileSize)
        raiseDamage(__LINE__, CK_T("there is something behind the trailer"));
}

void ArchiveScanner::RequireChecksum(Checksum checksum) const
{
    atRecord(m_trailerPlace, nameOf(RecordKind::trailer), CString(),
             [this, checksum]
             {
                 if (m_trailer.checksum != checksum)
                     raiseDamage(__LINE__, CK_T("these are other records than the archive was made of"));
             });
}
} // namespace archive
