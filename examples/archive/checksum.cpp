#include "checksum.h"

#include <zlib.h>

namespace archive
{
Checksum extendChecksum(Checksum before, const void* data, std::size_t size) noexcept
{
    return static_cast<Checksum>(crc32_z(before, static_cast<const Bytef*>(data), size));
}
} // namespace archive
