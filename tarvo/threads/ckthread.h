#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckcheckreturn.h>
#include <tarvo/platform/framework/afxthread.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/streams/ckiclassname.h>
#include <tarvo/threads/ckevent.h>

#include <atomic>

/// Starts threads through the application framework.
class TARVO_API CkThreadPolicyMFC
{
public:
    /// Begins a thread that runs `procedure(argument)` when it is resumed. `handle` is the caller's to close. False
    /// when there is none.
    static bool Begin(AFX_THREADPROC procedure, LPVOID argument, HANDLE& handle);

    /// Lets it run, with that priority.
    static void Resume(HANDLE handle, int priority);
};

namespace tarvo::detail
{
/// What `Start` and the new thread share until the thread has begun. Ends with `Start`.
class TARVO_API ThreadStart
{
public:
    /// The thread has begun. It does not touch the object any more when that shows.
    void Signal() noexcept;

    /// Waits for that, whoever else sets all events.
    void Wait() noexcept;

private:
    enum Stage : unsigned int
    {
        starting,
        signalling,
        signalled
    };

    CkEvent m_event;
    std::atomic<unsigned int> m_stage{starting};
};

/// Forcibly ends the thread behind a handle, if it runs, and waits until it has ended.
TARVO_API void terminateThread(HANDLE handle) noexcept;

/// Whether the thread behind a handle has ended before the time was up; a wait that fails counts as that.
TARVO_API bool waitForThread(HANDLE handle, unsigned int timeoutMs) noexcept;
} // namespace tarvo::detail

/// A thread that calls a member function of its owner, an object of class `T`. `Policy` starts it.
///
/// Threads: one thread at a time starts, terminates and destroys it, while no other uses it; any may wait for the end
/// of a thread that was started.
/// Blocking: `Start` until the new thread has run `onThreadStart`; `WaitUntilTerminate` up to a time-out in
/// milliseconds, 0xFFFFFFFF without limit. When that says true, the thread executes nothing any more.
/// Lifetime: the owner outlives the thread. Destroying the object ends a thread that still runs forcibly, with the exit
/// code 259 and nothing of it cleaned up. One that deletes itself at its end may be gone before `Start` returns.
/// Failure: what the hooks and the member function raise is dropped, and the thread has failed, which its exit code of
/// 1 tells, as it does when the member function returns false.
///
/// | state                  | flags | by                                           |
/// |------------------------|-------|----------------------------------------------|
/// | new                    | 0     | construction                                 |
/// | created                | 1     | `Start`, before the thread runs              |
/// | running                | 3     | the thread                                   |
/// | terminated             | 5     | the thread, before it sets the event         |
/// | forcibly terminated    | 4     | `Terminate`                                  |
/// | and failed, in any     | + 16  | the thread                                   |
template <class T, class Policy>
class CkThread : public CkIClassName<0, CString>
{
public:
    using RunFunction = CkCheckReturn<bool, CkCheckReturnPolicyAssert> (T::*)();

    CkThread(T* owner, RunFunction runFunction, const CString& className)
        : CkIClassName<0, CString>(className), m_owner(owner), m_runFunction(runFunction)
    {
    }

    CkThread(const CkThread&) = delete;
    CkThread& operator=(const CkThread&) = delete;

    virtual ~CkThread()
    {
        if (m_handle == nullptr)
            return;
        // A thread that has come to its end needs no more than a moment.
        if (hasState(stateTerminated) && !deletesItself())
            tarvo::detail::waitForThread(m_handle, INFINITE);
        else if (!deletesItself())
            tarvo::detail::terminateThread(m_handle);
        CloseHandle(m_handle);
    }

protected:
    /// Begins the platform's thread; false when one is still alive, or none can be had.
    virtual bool createThread()
    {
        if (isAlive())
            return false;
        closeThread();
        m_state.store(0, std::memory_order_relaxed);
        m_terminated.Reset();
        if (!Policy::Begin(&CkThread::threadProcedure, this, m_handle))
            return false;
        addState(stateCreated);
        // What `this` is may change as soon as the thread runs.
        Policy::Resume(m_handle, m_priority);
        return true;
    }

public:
    /// Starts the thread and returns when it has run `onThreadStart`. False when it cannot be started, or a thread of
    /// this object is still alive, which goes on.
    virtual CkCheckReturn<bool, CkCheckReturnPolicyAssert> Start()
    {
        if (isAlive())
            return false;
        tarvo::detail::ThreadStart start;
        m_start.store(&start, std::memory_order_relaxed);
        if (!createThread())
        {
            m_start.store(nullptr, std::memory_order_relaxed);
            return false;
        }
        start.Wait(); // from here on the object may be gone
        return true;
    }

