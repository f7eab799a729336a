#pragma once

#include <tarvo/platform/kernel/linux/futex.h>
#include <tarvo/platform/kernel/linux/time.h>

#include <atomic>
#include <cstdint>

namespace tarvo::kernel
{
/// A thread asleep on an object. Lives on that thread's stack; linked into the object's queue under the object's lock.
struct Waiter
{
    std::atomic<std::uint32_t> served{0}; ///< 1 once a signal was taken on the thread's behalf.
    Waiter* previous = nullptr;
    Waiter* next = nullptr;
};

/// What a handle refers to: something that is signalled some number of times and can be waited for.
///
/// The number of signals and the mark that somebody waits share one word, so a signal that meets nobody and a wait that
/// finds a signal are one compare-and-swap. Only when somebody waits, the queue and its lock are used: a signal is then
/// taken for the longest waiter before that is woken, so none can be lost to a waiter that times out.
///
/// Threads: every operation may be called from any thread. The caller keeps the object alive (see HandlePin).
///
/// | word                     | signal                        | wait                        |
/// |--------------------------|-------------------------------|-----------------------------|
/// | n, nobody waits          | n + 1                         | n > 0: n - 1; 0: queue up   |
/// | 0, somebody waits        | serves the first in the queue | queue up                    |
class KernelObject
{
public:
    enum class Kind
    {
        semaphore
    };

    explicit KernelObject(Kind kind, std::uint32_t signals) noexcept : m_word(signals), m_kind(kind) {}
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
    virtual ~KernelObject() = default;

    Kind GetKind() const noexcept { return m_kind; }

    /// One handle less refers to the object; the last one destroys it.
    void Release() noexcept;

    /// Waits until a signal is there and takes it; false when the time is up.
    bool Wait(DWORD timeoutMs) noexcept;

protected:
    /// Adds `count` signals unless that makes more than `maximum`; false and nothing done then. The number before goes
    /// to `previous`.
    bool signal(std::uint32_t count, std::uint32_t maximum, std::uint32_t& previous) noexcept;

private:
    static constexpr std::uint64_t waitersBit = std::uint64_t{1} << 63;

    static std::uint32_t signalsOf(std::uint64_t word) noexcept { return static_cast<std::uint32_t>(word); }

    /// Takes a signal if there is one.
    bool tryTake() noexcept;

    /// Hands signals to the queue until either is used up; the lock is held.
    void serveQueue() noexcept;

    void enqueue(Waiter& waiter) noexcept;
    void unlink(Waiter& waiter) noexcept;

    std::atomic<std::uint64_t> m_word;          ///< Signals in the low half, `waitersBit` while the queue is in use.
    std::atomic<std::uint32_t> m_references{1}; ///< Handles that refer to the object.
    FutexLock m_lock;                           ///< Guards the queue. Held for a few instructions, never asleep.
    Waiter* m_first = nullptr;
    Waiter* m_last = nullptr;
    const Kind m_kind;
};

class Semaphore final : public KernelObject
{
public:
    static constexpr Kind kind = Kind::semaphore;

    Semaphore(std::uint32_t initial, std::uint32_t maximum) noexcept : KernelObject(kind, initial), m_maximum(maximum)
    {
    }

    /// Adds `count` units; false where that exceeds the maximum. The count before goes to `previous`.
    bool Post(std::uint32_t count, std::uint32_t& previous) noexcept { return signal(count, m_maximum, previous); }

private:
    const std::uint32_t m_maximum;
};
} // namespace tarvo::kernel
