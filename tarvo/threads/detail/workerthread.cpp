#include <tarvo/threads/detail/workerthread.h>

#include <utility>

bool TaskMailbox::Put(CkSmartPointer<CkTask>& task)
{
    if (m_free.Wait(INFINITE) == CkEvent::eWaitFailed)
        return false;
    m_slot = std::move(task);
    m_isFilled.store(true, std::memory_order_release);
    // Where the event refuses, a taker whom others have woken may have come all the same.
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

void WorkerThread::onThreadStart()
{
    m_pool->considerIdleWorker(*this);
}

CkCheckReturn<bool, CkCheckReturnPolicyAssert> WorkerThread::processTasks()
{
    for (;;)
    {
        CkSmartPointer<CkTask> task = m_next ? std::move(m_next) : m_mailbox.Take();
        if (!task)
        {
            if (m_pool->endWorker(*this))
                return true;
            if (std::exchange(m_isToLook, false))
                m_pool->considerIdleWorker(*this);
            continue;
        }
        try
        {
            task->Run();
        }
        catch (...)
        {
            // What the task's own handler of exceptions raises reaches nobody.
        }
        task.Reset();
        m_pool->considerIdleWorker(*this);
    }
}