    /// False when there is no thread or the time was up first.
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> WaitUntilTerminate(unsigned int timeoutMs)
    {
        return m_handle != nullptr && tarvo::detail::waitForThread(m_handle, timeoutMs);
    }

    /// Ends the thread forcibly where it is, if it still runs. The terminated event is not set.
    void Terminate()
    {
        if (m_handle == nullptr)
            return;
        tarvo::detail::terminateThread(m_handle);
        closeThread();
        m_state.store(stateTerminated, std::memory_order_relaxed);
    }

    /// Set when the thread has done all but return.
    const CkEvent& GetTerminatedEvent() const noexcept { return m_terminated; }

protected:
    /// Called on the new thread before the member function.
    virtual void onThreadStart() {}

    /// Called on the thread, with 0, when the member function has returned true.
    virtual void onThreadEnd(int) {}

    /// Makes the thread delete this object, which the heap has, as the last thing it does. Before `Start`.
    void setDeleteOnExit() noexcept { m_options |= optionDeleteOnExit; }

private:
    friend struct CkThreadPeer;

    static constexpr unsigned int optionDeleteOnExit = 1;

    static constexpr unsigned int stateCreated = 1;
    static constexpr unsigned int stateRunning = 2;
    static constexpr unsigned int stateTerminated = 4;
    static constexpr unsigned int stateFailed = 16;

    static unsigned int threadProcedure(LPVOID argument) { return static_cast<CkThread*>(argument)->run(); }

    bool hasState(unsigned int flag) const noexcept { return (m_state.load(std::memory_order_acquire) & flag) != 0; }
    void addState(unsigned int flag) noexcept { m_state.fetch_or(flag, std::memory_order_acq_rel); }
    bool deletesItself() const noexcept { return (m_options & optionDeleteOnExit) != 0; }

    bool isAlive() const noexcept
    {
        return m_handle != nullptr && hasState(stateCreated) && !hasState(stateTerminated);
    }

    /// Gives up the handle of a thread that has terminated, when it executes nothing any more: its event would else be
    /// set in the middle of the next run.
    void closeThread() noexcept
    {
        if (m_handle == nullptr)
            return;
        tarvo::detail::waitForThread(m_handle, INFINITE);
        CloseHandle(m_handle);
        m_handle = nullptr;
    }

    /// Whether `step` returned true and raised nothing.
    template <class Step>
    static bool succeeds(Step step) noexcept
    {
        try
        {
            return step();
        }
        catch (...)
        {
            tarvo::framework::discardException();
            return false;
        }
    }

    bool callOwner()
    {
        const CkCheckReturn<bool, CkCheckReturnPolicyAssert> result = (m_owner->*m_runFunction)();
        return result.GetValue();
    }

    unsigned int run() noexcept
    {
        m_threadId = GetCurrentThreadId();
        addState(stateRunning);
        bool ok = succeeds([this] { return onThreadStart(), true; });
        if (tarvo::detail::ThreadStart* const start = m_start.exchange(nullptr, std::memory_order_acq_rel))
            start->Signal();
        ok = ok && succeeds([this] { return callOwner(); }) && succeeds([this] { return onThreadEnd(0), true; });
        if (!ok)
            addState(stateFailed);
        const bool deleteNow = deletesItself();
        m_state.fetch_xor(stateRunning | stateTerminated, std::memory_order_acq_rel);
        m_terminated.Set();
        if (deleteNow)
            delete this;
        return ok ? 0 : 1;
    }

    unsigned int m_options = 0;
    T* const m_owner;
    const RunFunction m_runFunction;
    HANDLE m_handle = nullptr;
    unsigned int m_threadId = 0;                               ///< Set by the thread.
    std::atomic<tarvo::detail::ThreadStart*> m_start{nullptr}; ///< Taken by the new thread.
    CkEvent m_terminated;
    const int m_priority = THREAD_PRIORITY_NORMAL;
    std::atomic<unsigned int> m_state{0};
};
