#pragma once

#include <tarvo/threads/ckthread.h>
#include <tarvo/threads/ckthreadpool.h>
#include <tarvo/threads/detail/backoff.h>
#include <tarvo/threads/detail/scheduler.h>

#include <atomic>
#include <vector>

/// Hands tasks from the pool to a worker, one at a time.
///
/// Threads: one that puts, under the pool's lock, and one that takes. A task that was put is taken once, even where
/// `CkEvent::SetAll` sets the events.
class TaskMailbox
{
public:
    TaskMailbox() noexcept { m_free.Set(); }
    TaskMailbox(const TaskMailbox&) = delete;
    TaskMailbox& operator=(const TaskMailbox&) = delete;

    /// Delivers a task, once the last delivery was taken. False, and the task is not taken over, when the events
    /// refuse.
    bool Put(CkSmartPointer<CkTask>& task);

    /// Wakes the worker without a task. False when the event refuses.
    bool Notify() noexcept { return m_full.Set(); }

    /// Waits for a delivery; null when the worker was woken without one.
    CkSmartPointer<CkTask> Take();

private:
    CkEvent m_free{false}; ///< The slot may be filled.
    CkEvent m_full{false}; ///< There is a delivery.
    CkSmartPointer<CkTask> m_slot;

    /// The slot belongs to the taker while this is set. The events cannot tell, as `CkEvent::SetAll` sets them, too.
    std::atomic<bool> m_isFilled{false};
};

/// A thread of the pool.
///
/// Threads: what stands in the base class ScheduledWorker belongs to the pool's lock, the rest to the worker itself.
/// Lifetime: the pool deletes it when its thread has ended.
class WorkerThread final : public CkThread<WorkerThread, CkThreadPolicyMFC>, public tarvo::detail::ScheduledWorker
{
public:
    explicit WorkerThread(CkThreadPool* pool);
    ~WorkerThread() override;

    bool IsCurrentThread() const noexcept { return m_id == GetCurrentThreadId(); }

private:
    friend class CkThreadPool;
    friend struct WorkerThreadPeer;

    CkCheckReturn<bool, CkCheckReturnPolicyAssert> processTasks();
    bool waitForTask() noexcept;
    void runTask() noexcept;

    CkThreadPool* const m_pool;
    CkSmartPointer<CkTask> m_task;                  ///< Found or delivered, and still to be run or released.
    bool m_isDeclined = false;                      ///< The task is only to be released.
    std::vector<CkSmartPointer<CkTask>> m_deferred; ///< What the task has submitted in vain; released after it.
    ULONG m_id = 0;                                 ///< Set by the thread.
    tarvo::detail::BackOff m_backOff;
    TaskMailbox m_mailbox;
};
