#include <tarvo/platform/framework/afxthread.h>

#include <tarvo/platform/kernel/threadlibrary.h>

#include <memory>
#include <new>

CWinThread::~CWinThread()
{
    if (m_hThread != nullptr)
        CloseHandle(m_hThread);
}

DWORD WINAPI CWinThread::run(LPVOID argument)
{
    auto* const thread = static_cast<CWinThread*>(argument);
    thread->m_nThreadID = GetCurrentThreadId();
    void* const library = thread->m_library;
    const DWORD result = thread->m_procedure(thread->m_parameter);
    if (thread->m_bAutoDelete)
        delete thread;
    return tarvo::kernel::leaveThread(library, result);
}

CWinThread* AfxBeginThread(AFX_THREADPROC procedure, LPVOID parameter, int priority, unsigned int stackSize,
                           DWORD flags, SECURITY_ATTRIBUTES* attributes)
{
    std::unique_ptr<CWinThread> thread(new (std::nothrow) CWinThread(procedure, parameter));
    if (thread == nullptr)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    thread->m_library = tarvo::kernel::keepLibrary();
    thread->m_hThread =
        CreateThread(attributes, stackSize, &CWinThread::run, thread.get(), flags | CREATE_SUSPENDED, nullptr);
    if (thread->m_hThread == nullptr)
    {
        const DWORD error = GetLastError();
        tarvo::kernel::releaseLibrary(thread->m_library);
        SetLastError(error);
        return nullptr;
    }
    CWinThread* const started = thread.release();
    if (priority != THREAD_PRIORITY_NORMAL)
        SetThreadPriority(started->m_hThread, priority);
    if ((flags & CREATE_SUSPENDED) == 0)
        started->ResumeThread(); // from here on it may be gone
    return started;
}
