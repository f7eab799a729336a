#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/asymmetricbarrier.h>
#include <tarvo/platform/kernel/kernel.h>

#include <atomic>

/// The lock of the library: recursive, owned by a thread, spinning a while before it sleeps.
///
/// Threads: every operation may be called from any thread; `Leave` and `GetRecursionCount` only from the owner. Takes
/// no other lock. The sections of the library nest in this order: singleton lock, thread pool, log listener manager,
/// event registry, object. Checked builds of the library trap where a thread enters one of the first four and holds one
/// that comes later.
/// Blocking: `Enter` without limit, after `spinCount` attempts asleep in the kernel.
/// Lifetime: no kernel object exists before the first contention that outlasts the spinning; it goes with the section.
/// The section may go when the last `Leave` has returned, not when it has merely let the next thread in. One of static
/// lifetime may still be entered and left after its destruction, so that what comes late in an unload does no harm.
/// Failure: `Enter` and `Leave` raise `CkException` when the kernel refuses a semaphore, a wait or a release. After a
/// failed `Enter` the section is not held, after a failed `Leave` it is free.
///
/// | owner  | Enter                   | TryEnter          | Leave                                             |
/// |--------|-------------------------|-------------------|---------------------------------------------------|
/// | none   | caller's, recursion 1   | as `Enter`, true  | a caller's error                                  |
/// | caller | recursion + 1           | as `Enter`, true  | recursion - 1; at 0: no owner, one sleeper woken  |
/// | other  | waits                   | false             | a caller's error                                  |
class TARVO_API CkCriticalSection
{
public:
    constexpr CkCriticalSection() noexcept : CkCriticalSection(4000) {}

    /// `spinCount` is the number of attempts before a thread sleeps; 0 sleeps at once.
    explicit constexpr CkCriticalSection(unsigned int spinCount) noexcept : m_spinCount(spinCount) {}
    CkCriticalSection(const CkCriticalSection&) = delete;
    CkCriticalSection& operator=(const CkCriticalSection&) = delete;

    ~CkCriticalSection()
    {
        if (m_semaphore.load(std::memory_order_relaxed) != nullptr)
            closeSemaphore();
    }

    void Enter()
    {
        const ULONG threadId = GetCurrentThreadId();
        if (!tryEnter(threadId))
            enterSlow(threadId);
    }

    /// Enters if that needs no waiting at all; true when the caller then holds the section.
    bool TryEnter() noexcept { return tryEnter(GetCurrentThreadId()); }

    void Leave()
    {
        if (TARVO_CHECKED && !IsLocking())
            tarvo::detail::trap("a critical section is left by a thread that does not hold it");
        if (--m_recursionCount != 0)
            return;
        // The other side, a thread about to sleep, first counts itself and then tries the owner once more; at least one
        // of the two sees the other.
        tarvo::kernel::storeLight(m_owner, ULONG{0});
        if (m_waiters.load(std::memory_order_seq_cst) >= oneWaiter)
            wakeOne();
    }

    bool IsLocking() const noexcept { return IsLocking(GetCurrentThreadId()); }

    /// Whether the thread with this id holds the section; says something lasting only about the calling thread.
    bool IsLocking(unsigned int threadId) const noexcept { return m_owner.load(std::memory_order_relaxed) == threadId; }

    /// How many times the owner still has to leave. For the owner alone, and while nobody uses the section.
    LONG GetRecursionCount() const noexcept { return m_recursionCount; }

private:
    friend struct CkCriticalSectionPeer;

    static constexpr LONG wakeOnItsWay = 1;
    static constexpr LONG oneWaiter = 2;

    bool tryAcquire(ULONG threadId) noexcept
    {
        ULONG owner = 0;
        // Acquiring pairs with the release of the owner in `Leave`; failing is a thread's last look before it sleeps,
        // which must come after it has counted itself in the one order of all such accesses.
        return m_owner.load(std::memory_order_seq_cst) == 0 &&
               m_owner.compare_exchange_strong(owner, threadId, std::memory_order_seq_cst);
    }

    bool tryEnter(ULONG threadId) noexcept
    {
        if (!IsLocking(threadId) && !tryAcquire(threadId))
            return false;
        ++m_recursionCount;
        return true;
    }

