#pragma once

#include <cstddef>
#include <cstdint>

namespace archive
{
/// The CRC-32 of zlib, gzip and Ethernet.
using Checksum = std::uint32_t;

/// The checksum of what had the checksum `before`, followed by these bytes; 0 is that of no bytes.
Checksum extendChecksum(Checksum before, const void* data, std::size_t size) noexcept;
} // namespace archive
