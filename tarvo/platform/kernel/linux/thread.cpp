#include <tarvo/platform/kernel/linux/slots.h>

#include <tarvo/library/libraryentry.h>
#include <tarvo/platform/kernel/kernel.h>

#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <memory>
#include <new>

namespace tarvo::kernel
{
constinit thread_local ThreadEnding t_ending __attribute__((tls_model("initial-exec"))) = {};

/// A thread that this layer has started. Belongs to its kernel object, which goes when the thread has ended and all its
/// handles are closed.
struct Thread
{
    enum Life : std::uint32_t
    {
        running,
        ending,
        terminated ///< Somebody else ends it.
    };

    enum Joined : std::uint32_t
    {
        notYet,
        byNow, ///< Somebody does it.
        joined
    };

    Thread(LPTHREAD_START_ROUTINE run, LPVOID argument, bool isSuspended) noexcept
        : start(run), parameter(argument), suspended(isSuspended ? 1 : 0)
    {
    }

    const LPTHREAD_START_ROUTINE start;
    const LPVOID parameter;
    pthread_t pthread{};
    ObjectRef object{};
    DWORD id = 0; ///< Set when `hasStarted` is.
    pid_t systemId = 0;
    std::atomic<std::uint32_t> hasStarted{0};
    std::atomic<std::uint32_t> suspended;
    std::atomic<std::uint32_t> life{running};
    std::atomic<std::uint32_t> join{notYet};
    std::atomic<DWORD> exitCode{STILL_ACTIVE};
    std::atomic<DWORD> forcedCode{0}; ///< The exit code of one that is terminated.
    std::atomic<int> priority{THREAD_PRIORITY_NORMAL};
    DWORD result = 0; ///< The thread's alone.
};

namespace
{
const int endSignal = SIGRTMAX - 2;

void waitWhile(std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept
{
    while (word.load(std::memory_order_acquire) == value)
        futexWait(word, value, nullptr);
}

void setAndWake(std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept
{
    word.store(value, std::memory_order_release);
    futexWake(&word, 0x7FFFFFFF);
}

/// Tells everybody that the thread has ended, and gives up what it held of itself.
void announceEnd(Thread& thread, DWORD exitCode) noexcept
{
    const ObjectRef object = thread.object;
    thread.exitCode.store(exitCode, std::memory_order_relaxed);
    std::uint32_t previous = 0;
    signalObject(object, 1, previous);
    dropReference(*object.object);
}

/// The running thread, if this layer has started it.
constinit thread_local Thread* t_thread __attribute__((tls_model("initial-exec"))) = nullptr;

/// Lets the signal through that ends the thread forcibly.
void admitEndSignal() noexcept
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, endSignal);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// Ends with its thread, after everything else that is thread-local. As long as it exists, the C library does not
/// unload the library whose code its destructor is.
struct EndOfThread
{
    ~EndOfThread()
    {
        tarvo::detail::threadDetach();
        std::uint32_t expected = Thread::running;
        while (!thread->life.compare_exchange_strong(expected, Thread::ending, std::memory_order_acq_rel))
        {
            // The signal is on its way, if it can be sent.
            admitEndSignal();
            waitWhile(thread->life, Thread::terminated);
            expected = Thread::running;
        }
        t_thread = nullptr;
        announceEnd(*thread, thread->result);
        emptySlotCache();
    }

    Thread* thread = nullptr;
};

thread_local EndOfThread t_endOfThread;

void* runThread(void* argument) noexcept
{
    Thread& thread = *static_cast<Thread*>(argument);
    t_endOfThread.thread = &thread;
    t_thread = &thread;
    admitEndSignal();
    thread.systemId = gettid();
    thread.id = GetCurrentThreadId();
    setAndWake(thread.hasStarted, 1);
    waitWhile(thread.suspended, 1);
    thread.result = thread.start(thread.parameter);
    return nullptr;
}

bool startThread(Thread& thread, SIZE_T stackSize) noexcept
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    const bool started = (stackSize == 0 || pthread_attr_setstacksize(&attributes, stackSize) == 0) &&
                         pthread_create(&thread.pthread, &attributes, &runThread, &thread) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

/// Waits until the thread has begun: it has an id then, and keeps the library loaded by itself.
void waitForBegin(Thread& thread) noexcept
{
    waitWhile(thread.hasStarted, 0);
}

/// What the system makes of a priority: its "nice" value.
int niceOf(int priority) noexcept
{
    switch (priority)
    {
    case THREAD_PRIORITY_IDLE: return 19;
    case THREAD_PRIORITY_TIME_CRITICAL: return -15;
    default: return -5 * priority;
    }
}

void endOnSignal(int) noexcept
{
    if (t_ending.locks == 0)
        endThreadNow();
    t_ending.pending = 1;
}

bool installHandler() noexcept
{
    struct sigaction action = {};
    action.sa_handler = &endOnSignal;
    return sigaction(endSignal, &action, nullptr) == 0;
}

bool terminate(Thread& thread, DWORD exitCode) noexcept
{
    waitForBegin(thread);
    std::uint32_t expected = Thread::running;
    if (!thread.life.compare_exchange_strong(expected, Thread::terminated, std::memory_order_acq_rel))
        return true;
    thread.forcedCode.store(exitCode, std::memory_order_release);
    if (&thread == t_thread)
    {
        t_ending.pending = 1; // ends with the hold of the caller
        return true;
    }
    static const bool installed = installHandler();
    if (!installed || tgkill(getpid(), thread.systemId, endSignal) != 0)
    {
        setAndWake(thread.life, Thread::running);
        return false;
    }
    return true;
}

/// The thread behind a handle for the length of a call; none, with the last error, when it is not a thread's.
class ThreadOfHandle
{
public:
    explicit ThreadOfHandle(HANDLE handle) noexcept
        : m_object(requireObject(handle, ObjectKind::thread, ObjectKind::thread))
    {
        if (m_object && !addReference(m_object))
        {
            m_object = {};
            SetLastError(ERROR_INVALID_HANDLE);
        }
    }

    ThreadOfHandle(const ThreadOfHandle&) = delete;
    ThreadOfHandle& operator=(const ThreadOfHandle&) = delete;

    ~ThreadOfHandle()
    {
        if (m_object)
            dropReference(*m_object.object);
    }

    explicit operator bool() const noexcept { return static_cast<bool>(m_object); }
    Thread* operator->() const noexcept { return &**this; }
    Thread& operator*() const noexcept { return *m_object.object->ThreadData(); }

private:
    ObjectRef m_object;
};
} // namespace

void endThreadNow() noexcept
{
    t_ending.pending = 0;
    abandonWait();
    if (Thread* const thread = t_thread)
    {
        t_thread = nullptr;
        announceEnd(*thread, thread->forcedCode.load(std::memory_order_acquire));
    }
    emptySlotCache();
    // The C library gives the stack to a later thread, with the values that are still in it.
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key)
        pthread_setspecific(key, nullptr);
    for (;;)
        syscall(SYS_exit, 0);
}

void joinThread(Thread& thread) noexcept
{
    std::uint32_t expected = Thread::notYet;
    // Whoever ended in the middle of it would leave the others waiting.
    const Undisturbed undisturbed;
    if (thread.join.compare_exchange_strong(expected, Thread::byNow, std::memory_order_acq_rel))
    {
        pthread_join(thread.pthread, nullptr);
        setAndWake(thread.join, Thread::joined);
    }
    else
        waitWhile(thread.join, Thread::byNow);
}

void forgetThread(Thread* thread) noexcept
{
    const std::unique_ptr<Thread> owner(thread);
    if (thread->join.load(std::memory_order_acquire) == Thread::notYet)
    {
        // One that was ended forcibly has not told the C library, which would never give back its stack.
        if (thread->life.load(std::memory_order_acquire) == Thread::terminated && thread->id != GetCurrentThreadId())
            pthread_join(thread->pthread, nullptr);
        else
            pthread_detach(thread->pthread);
    }
}
} // namespace tarvo::kernel

