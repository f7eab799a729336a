#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/cklist.h>
#include <tarvo/containers/ckmap.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/threads/cktask.h>
#include <tarvo/threads/detail/intrusivelist.h>

#include <atomic>

namespace tarvo::detail
{
struct Submitter;

/// What the scheduler knows of a worker.
///
/// | state   | meaning                                              | left by                                  |
/// |---------|------------------------------------------------------|------------------------------------------|
/// | pending | is being started or was woken, and has still to look | `Look`: running or idle                  |
/// | running | holds a slot: runs, asks or releases a task          | `Look`: running or idle                  |
/// | idle    | sleeps; nothing could start when it looked           | a task: running; a wake-up: pending      |
/// | stopped | was taken from the idle ones to be ended             | the end of its thread                    |
/// | lost    | cannot be woken any more, or was not woken by the pool | the end of its thread                  |
struct ScheduledWorker : IntrusiveLinks<ScheduledWorker>
{
    enum class State : unsigned char
    {
        pending,
        running,
        idle,
        stopped,
        lost
    };

    State state = State::pending;
    Submitter* submitter = nullptr; ///< Whose slot the worker holds; null unless it is running.
};

/// The hooks of a task that the pool calls under its lock.
struct TaskHooks
{
    static void Add(CkTask& task) { task.onAdd(); }
    static bool Declines(const CkTask& task) { return task.doNotRun(); }
};

/// The decisions of the thread pool: which task runs next, which worker runs it, and whether another worker is needed.
/// It has no lock, no thread and no clock, so that a test can run it through every order of events.
///
/// Each submitter has as many *slots* as the machine has processors: a task that runs takes one, and so do a task that
/// is asked whether it runs at all, and one that has declined until it is released. A queued task can *start* when its
/// submitter has a free slot.
///
/// Invariant (holds whenever the pool's lock is free): the pending workers are at least as many as the queued tasks
/// that can start, but for those for which a worker was needed and could not be started.
/// Bound: a worker is started only when there are fewer than slots times submitters with tasks. For when none is idle,
/// each worker is pending or holds a slot; pending ones are fewer than tasks that can start; and those need free slots.
/// Workers that are stopped or lost come on top until their threads have ended.
///
/// Threads: one at a time, which holds the pool's lock.
/// Failure: memory that is missing is reported as a result. What the hooks of a task raise leaves `Add`, and the task
/// was not added.
class TARVO_API Scheduler
{
public:
    using Task = CkSmartPointer<CkTask, 1, unsigned int>;
    using Worker = ScheduledWorker;

    /// How the scheduler reaches a worker that is idle.
    class Wakeup
    {
    public:
        /// Hands the worker a task; false, and the task stays where it is, when the worker cannot be reached.
        virtual bool Deliver(Worker& worker, Task& task) noexcept = 0;

        /// Makes the worker look for a task; false when it cannot be reached.
        virtual bool Wake(Worker& worker) noexcept = 0;

    protected:
        ~Wakeup() = default;
    };

    enum class Added
    {
        accepted,
        declined,
        noSuchPriority,
        noMemory
    };

    /// What a worker does that was woken and found no task delivered.
    enum class Woken
    {
        look,
        take, ///< A task has been delivered meanwhile.
        end,
    };

    /// `slots` is positive. As many workers are counted as pending, which the caller starts.
    Scheduler(Wakeup& wakeup, unsigned int slots);
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler();

    /// Gives the task of the submitter `id` to an idle worker, if that submitter has a free slot and nothing queued before it, or else queues
    /// it, and then takes it over. Calls `onAdd`, and `doNotRun` in the first case; both may add tasks themselves.
    Added Add(Task& task, ULONG id, unsigned int priority);

    /// Called by a worker that is pending or whose task has been released. The worker's next task: of the same submitter, else
    /// of the one that has waited longest with a task that can start. Null, and the worker is idle, when none can.
    Task Look(Worker& worker) noexcept;

