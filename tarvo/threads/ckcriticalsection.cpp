#include <tarvo/threads/ckcriticalsection.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/kernel/processor.h>
#include <tarvo/platform/kernel/unloading.h>
#include <tarvo/threads/detail/lockorder.h>

#include <algorithm>
#include <exception>

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\threads\\ckcriticalsection");
constexpr unsigned int lineEnterFailed = 100;
constexpr unsigned int lineLeaveFailed = 141;

constexpr LONG semaphoreMaximum = 0x7FFFFFFF;

/// How long a waiter sleeps at most where a `Leave` may have missed it, in milliseconds.
constexpr DWORD uncertainSleep = 1;
} // namespace

bool CkCriticalSection::lock(bool& acquired, unsigned int timeoutMs) noexcept
{
    const ULONG threadId = GetCurrentThreadId();
    acquired = false;
    if (IsLocking(threadId))
        return true;
    acquired = tryAcquire(threadId) || (timeoutMs != 0 && perfLock(threadId, timeoutMs));
    return acquired;
}

bool CkCriticalSection::perfLock(ULONG threadId, unsigned int timeoutMs) noexcept
{
    return spin(threadId) || takeFromStopped(threadId) ||
           (ensureSemaphore() && sleepUntilAcquired(threadId, timeoutMs));
}

bool CkCriticalSection::perfLockKernel(ULONG threadId, unsigned int timeoutMs) noexcept
{
    return m_semaphore.load(std::memory_order_relaxed) != nullptr && sleepUntilAcquired(threadId, timeoutMs);
}

// Looks at ever longer intervals: a section that is entered again and again then stays for a while where it and what it
// guards are in the cache, instead of moving between processors each time that it is left.
bool CkCriticalSection::spin(ULONG threadId) noexcept
{
    constexpr unsigned int longestInterval = 64;
    unsigned int interval = 1;
    for (unsigned int left = m_spinCount; left != 0;)
    {
        if (tryAcquire(threadId))
            return true;
        for (unsigned int pauses = std::min(interval, left); pauses != 0; --pauses, --left)
            tarvo::kernel::spinPause();
        interval = std::min(2 * interval, longestInterval);
    }
    return false;
}

// What the owner was about to change may be half done. But the process ends, and must not hang instead.
bool CkCriticalSection::takeFromStopped(ULONG threadId) noexcept
{
    if (!tarvo::kernel::areOtherThreadsGone())
        return false;
    m_owner.store(threadId, std::memory_order_relaxed);
    m_recursionCount = 0;
    return true;
}

bool CkCriticalSection::ensureSemaphore() noexcept
{
    if (m_semaphore.load(std::memory_order_seq_cst) != nullptr)
        return true;
    const HANDLE made = CreateSemaphoreW(nullptr, 0, semaphoreMaximum, nullptr);
    if (made == nullptr)
        return false;
    HANDLE published = nullptr;
    if (!m_semaphore.compare_exchange_strong(published, made, std::memory_order_seq_cst))
        CloseHandle(made);
    return true;
}

bool CkCriticalSection::sleepUntilAcquired(ULONG threadId, unsigned int timeoutMs) noexcept
{
    const DWORD start = GetTickCount();
    m_waiters.fetch_add(oneWaiter, std::memory_order_seq_cst);
    // From here on a `Leave` that this thread does not see sees this thread; once is enough.
    const bool seen = tarvo::kernel::heavyBarrier();
    WaitStep step;
    do
        step = waitStep(threadId, start, timeoutMs, seen);
    while (step == WaitStep::again);
    m_waiters.fetch_sub(oneWaiter, std::memory_order_relaxed);
    return step == WaitStep::acquired;
}

// A `Leave` that finds waiters gives one unit, unless one is on its way already. It is on its way until the thread that
// took it has cleared the mark; that thread then tries the owner, and finds the section free, or held by one whose
// `Leave` comes after the mark was cleared. So a unit is never missing, and there is never more than one for nobody.
CkCriticalSection::WaitStep CkCriticalSection::waitStep(ULONG threadId, DWORD start, unsigned int timeoutMs,
                                                        bool seen) noexcept
{
    // The semaphore before the owner, as `wakeOne` looks for it after freeing the section.
    const HANDLE semaphore = m_semaphore.load(std::memory_order_seq_cst);
    if (tryAcquire(threadId))
        return WaitStep::acquired;
    const DWORD elapsed = timeoutMs == INFINITE ? 0 : GetTickCount() - start;
    if (elapsed >= timeoutMs)
        return WaitStep::failed;
    if (semaphore == nullptr)
        return ensureSemaphore() ? WaitStep::again : WaitStep::failed;
    const DWORD rest = timeoutMs == INFINITE ? INFINITE : timeoutMs - elapsed;
    switch (WaitForSingleObject(semaphore, seen ? rest : std::min(rest, uncertainSleep)))
    {
    case WAIT_OBJECT_0: m_waiters.fetch_and(~wakeOnItsWay, std::memory_order_seq_cst); return WaitStep::again;
    case WAIT_TIMEOUT: return WaitStep::again;
    default: return WaitStep::failed;
    }
}

void CkCriticalSection::enterSlow(ULONG threadId)
{
    if (!perfLock(threadId, INFINITE))
        throw CkException(source, lineEnterFailed);
    ++m_recursionCount;
}

void CkCriticalSection::wakeOne()
{
    if ((m_waiters.fetch_or(wakeOnItsWay, std::memory_order_seq_cst) & wakeOnItsWay) != 0)
        return;
    const HANDLE semaphore = m_semaphore.load(std::memory_order_seq_cst);
    if (semaphore != nullptr && ReleaseSemaphore(semaphore, 1, nullptr))
        return;
    m_waiters.fetch_and(~wakeOnItsWay, std::memory_order_seq_cst);
    // Where the destructor has taken the semaphore away, the waiter finds that out and looks at the owner again.
    if (semaphore != nullptr && semaphore == m_semaphore.load(std::memory_order_seq_cst))
        throw CkException(source, lineLeaveFailed);
}

// Of static lifetime, a section may be destroyed while threads that the end of the process has not stopped yet still
// use it. Waiters count themselves before they look for the semaphore, so either they are seen here or they see that
// there is none. Where some are seen, they may be asleep on the semaphore: it is left to them.
void CkCriticalSection::closeSemaphore() noexcept
{
    if (m_waiters.load(std::memory_order_seq_cst) >= oneWaiter)
        return;
    const HANDLE semaphore = m_semaphore.exchange(nullptr, std::memory_order_seq_cst);
    const LONG late = m_waiters.fetch_and(~wakeOnItsWay, std::memory_order_seq_cst) / oneWaiter;
    if (late == 0)
        CloseHandle(semaphore);
    else // they look again and find the semaphore that took its place
        ReleaseSemaphore(semaphore, late, nullptr);
}

void CkCriticalSectionAuto::rethrowUnlessUnwinding()
{
    if (std::uncaught_exceptions() == 0)
        throw;
}

CkCriticalSection& GetCriticalSectionSingleton()
{
    // The section needs no construction at run time, so a first use by two threads at once is safe; only its place in
    // the unload sequence must be taken once.
    static constinit tarvo::detail::Undestroyed<CkCriticalSection> section;
    static constinit tarvo::detail::UnloadEntry entry{[] { section.object.~CkCriticalSection(); }};
    static const bool registered = (tarvo::detail::registerUnload(entry), true);
    static_cast<void>(registered);
    if (!section.object.IsLocking())
        tarvo::detail::LockOrder::Check(tarvo::detail::LockRank::singleton);
    return section.object;
}
