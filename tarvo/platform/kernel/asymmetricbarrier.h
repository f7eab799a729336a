#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/kernel.h>

#include <atomic>

// A full memory barrier between two threads of which one passes often and the other rarely: the rare one pays for both.
//
// The often-passing side writes a word with `storeLight` and then reads a second word. The rare side changes that
// second word, calls `heavyBarrier`, and then reads the first. At least one of the two sees the other's write:
//
// - Light stores are plain. `heavyBarrier` makes every running thread of the process execute a full barrier (a thread
//   that does not run passes one when it is switched). If that barrier comes after the often-passing side's store, the
//   store is visible when `heavyBarrier` returns. Otherwise it comes before the store, and so before the read that
//   follows the store in program order, and that read sees what was written before `heavyBarrier`.
// - Where the system gives no such call, `storeLight` is sequentially consistent. So must be the other three accesses,
//   which then have one total order, in which one side's read comes after the other side's write.
//
// Windows keeps to the second form. FlushProcessWriteBuffers would serve on a genuine kernel, but is an empty function
// in some emulations, where wake-ups would get lost. So does ThreadSanitizer, which does not know of the kernel's
// barrier.

namespace tarvo::kernel
{
#if defined(__linux__) && !TARVO_THREAD_SANITIZER
#    define TARVO_ASYMMETRIC_BARRIER 1

/// Whether the kernel makes the barrier. Set while the library is loaded, before any other thread can use it.
extern constinit TARVO_API bool g_asymmetricBarrier;
#else
#    define TARVO_ASYMMETRIC_BARRIER 0
inline constexpr bool g_asymmetricBarrier = false;
#endif

/// Stores with release order; the reads that follow in program order see what a rare side wrote that cannot see this.
template <class T>
inline void storeLight(std::atomic<T>& word, T value) noexcept
{
    if (g_asymmetricBarrier)
    {
        word.store(value, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    else
        word.store(value, std::memory_order_seq_cst);
}

/// The rare side's half. False when the kernel refused it (a filter installed after the library was loaded): then
/// nothing is sure, and the caller must look again after a while.
#if TARVO_ASYMMETRIC_BARRIER
bool heavyBarrier() noexcept;
#else
inline bool heavyBarrier() noexcept
{
    return true;
}
#endif
} // namespace tarvo::kernel
