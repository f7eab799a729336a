#include <tarvo/threads/ckthread.h>

#include <thread>

bool CkThreadPolicyMFC::Begin(AFX_THREADPROC procedure, LPVOID argument, HANDLE& handle)
{
    CWinThread* const thread =
        AfxBeginThread(procedure, argument, THREAD_PRIORITY_NORMAL, 0, CREATE_SUSPENDED, nullptr);
    if (thread == nullptr)
        return false;
    const HANDLE process = GetCurrentProcess();
    if (!DuplicateHandle(process, thread->m_hThread, process, &handle, 0, TRUE, DUPLICATE_SAME_ACCESS))
    {
        handle = nullptr;
        tarvo::detail::terminateThread(thread->m_hThread); // it has not run yet
        delete thread;
        return false;
    }
    return true;
}

void CkThreadPolicyMFC::Resume(HANDLE handle, int priority)
{
    if (GetThreadPriority(handle) != priority)
        SetThreadPriority(handle, priority);
    ResumeThread(handle);
}

namespace tarvo::detail
{
void ThreadStart::Signal() noexcept
{
    m_stage.store(signalling, std::memory_order_release);
    m_event.Set();
    m_stage.store(signalled, std::memory_order_release);
}

void ThreadStart::Wait() noexcept
{
    // The event may be set by others as well. Reset, it is set again by a thread that has not signalled before.
    while (m_stage.load(std::memory_order_acquire) == starting)
    {
        if (m_event.Wait(INFINITE) == CkEvent::eWaitFailed)
            std::this_thread::yield();
        if (m_stage.load(std::memory_order_acquire) == starting)
            m_event.Reset();
    }
    while (m_stage.load(std::memory_order_acquire) != signalled)
        std::this_thread::yield();
}

void terminateThread(HANDLE handle) noexcept
{
    if (WaitForSingleObject(handle, 0) == WAIT_TIMEOUT && TerminateThread(handle, STILL_ACTIVE))
        WaitForSingleObject(handle, INFINITE);
}

bool waitForThread(HANDLE handle, unsigned int timeoutMs) noexcept
{
    return WaitForSingleObject(handle, timeoutMs) != WAIT_TIMEOUT;
}
} // namespace tarvo::detail
