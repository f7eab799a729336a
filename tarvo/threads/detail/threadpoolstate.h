#pragma once

#include <tarvo/threads/ckcriticalsection.h>
#include <tarvo/threads/ckevent.h>
#include <tarvo/threads/ckthreadpool.h>
#include <tarvo/threads/detail/backoff.h>
#include <tarvo/threads/detail/deadline.h>
#include <tarvo/threads/detail/scheduler.h>

#include <atomic>
#include <vector>

/// What the pool consists of. All but the lock and the reasons why it is closed is guarded by the lock.
struct CkThreadPool::State final : tarvo::detail::Scheduler::Wakeup
{
    /// Reasons why the pool takes no tasks; flags.
    enum Closed : unsigned int
    {
        stopping = 1, ///< A shutdown ends the workers.
        failed = 2,   ///< A worker could not be stopped.
        forked = 4    ///< The workers are in another process, and other threads may have held any lock.
    };

    class Guard;
    class DeferredRelease;

    State(CkThreadPool& owner, unsigned int slots) : pool(owner), scheduler(*this, slots) {}

    bool Deliver(tarvo::detail::ScheduledWorker& worker, Task& task) noexcept override;
    bool Wake(tarvo::detail::ScheduledWorker& worker) noexcept override;

    bool IsClosed() const noexcept { return closed.load(std::memory_order_acquire) != 0; }
    bool IsForked() const noexcept { return (closed.load(std::memory_order_acquire) & forked) != 0; }

    /// Called by a worker that was woken without a task; false when its thread is to end.
    bool ConsiderWokenWorker(WorkerThread& worker) noexcept;

    /// Gives the worker a task, or puts it to the idle ones. The lock is held.
    void Look(WorkerThread& worker) noexcept;

    EShutdownResult WaitUntilIdle(const tarvo::detail::Deadline& deadline);

    /// Ends idle workers until there are at most `maxWorkers` or none is idle; false when one of them cannot be reached.
    /// Leaves the lock, and runs `atEnd(complete)` under it when they have ended. The workers stay counted until then,
    /// so that the pool is not idle before.
    template <class AtEnd>
    bool StopWorkers(Guard& guard, unsigned int maxWorkers, AtEnd atEnd);

    CkThreadPool& pool;
    std::atomic<unsigned int> closed{0}; ///< Also read without the lock.

    // Every task touches these; they share as few cache lines as may be, which threads take from each other each time.
    alignas(64) CkCriticalSection lock{4000};
    tarvo::detail::Scheduler scheduler;
    bool idleEventSet = false;

    /// Tasks that hooks of other tasks gave to the pool in vain. The outermost guard of that thread releases them.
    std::vector<Task> deferred;

    CkEvent idleEvent; ///< Set when the pool is idle; `CkEvent::SetAll` may set it as well.

    /// Workers that are lost, whose threads have ended or are about to.
    tarvo::detail::IntrusiveList<tarvo::detail::ScheduledWorker> lost;

    unsigned int shutdowns = 0; ///< Under way.
};

/// Holds the pool's lock. The outermost guard of a thread restores the scheduler's invariant before it leaves the lock,
/// and afterwards starts the workers that are missing and releases the tasks that were deferred.
class CkThreadPool::State::Guard
{
public:
    /// Raises what the lock raises.
    explicit Guard(State& state);

    /// For a thread that cannot do without the lock: where the kernel refuses it, the thread tries again. Tasks that are
    /// deferred are left to `worker` if it has a task: it runs that first.
    Guard(State& state, tarvo::detail::BackOff& backOff, WorkerThread* worker = nullptr) noexcept;

    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() { Leave(); }

    /// Whether the thread has another guard around this one: a hook that is called under the lock uses the pool.
    bool IsNested() const noexcept { return m_state.lock.GetRecursionCount() > 1; }

    /// Leaves the lock; false when a worker that was missing could not be started. A second call does nothing.
    bool Leave() noexcept;

private:
    void enterAtLast() noexcept;
    void leaveLock() noexcept;

    State& m_state;
    WorkerThread* const m_worker = nullptr;
    bool m_left = false;
};

/// Keeps a task that a hook of another one gives to the pool from being released under the lock, if it comes to that:
/// then the outermost guard of the thread releases it.
class CkThreadPool::State::DeferredRelease
{
public:
    DeferredRelease(State& state, const Guard& guard, Task& task) noexcept
        : m_state(state), m_task(task), m_isNested(guard.IsNested())
    {
    }

    DeferredRelease(const DeferredRelease&) = delete;
    DeferredRelease& operator=(const DeferredRelease&) = delete;
    ~DeferredRelease();

private:
    State& m_state;
    Task& m_task;
    const bool m_isNested;
};
