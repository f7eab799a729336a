#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/kernel.h>

// Threads of the application framework.

using AFX_THREADPROC = unsigned int (*)(LPVOID parameter);

/// A thread that the framework has started. Deletes itself when the thread ends, unless `m_bAutoDelete` was set to
/// FALSE before the thread ran; who needs the handle longer duplicates it while the thread is suspended.
class TARVO_API CWinThread
{
public:
    CWinThread(const CWinThread&) = delete;
    CWinThread& operator=(const CWinThread&) = delete;
    ~CWinThread();

    /// The number of suspensions before; 0xFFFFFFFF on failure.
    DWORD ResumeThread() { return ::ResumeThread(m_hThread); }

    HANDLE m_hThread = nullptr;
    DWORD m_nThreadID = 0; ///< Set by the thread as it begins.
    BOOL m_bAutoDelete = TRUE;

private:
    friend TARVO_API CWinThread* AfxBeginThread(AFX_THREADPROC, LPVOID, int, unsigned int, DWORD, SECURITY_ATTRIBUTES*);

    CWinThread(AFX_THREADPROC procedure, LPVOID parameter) noexcept : m_procedure(procedure), m_parameter(parameter) {}

    static DWORD WINAPI run(LPVOID argument);

    const AFX_THREADPROC m_procedure;
    const LPVOID m_parameter;
    void* m_library = nullptr; ///< What keeps the library loaded while the thread runs.
};

/// Starts a thread that runs `procedure(parameter)` and ends with the code that this returns; with the flag
/// CREATE_SUSPENDED not before it is resumed. The library stays loaded as long as the thread runs. Null, with the last
/// error, when the thread cannot be started.
TARVO_API CWinThread* AfxBeginThread(AFX_THREADPROC procedure, LPVOID parameter, int priority = THREAD_PRIORITY_NORMAL,
                                     unsigned int stackSize = 0, DWORD flags = 0,
                                     SECURITY_ATTRIBUTES* attributes = nullptr);
