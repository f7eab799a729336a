#pragma once

#include <tarvo/config.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/threads/cktask.h>

#include <memory>
#include <utility>

class WorkerThread;
class CkThreadPool;
extern template class TARVO_API CkSingleton<CkThreadPool>;

/// The threads of the process that run tasks, fair between the threads that submit them.
///
/// Tasks wait in a queue per submitting thread and priority. Each submitter has as many slots as there are processors:
/// so many of its tasks run at once. A worker that has finished a task takes the next one of the same submitter, else
/// one of the submitter that has waited longest with a free slot. Priorities order the tasks of one submitter, and
/// equal ones run in the order in which they came.
///
/// No task that was accepted is lost, runs twice, or waits while a worker could take it; and when the pool says that it
/// is idle, nothing that was accepted before is unfinished.
///
/// Invariant (holds whenever the pool's lock is free, and is verified in checked builds): for each queued task whose
/// submitter has a free slot, a worker is being started or was woken and has still to look for a task, except where a
/// start that was needed was refused.
/// Bound: between two shutdowns there are never more workers than processors times the most submitters that had tasks
/// at once. Workers that `TrimWorkers`, `limitWorkerCount` or `CkEvent::SetAll` has ended come on top until their threads
/// are gone. Idle workers do not end by themselves; `TrimWorkers` ends them.
///
/// Threads: every operation may be called from any thread. The pool has a lock, under which it calls `CkTask::onAdd` and
/// `doNotRun` and takes no other one. These hooks may add tasks. A thread that adds a task runs only that task's
/// hooks, destroys no other task, waits for no thread to end, and starts at most the one worker that the task needs.
/// Blocking: `WaitUntilIdle` and `ShutdownAndWait` up to a time-out in milliseconds; 0xFFFFFFFF without limit, 0 only
/// probes. A task that waits for the pool to be idle waits for itself, but a hook that is called under the lock is told
/// at once that the pool is not. `AddTask` waits until a thread that it starts
/// has begun.
/// Lifetime: made on first use, with one worker per processor. Whoever unloads the library calls `ShutdownAndWait`
/// first (see CkThreadPoolShutdown): workers that still run keep it loaded. A child that was made by `fork` after the
/// pool has no workers: there, every operation returns false at once and touches no lock.
/// Failure: `AddTask` raises `CkException` for a priority that does not exist, if it comes to a queue,
/// `CkExceptionOutOfMemory`, and what the task's hooks raise; the task has not been accepted then. A worker that
/// `CkEvent::SetAll` has ended is replaced when there is work for it.
///
/// | state          | by                                   | `AddTask`              |
/// |----------------|--------------------------------------|------------------------|
/// | open           | construction; end of a shutdown      | starts or queues       |
/// | closed         | `ShutdownAndWait`, while it stops    | false                  |
/// | closed for good| a worker that could not be stopped; `fork`, in the child | false |
class TARVO_API CkThreadPool : public CkSingleton<CkThreadPool>
{
public:
    enum ETaskPriority
    {
        eTaskPriorityLow = 0,
        eTaskPriorityNormal = 1,
        eTaskPriorityHigh = 2
    };

    /// What has become of a task.
    enum ESubmitResult
    {
        eSubmitAccepted,
        eSubmitAcceptedWithoutWorker, ///< It is queued; the worker that it needs could not be started.
        eSubmitDeclined,              ///< By its `doNotRun`; or there was no task.
        eSubmitClosed
    };

    /// How a shutdown has ended.
    enum EShutdownResult
    {
        eShutdownDone,
        eShutdownTimeout,  ///< The pool was not idle in time, or a hook called under its lock asks. Nothing has ended.
        eShutdownNoWorker, ///< Tasks are queued, and no worker could be started for them. Nothing has ended.
        eShutdownFailed,   ///< A worker could not be stopped, and the pool is closed for good; or the wait failed.
        eShutdownInChild   ///< The process was forked after the pool was made.
    };

    CkThreadPool(const CkThreadPool&) = delete;
    CkThreadPool& operator=(const CkThreadPool&) = delete;

    /// Starts or queues a task in the name of the calling thread. False, and the task is not accepted, when it is null,
    /// the pool is closed, or the task declines to run. False as well when a worker was needed and could not be
    /// started: then the task stays queued for the next worker that looks for work.
    bool AddTask(CkSmartPointer<CkTask, 1, unsigned int> task, ETaskPriority priority)
    {
        return Submit(std::move(task), priority) == eSubmitAccepted;
    }

    /// As `AddTask`, but tells the outcomes apart. A task that a hook of another one submits is accepted before the
    /// worker that it may need is started.
    ESubmitResult Submit(CkSmartPointer<CkTask, 1, unsigned int> task, ETaskPriority priority);

    /// Waits until no task is running or queued. Where tasks are queued and there is no worker, it tries to start one;
    /// false at once when that fails.
    bool WaitUntilIdle(unsigned int timeoutMs);

    /// Waits until no task is running or queued, and then ends all workers. False when the time was up before that, and
    /// nothing has ended. The next task starts a new worker.
    bool ShutdownAndWait(unsigned int timeoutMs) { return Shutdown(timeoutMs) == eShutdownDone; }

    /// As `ShutdownAndWait`, but tells the outcomes apart.
    EShutdownResult Shutdown(unsigned int timeoutMs);

    /// Ends idle workers, and waits for their threads to end, until there are at most `maxWorkers` or none is idle. Does
    /// not wait for tasks. Whether there are at most `maxWorkers` workers then.
    bool TrimWorkers(unsigned int maxWorkers);

protected:
    friend class CkSingleton<CkThreadPool>;
    friend struct CkThreadPoolPeer;

    CkThreadPool();
    ~CkThreadPool();

    /// Waits without limit until no task is running or queued, and then ends workers until there are at most
    /// `maxWorkers`.
    bool limitWorkerCount(unsigned int maxWorkers);

    /// The number of workers that exist or are being started. Takes no lock.
    unsigned int getWorkerCount() const noexcept;

private:
    friend class WorkerThread;

    using Task = CkSmartPointer<CkTask, 1, unsigned int>;

    struct TARVO_HIDDEN State;

    bool occupyWorker(Task& task, WorkerThread& worker) noexcept;
    void considerIdleWorker(WorkerThread& worker) noexcept;
    bool createWorkerThread() noexcept;
    void updateIdleState() noexcept;

    std::unique_ptr<State> m_state;
};

/// Ends the workers of the pool, if there is one, when it goes: for the scope in which an application uses tasks.
class CkThreadPoolShutdown
{
public:
    /// Where `result` is not null, it receives the outcome. It outlives the guard.
    explicit CkThreadPoolShutdown(unsigned int timeoutMs = 0xFFFFFFFF,
                                  CkThreadPool::EShutdownResult* result = nullptr) noexcept
        : m_timeoutMs(timeoutMs), m_result(result)
    {
    }

    CkThreadPoolShutdown(const CkThreadPoolShutdown&) = delete;
    CkThreadPoolShutdown& operator=(const CkThreadPoolShutdown&) = delete;

    /// Raises nothing: what the pool's lock raises counts as a failure.
    TARVO_API ~CkThreadPoolShutdown();

private:
    const unsigned int m_timeoutMs;
    CkThreadPool::EShutdownResult* const m_result;
};
