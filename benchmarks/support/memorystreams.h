#pragma once

#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwritebinary.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <streambuf>
#include <vector>

// Binary streams over memory, as a program that is in earnest about speed writes them.

/// Collects the bytes; the memory grows and is kept for the next record.
class MemoryWriter final : public CkStreamWriteBinary
{
public:
    void Restart() noexcept { m_size = 0; }
    std::span<const std::byte> Bytes() const noexcept { return {m_memory.data(), m_size}; }

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override
    {
        if (size > m_memory.size() - m_size)
            grow(size);
        std::memcpy(m_memory.data() + m_size, data, size);
        m_size += size;
        return *this;
    }

private:
    [[gnu::noinline]] void grow(std::size_t size) { m_memory.resize(std::max(2 * m_memory.size(), m_size + size)); }

    std::vector<std::byte> m_memory = std::vector<std::byte>(64);
    std::size_t m_size = 0;
};

class MemoryReader final : public CkStreamReadBinary
{
public:
    explicit MemoryReader(std::span<const std::byte> bytes) : m_bytes(bytes) {}

    void Restart() noexcept { m_position = 0; }

protected:
    unsigned __int64 read(void* data, unsigned __int64 size) override
    {
        const std::size_t count = std::min<std::size_t>(size, m_bytes.size() - m_position);
        std::memcpy(data, m_bytes.data() + m_position, count);
        m_position += count;
        return count;
    }

private:
    std::span<const std::byte> m_bytes;
    std::size_t m_position = 0;
};

/// Memory as a standard stream buffer: the least that one can be, and so the fastest.
class MemoryBuffer final : public std::streambuf
{
public:
    void RestartWriting() noexcept { setp(m_memory, m_memory + sizeof m_memory); }

    /// Reads what was written since `RestartWriting`.
    void RestartReading() noexcept { setg(m_memory, m_memory, pptr()); }

    const char* Data() const noexcept { return m_memory; }

private:
    char m_memory[256];
};
