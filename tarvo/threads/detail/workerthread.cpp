#include <tarvo/threads/detail/workerthread.h>

#include <tarvo/platform/framework/cexception.h>
#include <tarvo/threads/detail/threadpoolstate.h>

#include <utility>

bool TaskMailbox::Put(CkSmartPointer<CkTask>& task)
{
    if (m_free.Wait(INFINITE) == CkEvent::eWaitFailed)
        return false;
    m_slot = std::move(task);
    m_isFilled.store(true, std::memory_order_release);
    // Where the event refuses, a taker that `CkEvent::SetAll` has woken may have come all the same.
    if (m_full.Set() || !m_isFilled.exchange(false, std::memory_order_acquire))
        return true;
    task = std::move(m_slot);
    return false;
}

CkSmartPointer<CkTask> TaskMailbox::Take()
{
    CkSmartPointer<CkTask> task;
    if (m_full.Wait(INFINITE) == CkEvent::eWaitFailed)
        return task;
    if (m_isFilled.load(std::memory_order_acquire) && m_isFilled.exchange(false, std::memory_order_acquire))
        task = std::move(m_slot);
    m_free.Set();
    return task;
}

WorkerThread::WorkerThread(CkThreadPool* pool)
    : CkThread(this, &WorkerThread::processTasks, CK_T("WorkerThread")), m_pool(pool)
{
}

WorkerThread::~WorkerThread() = default;

CkCheckReturn<bool, CkCheckReturnPolicyAssert> WorkerThread::processTasks()
{
    m_id = GetCurrentThreadId();
    m_pool->considerIdleWorker(*this);
    while (waitForTask())
    {
        runTask();
        m_pool->considerIdleWorker(*this);
    }
    return true;
}

/// Waits until there is a task; false when the thread is to end.
bool WorkerThread::waitForTask() noexcept
{
    CkThreadPool::State& pool = *m_pool->m_state;
    while (!m_task)
    {
        // In the child of a fork there is no thread left that would wake this one.
        if (pool.IsForked())
            return false;
        m_task = m_mailbox.Take();
        if (!m_task && !pool.ConsiderWokenWorker(*this))
            return false;
    }
    return true;
}

/// Runs and releases the task, which holds its slot all the time: its hooks and its destructor may wait for other tasks.
void WorkerThread::runTask() noexcept
{
    const std::vector<CkSmartPointer<CkTask>> deferred = std::move(m_deferred);
    const CkSmartPointer<CkTask> task = std::move(m_task);
    if (std::exchange(m_isDeclined, false))
        return;
    try
    {
        task->Run();
    }
    catch (...)
    {
        // What the task's own handler of exceptions raises reaches no caller.
        tarvo::framework::discardException();
    }
}