    /// Acquires within a time and leaves the recursion count to the caller: `acquired` tells whether the section came
    /// to the caller just now or was its own before. False when the time is up or the kernel fails.
    bool lock(bool& acquired, unsigned int timeoutMs) noexcept;

    /// Acquires by spinning, then by sleeping.
    bool perfLock(ULONG threadId, unsigned int timeoutMs) noexcept;

    /// Acquires by sleeping on the semaphore, which must exist.
    bool perfLockKernel(ULONG threadId, unsigned int timeoutMs) noexcept;

    bool sleepUntilAcquired(ULONG threadId, unsigned int timeoutMs) noexcept;

    enum class WaitStep
    {
        again,
        acquired,
        failed
    };

    /// One look at the owner and one sleep; the thread is counted as a waiter. `seen` is false where a `Leave` may not
    /// see that.
    WaitStep waitStep(ULONG threadId, DWORD start, unsigned int timeoutMs, bool seen) noexcept;

    bool spin(ULONG threadId) noexcept;

    /// Acquires from an owner that the end of the process has stopped, and that would never leave.
    bool takeFromStopped(ULONG threadId) noexcept;
    bool ensureSemaphore() noexcept;
    void enterSlow(ULONG threadId);
    void wakeOne();
    void closeSemaphore() noexcept;

    std::atomic<ULONG> m_owner{0}; ///< Thread id of the owner, 0 while free.
    const unsigned int m_spinCount;
    std::atomic<HANDLE> m_semaphore{nullptr}; ///< Made by the first thread that must sleep.
    std::atomic<LONG> m_waiters{0}; ///< `oneWaiter` for each thread in the sleeping phase, and `wakeOnItsWay`.
    LONG m_recursionCount = 0;      ///< The owner's alone.
};

/// Holds a section from its construction to its end, or to `Leave`.
///
/// Failure: the constructor and `Leave` as the section's. The destructor raises as well, except while an exception is
/// already unwinding the stack.
class [[nodiscard]] CkCriticalSectionAuto
{
public:
    explicit CkCriticalSectionAuto(CkCriticalSection& section) : CkCriticalSectionAuto(&section) {}

    /// `section` is not null.
    explicit CkCriticalSectionAuto(CkCriticalSection* section) : m_section(section)
    {
        if (TARVO_CHECKED && section == nullptr)
            tarvo::detail::trap("a guard was given no critical section");
        section->Enter();
    }

    CkCriticalSectionAuto(const CkCriticalSectionAuto&) = delete;
    CkCriticalSectionAuto& operator=(const CkCriticalSectionAuto&) = delete;

    ~CkCriticalSectionAuto() noexcept(false)
    {
        if (!m_left)
            leaveAtEnd();
    }

    /// Leaves the section now; a second call does nothing.
    void Leave()
    {
        if (m_left)
            return;
        m_left = true;
        m_section->Leave();
    }

private:
    void leaveAtEnd()
    {
        try
        {
            m_section->Leave();
        }
        catch (...)
        {
            rethrowUnlessUnwinding();
        }
    }

    /// Called while the failure of `Leave` is handled.
    TARVO_API static void rethrowUnlessUnwinding();

    CkCriticalSection* m_section;
    bool m_left = false;
};

/// Base of containers that are locked (1) or left to the lock of their owner (0). `Lock` is the guard that the
/// container takes around its work either way.
template <int N>
class CkCriticalSectionPolicy;

template <>
class CkCriticalSectionPolicy<0>
{
protected:
    class [[nodiscard]] Lock
    {
    public:
        explicit Lock(const CkCriticalSectionPolicy&) noexcept {}
        ~Lock() {}
    };
};

template <>
class CkCriticalSectionPolicy<1>
{
protected:
    class [[nodiscard]] Lock : CkCriticalSectionAuto
    {
    public:
        explicit Lock(const CkCriticalSectionPolicy& policy) : CkCriticalSectionAuto(policy.m_section) {}
    };

private:
    mutable CkCriticalSection m_section;
};

/// The section under which every singleton is made; the outermost of the library's locks. It outlives all singletons.
/// Asked for by those who are about to enter it: a checked build of the library looks at the order of locks here.
TARVO_API CkCriticalSection& GetCriticalSectionSingleton();
