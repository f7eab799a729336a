#include <tarvo/threads/ckcriticalsection.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/kernel/processor.h>

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
    return spin(threadId) || (ensureSemaphore() && perfLockKernel(threadId, timeoutMs));
}

bool CkCriticalSection::spin(ULONG threadId) noexcept
{
    for (unsigned int attempts = m_spinCount; attempts != 0; --attempts)
    {
        if (tryAcquire(threadId))
            return true;
        tarvo::kernel::spinPause();
    }
    return false;
}

bool CkCriticalSection::ensureSemaphore() noexcept
{
    if (m_semaphore.load(std::memory_order_acquire) != nullptr)
        return true;
    const HANDLE made = CreateSemaphoreW(nullptr, 0, semaphoreMaximum, nullptr);
    if (made == nullptr)
        return false;
    HANDLE published = nullptr;
    if (!m_semaphore.compare_exchange_strong(published, made, std::memory_order_acq_rel, std::memory_order_acquire))
        CloseHandle(made);
    return true;
}

// The number of waiters plus the units that the semaphore was given and nobody has taken yet is always the number of
// threads between counting themselves and either taking a unit or taking themselves off. So while a thread sleeps and no
// unit is left for it, the number of waiters is above 0, and the next `Leave` gives a unit. A unit that meets no sleeper
// costs the next one a look at the owner, nothing else.
bool CkCriticalSection::perfLockKernel(ULONG threadId, unsigned int timeoutMs) noexcept
{
    HANDLE semaphore = m_semaphore.load(std::memory_order_acquire);
    if (semaphore == nullptr)
        return false;
    const DWORD start = GetTickCount();
    for (bool registered = false;;)
    {
        if (!registered)
            m_waiterCount.fetch_add(1, std::memory_order_seq_cst);
        const bool seen = tarvo::kernel::heavyBarrier();
        const bool acquired = tryAcquire(threadId);
        const DWORD elapsed = timeoutMs == INFINITE ? 0 : GetTickCount() - start;
        if (acquired || elapsed >= timeoutMs)
        {
            m_waiterCount.fetch_sub(1, std::memory_order_relaxed);
            return acquired;
        }
        const DWORD rest = timeoutMs == INFINITE ? INFINITE : timeoutMs - elapsed;
        const DWORD result = WaitForSingleObject(semaphore, seen ? rest : std::min(rest, uncertainSleep));
        // Whoever gave a unit has taken this thread off the count; after anything else it still stands there.
        registered = result != WAIT_OBJECT_0;
        if (result != WAIT_OBJECT_0 && result != WAIT_TIMEOUT && !replaceClosed(semaphore))
        {
            m_waiterCount.fetch_sub(1, std::memory_order_relaxed);
            return false;
        }
    }
}

bool CkCriticalSection::replaceClosed(HANDLE& semaphore) noexcept
{
    if (m_semaphore.load(std::memory_order_acquire) == semaphore || !ensureSemaphore())
        return false;
    semaphore = m_semaphore.load(std::memory_order_acquire);
    return true;
}

void CkCriticalSection::enterSlow(ULONG threadId)
{
    if (!perfLock(threadId, INFINITE))
        throw CkException(source, lineEnterFailed);
    ++m_recursionCount;
}

void CkCriticalSection::wakeOne()
{
    const HANDLE semaphore = m_semaphore.load(std::memory_order_acquire);
    m_waiterCount.fetch_sub(1, std::memory_order_relaxed);
    if (ReleaseSemaphore(semaphore, 1, nullptr))
        return;
    m_waiterCount.fetch_add(1, std::memory_order_relaxed);
    // A waiter whose semaphore was closed meanwhile wakes by itself.
    if (semaphore != nullptr && semaphore == m_semaphore.load(std::memory_order_acquire))
        throw CkException(source, lineLeaveFailed);
}

// Of static lifetime, a section may be destroyed while threads that the end of the process has not stopped yet still use
// it. Sleepers keep their semaphore; a thread on its way to sleep finds it closed and makes a new one.
void CkCriticalSection::closeSemaphore() noexcept
{
    if (m_waiterCount.load(std::memory_order_seq_cst) > 0)
        return;
    const HANDLE semaphore = m_semaphore.exchange(nullptr, std::memory_order_acq_rel);
    // What goes with the semaphore: wake-ups that met nobody, each of which has taken one off the count in advance.
    while (WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0)
        m_waiterCount.fetch_add(1, std::memory_order_relaxed);
    CloseHandle(semaphore);
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
    return section.object;
}
