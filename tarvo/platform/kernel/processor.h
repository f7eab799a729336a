#pragma once

#include <cstddef>

#if defined(__x86_64__)
#    include <immintrin.h>
#endif

namespace tarvo::kernel
{
/// Tells the processor that the thread spins.
inline void spinPause() noexcept
{
#if defined(__x86_64__)
    _mm_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

/// Tells the processor that the thread is about to write to the bytes. Nothing is read where they do not exist.
inline void prefetchForWriting(const void* address, std::size_t size) noexcept
{
    constexpr std::size_t cacheLine = 64;
    for (std::size_t offset = 0; offset < size; offset += cacheLine)
        __builtin_prefetch(static_cast<const std::byte*>(address) + offset, 1);
}
} // namespace tarvo::kernel
