#include "streams.h"

#include <algorithm>
#include <cstring>

namespace archive
{
CkStreamWrite& MemoryWriter::write(const void* data, unsigned __int64 size)
{
    const unsigned int before = m_bytes.GetCount();
    const auto needed = static_cast<unsigned int>(before + size);
    if (needed > m_bytes.GetMemoryElementCount())
        m_bytes.SetMemoryElementCount(std::max(2 * before, std::max(needed, 256u)), 1);
    m_bytes.SetCount(needed, 1);
    std::copy_n(static_cast<const unsigned char*>(data), size, m_bytes.begin() + before);
    return *this;
}

unsigned __int64 MemoryReader::read(void* data, unsigned __int64 size)
{
    const std::size_t count = std::min<std::size_t>(size, m_rest.size());
    std::copy_n(m_rest.data(), count, static_cast<unsigned char*>(data));
    m_rest = m_rest.subspan(count);
    return count;
}

CkStreamWrite& ChecksumWriter::write(const void* data, unsigned __int64 size)
{
    m_checksum = extendChecksum(m_checksum, data, size);
    return *this;
}

FileWriter::FileWriter(platform::File& file) : m_file(file) {}

CkStreamWrite& FileWriter::write(const void* data, unsigned __int64 size)
{
    m_position += size;
    if (size > bufferSize - m_used)
        Finish();
    if (size >= largeSize)
    {
        Finish();
        m_file.Write(data, size);
        return *this;
    }
    std::copy_n(static_cast<const unsigned char*>(data), size, m_buffer.begin() + m_used);
    m_used += static_cast<unsigned int>(size);
    return *this;
}

void FileWriter::Finish()
{
    if (m_used != 0)
        m_file.Write(m_buffer.begin(), std::exchange(m_used, 0));
}
} // namespace archive