using tarvo::kernel::Thread;
using tarvo::kernel::ThreadOfHandle;

HANDLE CreateThread(SECURITY_ATTRIBUTES*, SIZE_T stackSize, LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                    DWORD* threadId) noexcept
{
    std::unique_ptr<Thread> thread(new (std::nothrow) Thread(start, parameter, (flags & CREATE_SUSPENDED) != 0));
    const HANDLE handle =
        thread ? tarvo::kernel::openObject(tarvo::kernel::ObjectKind::thread, 0, 0, thread.get()) : nullptr;
    if (handle == nullptr)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    // The object has the thread from here on.
    Thread& made = *thread.release();
    made.object = tarvo::kernel::findObject(handle);
    tarvo::kernel::addReference(made.object);
    if (!tarvo::kernel::startThread(made, stackSize))
    {
        made.join.store(Thread::joined, std::memory_order_relaxed);
        tarvo::kernel::dropReference(*made.object.object);
        CloseHandle(handle);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (threadId != nullptr || (flags & CREATE_SUSPENDED) == 0)
        tarvo::kernel::waitForBegin(made);
    if (threadId != nullptr)
        *threadId = made.id;
    return handle;
}

DWORD ResumeThread(HANDLE handle) noexcept
{
    const ThreadOfHandle thread(handle);
    if (!thread)
        return 0xFFFFFFFFu;
    const std::uint32_t before = thread->suspended.exchange(0, std::memory_order_acq_rel);
    if (before != 0)
        tarvo::kernel::futexWake(&thread->suspended, 1);
    return before;
}

int GetThreadPriority(HANDLE handle) noexcept
{
    const ThreadOfHandle thread(handle);
    return thread ? thread->priority.load(std::memory_order_relaxed) : THREAD_PRIORITY_ERROR_RETURN;
}

BOOL SetThreadPriority(HANDLE handle, int priority) noexcept
{
    const ThreadOfHandle thread(handle);
    if (!thread)
        return FALSE;
    if (priority != THREAD_PRIORITY_IDLE && priority != THREAD_PRIORITY_TIME_CRITICAL &&
        (priority < THREAD_PRIORITY_LOWEST || priority > THREAD_PRIORITY_HIGHEST))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const tarvo::kernel::KeepErrno keep;
    thread->priority.store(priority, std::memory_order_relaxed);
    tarvo::kernel::waitForBegin(*thread);
    if (thread->life.load(std::memory_order_acquire) == Thread::running)
        setpriority(PRIO_PROCESS, static_cast<id_t>(thread->systemId), tarvo::kernel::niceOf(priority));
    return TRUE;
}

BOOL GetExitCodeThread(HANDLE handle, DWORD* exitCode) noexcept
{
    const ThreadOfHandle thread(handle);
    if (!thread)
        return FALSE;
    *exitCode = thread->exitCode.load(std::memory_order_acquire);
    return TRUE;
}

BOOL TerminateThread(HANDLE handle, DWORD exitCode) noexcept
{
    {
        const tarvo::kernel::Undisturbed undisturbed;
        const ThreadOfHandle thread(handle);
        if (!thread)
            return FALSE;
        if (!tarvo::kernel::terminate(*thread, exitCode))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
    }
    WaitForSingleObject(handle, INFINITE);
    return TRUE;
}
