#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/cklist.h>
#include <tarvo/containers/ckmap.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/threads/ckcriticalsection.h>
#include <tarvo/threads/ckevent.h>
#include <tarvo/threads/cktask.h>

#include <atomic>

class WorkerThread;
class CkThreadPool;
extern template class TARVO_API CkSingleton<CkThreadPool>;

/// The threads of the process that run tasks, fair between the threads that submit them.
///
/// Tasks wait in a queue per submitting thread and priority. Of each submitter, as many run at once as there are
/// processors; the pool starts a new worker whenever a submitter below that limit has a task and no worker is idle. A
/// worker that has finished a task takes the next one of the same submitter, else of the submitter that has waited
/// longest for a place, else of any. Priorities order the tasks of one submitter, equal ones run in the order in which
/// they came.
///
/// No task that was accepted is lost, runs twice, or waits while a worker could take it; and when the pool says that it
/// is idle, nothing that was accepted before is unfinished.
///
/// Threads: every operation may be called from any thread. Takes its lock, and under it only what `CkTask::onAdd` and
/// `doNotRun` take, which are called under it. Those may add tasks. References to tasks are released, and workers
/// started, when the lock has been left.
/// Blocking: `WaitUntilIdle` and `ShutdownAndWait` up to a time-out in milliseconds; 0xFFFFFFFF without limit, 0 only
/// probes. A task that waits for the pool to be idle waits for itself. `AddTask` waits while a worker is started.
/// Lifetime: made on first use, with one worker per processor. Who unloads the library calls `ShutdownAndWait` first
/// (see CkThreadPoolShutdown): workers that still run keep it loaded.
/// Failure: `AddTask` raises `CkException` for a priority that does not exist, if it comes to a queue,
/// `CkExceptionOutOfMemory`, and what the task's hooks raise; the task has not been accepted then. A worker that
/// `CkEvent::SetAll` has ended is replaced when there is work for it.
///
/// | state          | by                                   | `AddTask`              |
/// |----------------|--------------------------------------|------------------------|
/// | open           | construction; end of a shutdown      | starts or queues       |
/// | closed         | `ShutdownAndWait`, while it stops    | false                  |
/// | closed for good| a worker that could not be stopped   | false                  |
class TARVO_API CkThreadPool : public CkSingleton<CkThreadPool>
{
public:
    enum ETaskPriority
    {
        eTaskPriorityLow = 0,
        eTaskPriorityNormal = 1,
        eTaskPriorityHigh = 2
    };

    CkThreadPool(const CkThreadPool&) = delete;
    CkThreadPool& operator=(const CkThreadPool&) = delete;

    /// Starts or queues a task in the name of the calling thread. False, and the task is not accepted, when it is null,
    /// the pool is closed, or the task declines to run. False as well when a worker was needed and could not be
    /// started: then the task stays queued for the next worker that looks for work.
    bool AddTask(CkSmartPointer<CkTask, 1, unsigned int> task, ETaskPriority priority);

    /// Waits until no task is running or queued.
    bool WaitUntilIdle(unsigned int timeoutMs);

    /// Waits until no task is running or queued, and then ends all workers. False when the time was up before that, and
    /// nothing has ended. The next task starts a new worker.
    bool ShutdownAndWait(unsigned int timeoutMs);

protected:
    friend class CkSingleton<CkThreadPool>;
    friend struct CkThreadPoolPeer;

    CkThreadPool();
    ~CkThreadPool();

    /// Waits without limit until no task is running or queued, and then ends workers until there are at most
    /// `maxWorkers`.
    bool limitWorkerCount(unsigned int maxWorkers);

    /// The number of workers that exist or are being started.
    unsigned int getWorkerCount() const noexcept { return m_workerCount.load(std::memory_order_relaxed); }

private:
    friend class WorkerThread;

    using Task = CkSmartPointer<CkTask, 1, unsigned int>;

    struct STaskEntry
    {
        Task task;
    };

    using TaskQueue = CkList<STaskEntry, 17, unsigned int>;
    using TaskNodePool = TaskQueue::PlexManager;

    /// What the pool knows of a submitting thread. Exists while it has tasks, running or queued.
    struct SThreadData
    {
        void SetPool(const CkSmartPointer<TaskNodePool>& pool);
        bool HasTasks() const noexcept { return prioritiesInUse != 0; }

        /// Takes the task over; false, and it is left alone, when there is no memory.
        bool TryAdd(Task& task, unsigned int priority);

        /// Takes the first task of the highest priority; null when there is none.
        Task TakeFirst();

        ULONG submitter = 0;
        unsigned int running = 0;         ///< Handed to workers and not yet finished, or asked whether they run at all.
        unsigned int prioritiesInUse = 0; ///< Bit `p` is set when the queue of priority `p` has tasks.
        TaskQueue queues[3]{TaskQueue(nullptr), TaskQueue(nullptr), TaskQueue(nullptr)}; ///< By priority.
    };

