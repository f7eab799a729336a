#pragma once

// Binary streams over a buffer in memory. The library turns values into bytes and back; a derived class says where the
// bytes go and come from.

#include <tarvo/tarvo.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

class MemoryWriter : public CkStreamWriteBinary
{
public:
    const std::vector<unsigned char>& GetBytes() const noexcept { return m_bytes; }

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override
    {
        const auto* const first = static_cast<const unsigned char*>(data);
        m_bytes.insert(m_bytes.end(), first, first + size);
        return *this;
    }

private:
    std::vector<unsigned char> m_bytes;
};

/// The bytes must outlive the reader.
class MemoryReader : public CkStreamReadBinary
{
public:
    explicit MemoryReader(std::span<const unsigned char> bytes) noexcept : m_rest(bytes) {}

protected:
    /// Fewer bytes than asked for say that there are no more; the error is then raised by the library.
    unsigned __int64 read(void* data, unsigned __int64 size) override
    {
        const auto count = static_cast<std::size_t>(std::min<unsigned __int64>(size, m_rest.size()));
        std::copy_n(m_rest.begin(), count, static_cast<unsigned char*>(data));
        m_rest = m_rest.subspan(count);
        return count;
    }

private:
    std::span<const unsigned char> m_rest;
};
