#pragma once

#include "checksum.h"
#include "platform.h"

#include <tarvo/tarvo.h>

#include <span>

namespace archive
{
/// Bytes that are read, written and stored all at once.
using Bytes = CkArray<unsigned char, 0, CkArrayPolicyConstructDefault>;

/// Collects what is written in memory.
class MemoryWriter final : public CkStreamWriteBinary
{
public:
    const Bytes& GetBytes() const noexcept { return m_bytes; }
    Bytes TakeBytes() noexcept { return std::move(m_bytes); }

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override;

private:
    Bytes m_bytes;
};

/// Reads from memory that stays where it is meanwhile.
class MemoryReader final : public CkStreamReadBinary
{
public:
    explicit MemoryReader(std::span<const unsigned char> bytes) noexcept : m_rest(bytes) {}

    std::size_t GetRest() const noexcept { return m_rest.size(); }

protected:
    unsigned __int64 read(void* data, unsigned __int64 size) override;

private:
    std::span<const unsigned char> m_rest;
};

/// Sees all that is written, keeps its checksum and nothing else.
class ChecksumWriter final : public CkStreamWriteBinary
{
public:
    Checksum GetChecksum() const noexcept { return m_checksum; }

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override;

private:
    Checksum m_checksum = 0;
};

/// Writes to a file: small values by way of a buffer, large ones straight from where they are.
class FileWriter final : public CkStreamWriteBinary
{
public:
    explicit FileWriter(platform::File& file);

    /// Hands what is still in the buffer to the system. Nothing else does.
    void Finish();

    /// The number of bytes written so far.
    unsigned __int64 GetPosition() const noexcept { return m_position; }

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override;

private:
    static constexpr unsigned int bufferSize = 256 * 1024;
    static constexpr unsigned int largeSize = 128 * 1024;

    platform::File& m_file;
    Bytes m_buffer{bufferSize};
    unsigned int m_used = 0;
    unsigned __int64 m_position = 0;
};
} // namespace archive
