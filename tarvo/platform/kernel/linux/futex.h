#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

// Sleeping and waking on a 32-bit word.

namespace tarvo::kernel
{
/// Keeps `errno` as the caller left it: nobody expects a lock to change it.
class KeepErrno
{
public:
    KeepErrno() = default;
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;
    ~KeepErrno() { errno = m_errno; }

private:
    const int m_errno = errno;
};

/// Sleeps while `word` holds `expected`, until a wake-up or the monotonic `deadline` (null: without limit). Returns
/// false when the deadline has passed; true says only that the word is worth another look.
inline bool futexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected, const timespec* deadline) noexcept
{
    const KeepErrno keep;
    const long result =
        syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

/// Wakes up to `count` sleepers. Takes an address only: the word may be gone already, which at worst wakes a stranger
/// who then looks at a word of its own again.
inline void futexWake(std::atomic<std::uint32_t>* word, int count) noexcept
{
    const KeepErrno keep;
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

/// A mutual-exclusion lock of one word, for sections of a few instructions. Needs no destruction; of zero bytes it is
/// free.
///
/// | word | meaning                               |
/// |------|---------------------------------------|
/// | 0    | free                                  |
/// | 1    | held                                  |
/// | 2    | held, and somebody may be asleep      |
///
/// The three states are those of U. Drepper, "Futexes Are Tricky" (2011), mutex 2.
class FutexLock
{
public:
    constexpr FutexLock() noexcept = default;

    void lock() noexcept
    {
        std::uint32_t word = 0;
        if (m_word.compare_exchange_strong(word, 1, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        while (m_word.exchange(2, std::memory_order_acquire) != 0)
            futexWait(m_word, 2, nullptr);
    }

    void unlock() noexcept
    {
        if (m_word.exchange(0, std::memory_order_release) == 2)
            futexWake(&m_word, 1);
    }

private:
    std::atomic<std::uint32_t> m_word{0};
};

/// How many locks of this layer the running thread holds, and whether it is to end as soon as it holds none: a thread
/// that is ended forcibly must not take one of them with it, or every wait of the process would hang.
struct ThreadEnding
{
    std::uint32_t locks;
    std::uint32_t pending;
};

extern constinit thread_local ThreadEnding t_ending __attribute__((tls_model("initial-exec")));

/// Ends the running thread without any clean-up but that of the wait in which it was interrupted.
[[noreturn]] void endThreadNow() noexcept;

/// Keeps the running thread from being ended forcibly. A signal handler of the same thread may look at the counts at
/// any moment.
class [[nodiscard]] Undisturbed
{
public:
    Undisturbed() noexcept
    {
        t_ending.locks = t_ending.locks + 1;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;
    ~Undisturbed()
    {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        t_ending.locks = t_ending.locks - 1;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (t_ending.pending != 0 && t_ending.locks == 0)
            endThreadNow();
    }
};

/// Holds a lock. A signal handler of the same thread may look at the counts at any moment.
template <class Lock>
class [[nodiscard]] Hold
{
public:
    explicit Hold(Lock& lock) noexcept : m_lock(&lock) { lock.lock(); }

    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    ~Hold() { m_lock->unlock(); }

private:
    const Undisturbed m_undisturbed;
    Lock* const m_lock;
};
} // namespace tarvo::kernel