    /// Asks a task; one that raises declines. The task may add others, so whoever asks holds a slot for it.
    static bool Declines(const CkTask& task) noexcept;

    /// Restores the invariant, from the idle workers first. To be called last before the lock is left. The number of
    /// workers that are missing then: they are counted as pending, and the caller starts them.
    unsigned int Provide() noexcept;

    /// A worker that was counted could not be started. The task that needed it waits for the next worker that looks;
    /// then a start is tried again. False when there is no worker left that will look.
    bool StartFailed() noexcept;

    /// Has `Provide` try again to start a worker where there is none that will look.
    void RetryStart() noexcept;

    /// Called by a worker that was woken without a task. One that is idle was not woken by the pool (but by
    /// `CkEvent::SetAll`); it ends, and is not counted any more.
    Woken WakeUp(Worker& worker) noexcept;

    /// Takes an idle worker to be stopped; null when none is idle. It stays counted until one of the next two.
    Worker* TakeToStop() noexcept;
    void Stopped(unsigned int count) noexcept;
    void NotStopped(Worker& worker) noexcept;

    /// Every worker is idle, and no task is running or queued.
    bool IsIdle() const noexcept { return m_idle.GetCount() == GetWorkerCount() && m_submitters.IsEmpty(); }

    /// The workers that exist or are being started. May be called without the lock.
    unsigned int GetWorkerCount() const noexcept { return m_workerCount.load(std::memory_order_relaxed); }

    /// Those of them that are not being stopped.
    unsigned int GetLastingCount() const noexcept { return GetWorkerCount() - m_stopped; }

    unsigned int GetSubmitterCount() const noexcept { return m_submitters.GetCount(); }

private:
    friend struct SchedulerPeer;

    using TaskQueue = CkList<Task, 17, unsigned int>;
    using TaskNodePool = TaskQueue::PlexManager;
    friend struct Submitter;

    bool declinesInSlot(const CkTask& task, Submitter& submitter);
    bool deliver(Task& task, Submitter& submitter) noexcept;
    Added queue(Task& task, Submitter& submitter, unsigned int priority);
    Submitter* findOrMake(ULONG id);
    void removeIfUnused(Submitter& submitter) noexcept;
    void changeSlots(Submitter& submitter, int change) noexcept;
    unsigned int countStartable(const Submitter& submitter) const noexcept;
    void update(Submitter& submitter) noexcept;
    void lose(Worker& worker) noexcept;
    void countWorkers(int change) noexcept;
    void verify() const noexcept;

    Wakeup& m_wakeup;
    const unsigned int m_slots;
    unsigned int m_startable = 0; ///< Queued tasks that can start.
    unsigned int m_pending = 0;
    unsigned int m_refused = 0; ///< Of the tasks that can start, those whose worker could not be started.
    unsigned int m_stopped = 0;
    std::atomic<unsigned int> m_workerCount;
    IntrusiveList<Worker> m_idle;
    IntrusiveList<Submitter> m_waiting; ///< Those with tasks that can start; the one that has waited longest is first.
    CkSmartPointer<TaskNodePool> m_nodes;
    CkMap<ULONG, Submitter, 0, unsigned int, CkHashKey<ULONG>> m_submitters{40};
    unsigned int m_mostSubmitters = 1; ///< At once, since there were no workers last.
};

/// A thread that has tasks in the pool, running or queued. `Scheduler::update` follows each change of the counts.
struct Submitter : IntrusiveLinks<Submitter>
{
    ULONG id = 0;
    unsigned int running = 0;         ///< Slots that are taken.
    unsigned int queued = 0;          ///< Tasks in all queues.
    unsigned int startable = 0;       ///< Queued tasks that can start, as counted last.
    unsigned int prioritiesInUse = 0; ///< Bit `p` is set when the queue of priority `p` has tasks.
    Scheduler::TaskQueue queues[3]{Scheduler::TaskQueue(nullptr), Scheduler::TaskQueue(nullptr),
                                   Scheduler::TaskQueue(nullptr)}; ///< By priority.
};
} // namespace tarvo::detail
