#pragma once

#include <tarvo/threads/ckthread.h>
#include <tarvo/threads/ckthreadpool.h>

#include <atomic>

/// Hands tasks from the pool to a worker, one at a time.
///
/// Threads: one that puts, under the pool's lock, and one that takes. Whatever sets the events from outside, a task
/// that was put is taken once.
class TaskMailbox
{
public:
    TaskMailbox() noexcept { m_free.Set(); }
    TaskMailbox(const TaskMailbox&) = delete;
    TaskMailbox& operator=(const TaskMailbox&) = delete;
    /// Delivers a task, once the last delivery was taken. False, and the task is not taken over, when the events
    /// refuse.
    bool Put(CkSmartPointer<CkTask>& task);

    /// Delivers no task, but the news that the pool wants something of the worker. False when the event refuses.
    bool Notify() noexcept { return m_full.Set(); }

    /// Waits for a delivery; null for one without a task.
    CkSmartPointer<CkTask> Take();

private:
    CkEvent m_free{false}; ///< The slot may be filled.
    CkEvent m_full{false}; ///< There is a delivery.
    CkSmartPointer<CkTask> m_slot;

    /// Whose the slot is: the taker's when set. The events alone cannot tell, as anybody may set them.
    std::atomic<bool> m_isFilled{false};
};

/// A thread of the pool.
///
/// Threads: what stands under "pool" belongs to the pool's lock, the rest to the worker itself.
/// Lifetime: the pool's, which deletes it when its thread has ended.
class WorkerThread final : public CkThread<WorkerThread, CkThreadPolicyMFC>
{
public:
    explicit WorkerThread(CkThreadPool* pool);
    ~WorkerThread() override;

protected:
    void onThreadStart() override;

private:
    friend class CkThreadPool;
    friend struct WorkerThreadPeer;

    enum State
    {
        busy,    ///< Looking for work as well.
        looking, ///< Woken from being idle to do so.
        idle,
        leaving
    };

    CkCheckReturn<bool, CkCheckReturnPolicyAssert> processTasks();

    CkThreadPool* const m_pool;
    CkSmartPointer<CkTask> m_next; ///< What the worker has found for itself.
    bool m_isToLook = false;
    unsigned int m_patience = 0; ///< With others who have the pool's lock, in pauses of the processor.
    TaskMailbox m_mailbox;
    std::atomic<bool> m_stop{false}; ///< Somebody waits for the thread's end; set under the pool's lock.

    // pool

    State m_state = busy;
    CkThreadPool::SThreadData* m_data = nullptr; ///< Of the submitter whose task it has; null without one.
    WorkerThread* m_nextWorker = nullptr;        ///< In the list that it is in.
};