    /// Workers, linked through themselves, so that to be put here needs no memory.
    class WorkerList
    {
    public:
        unsigned int GetCount() const noexcept { return m_count; }
        void AddHead(WorkerThread& worker) noexcept;
        void AddTail(WorkerThread& worker) noexcept;
        WorkerThread* TakeHead() noexcept;
        void Remove(WorkerThread& worker) noexcept;

    private:
        WorkerThread* m_head = nullptr;
        WorkerThread* m_tail = nullptr;
        unsigned int m_count = 0;
    };

    /// A stay under the lock, which may be within another one of the same thread.
    class Stay;

    /// What kind of worker stays.
    enum class Worker
    {
        none,
        working,
        ending
    };

    /// What has become of a task.
    enum class Added
    {
        yes,
        queued, ///< Or is to be.
        grow,   ///< Queued, and a worker is to be started for it.
        no,
        badPriority,
        noMemory
    };

    /// What a worker that looks for work has found.
    enum class Looked
    {
        nothing,
        served,
        again ///< There may be something: the submitters have changed.
    };

    // These take the task over where it was accepted.

    Added add(Task& task, ETaskPriority priority);
    Added startNow(Task& task, SThreadData& data);
    bool occupyWorker(Task& task, SThreadData& data);
    Added queue(Task& task, SThreadData& data, ETaskPriority priority);

    void giveUpPlace(SThreadData& data) noexcept;
    void callForWorker(const SThreadData& data) noexcept;
    void wantWorker() noexcept;

    bool isWorkerComing() const noexcept;
    bool arePromisesBroken() const noexcept;
    void keepPromises() noexcept;
    const SThreadData* findStartable() const noexcept;
    bool wakeWorker() noexcept;
    void loseWorker(WorkerThread& worker) noexcept;

    void considerIdleWorker(WorkerThread& worker) noexcept;
    Looked serveWaiting(WorkerThread& worker);
    Looked serveAnyone(WorkerThread& worker);
    Looked serve(WorkerThread& worker, SThreadData& data, bool capped);
    static bool declines(const CkTask& task) noexcept;
    void releaseLater(Task task) noexcept;

    /// Called by a worker that found an empty delivery; whether it is to end.
    bool endWorker(WorkerThread& worker) noexcept;

    SThreadData* findOrMakeData(ULONG submitter);
    void removeIfUnused(SThreadData& data) noexcept;
    bool hasPlace(const SThreadData& data) const noexcept { return data.running < m_runningCap; }

    static void reap(WorkerList& workers) noexcept;

    bool isIdle() const noexcept;
    void updateIdleState() noexcept;

    /// Starts a worker that has been counted; takes it off the count when that fails.
    bool createWorkerThread() noexcept;

    bool stopWorkers(Stay& stay, unsigned int maxWorkers);

    // What every task touches comes first, on as few cache lines as may be: submitters and workers take them from each
    // other each time.

    alignas(64) CkCriticalSection m_lock{4000}; ///< Guards what follows.
    WorkerList m_idleWorkers;
    unsigned int m_queuedTasks = 0;
    unsigned int m_promised = 0;                ///< Tasks that have counted on one of these.
    unsigned int m_trusted = 0;                 ///< Of the lookers, how many had come before the last of those.
    std::atomic<unsigned int> m_lookers{0};     ///< Workers that have come to look for work, and wait for the lock.
    unsigned int m_workersToStart = 0;          ///< Counted already.
    std::atomic<unsigned int> m_workerCount{0}; ///< Also read without the lock.
    const unsigned int m_runningCap;
    CkSmartPointer<TaskNodePool> m_taskNodePool;
    TaskQueue m_releasedTasks;         ///< To be released when the lock has been left.
    std::atomic<bool> m_closed{false}; ///< Also read before the lock is taken.
    bool m_idleEventSet = false;
    bool m_failed = false; ///< A worker could not be stopped.

    CkEvent m_idleEvent;       ///< Set when the pool is idle, but others may set it as well.
    WorkerList m_endedWorkers; ///< Off the count; to be deleted by whoever comes next.
    CkList<ULONG, 9, unsigned int> m_waitingSubmitters{40};
    CkMap<ULONG, SThreadData, 0, unsigned int, CkHashKey<ULONG>> m_threadData{40};
    unsigned int m_threadDataVersion = 0; ///< Changes with the keys of the map.
    unsigned int m_stopping = 0;          ///< Shutdowns under way.
};

/// Ends the workers of the pool, if there is one, when it goes: for the scope in which an application uses tasks.
class CkThreadPoolShutdown
{
public:
    explicit CkThreadPoolShutdown(unsigned int timeoutMs = 0xFFFFFFFF) noexcept : m_timeoutMs(timeoutMs) {}
    CkThreadPoolShutdown(const CkThreadPoolShutdown&) = delete;
    CkThreadPoolShutdown& operator=(const CkThreadPoolShutdown&) = delete;

    ~CkThreadPoolShutdown()
    {
        if (CkThreadPool* const pool = CkThreadPool::FindInstance())
            pool->ShutdownAndWait(m_timeoutMs);
    }

private:
    const unsigned int m_timeoutMs;
};
