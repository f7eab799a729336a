#pragma once

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
} // namespace tarvo::kernel
