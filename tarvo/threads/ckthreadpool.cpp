#include <tarvo/threads/ckthreadpool.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/kernel/fork.h>
#include <tarvo/system/ckmachinecapabilities.h>
#include <tarvo/threads/detail/lockorder.h>
#include <tarvo/threads/detail/threadpoolstate.h>
#include <tarvo/threads/detail/workerthread.h>

#include <thread>

template class CkSingleton<CkThreadPool>;

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\threads\\ckthreadpool");
constexpr unsigned int lineBadPriority = 10;
constexpr unsigned int lineOutOfMemory = 20;

using tarvo::detail::Deadline;
using tarvo::detail::LockOrder;
using tarvo::detail::ScheduledWorker;
using tarvo::detail::Scheduler;
using WorkerList = tarvo::detail::IntrusiveList<ScheduledWorker>;
constexpr auto lockRank = tarvo::detail::LockRank::threadPool;

WorkerThread& threadOf(ScheduledWorker& worker) noexcept
{
    return static_cast<WorkerThread&>(worker);
}

/// Waits for the threads of the workers to end and deletes those that have ended in time. The rest stays in the list,
/// and so does the worker whose thread calls this as it ends.
void reap(WorkerList& workers, unsigned int timeoutMs)
{
    for (unsigned int left = workers.GetCount(); left != 0; --left)
    {
        WorkerThread& worker = threadOf(*workers.TakeHead());
        if (!worker.IsCurrentThread() && worker.WaitUntilTerminate(timeoutMs).GetValue())
            delete &worker;
        else
            workers.AddTail(worker);
    }
}
} // namespace

CkThreadPool::State::Guard::Guard(State& state) : m_state(state)
{
    LockOrder::Check(lockRank);
    m_state.lock.Enter();
    LockOrder::Entered(lockRank);
}

CkThreadPool::State::Guard::Guard(State& state, tarvo::detail::BackOff& backOff, WorkerThread* worker) noexcept
    : m_state(state), m_worker(worker)
{
    if (!backOff.Enter([this] { return m_state.lock.TryEnter(); }))
        enterAtLast();
    LockOrder::Entered(lockRank);
}

bool CkThreadPool::State::Guard::Leave() noexcept
{
    if (std::exchange(m_left, true))
        return true;
    std::vector<Task> deferred; // Released last, when this returns.
    unsigned int missing = 0;
    if (!IsNested())
    {
        missing = m_state.scheduler.Provide();
        m_state.pool.updateIdleState();
        deferred.swap(m_state.deferred);
        if (m_worker != nullptr && m_worker->m_task)
            m_worker->m_deferred.swap(deferred);
    }
    leaveLock();
    bool started = true;
    for (; missing != 0; --missing)
        started = m_state.pool.createWorkerThread() && started;
    return started;
}

void CkThreadPool::State::Guard::enterAtLast() noexcept
{
    LockOrder::Check(lockRank);
    for (;; std::this_thread::yield())
    {
        try
        {
            m_state.lock.Enter();
            return;
        }
        catch (...)
        {
            tarvo::framework::discardException();
        }
    }
}

void CkThreadPool::State::Guard::leaveLock() noexcept
{
    LockOrder::Left(lockRank);
    try
    {
        m_state.lock.Leave();
    }
    catch (...)
    {
        // The lock is free; a thread that waits for it looks again by itself.
        tarvo::framework::discardException();
    }
}

/// Where there is no memory to note the task, it is released under the lock.
CkThreadPool::State::DeferredRelease::~DeferredRelease()
{
    if (!m_isNested || !m_task)
        return;
    try
    {
        m_state.deferred.push_back(std::move(m_task));
    }
    catch (...)
    {
        tarvo::framework::discardException();
    }
}

bool CkThreadPool::State::Deliver(ScheduledWorker& worker, Task& task) noexcept
{
    return pool.occupyWorker(task, threadOf(worker));
}

bool CkThreadPool::State::Wake(ScheduledWorker& worker) noexcept
{
    return threadOf(worker).m_mailbox.Notify();
}

bool CkThreadPool::State::ConsiderWokenWorker(WorkerThread& worker) noexcept
{
    const Guard guard(*this, worker.m_backOff, &worker);
    const Scheduler::Woken woken = scheduler.WakeUp(worker);
    if (woken == Scheduler::Woken::look)
        Look(worker);
    else if (worker.state == ScheduledWorker::State::lost)
        lost.AddTail(worker);
    return woken != Scheduler::Woken::end;
}

void CkThreadPool::State::Look(WorkerThread& worker) noexcept
{
    worker.m_task = scheduler.Look(worker);
    if (worker.m_task)
        worker.m_isDeclined = Scheduler::Declines(*worker.m_task);
    else if (!lost.IsEmpty())
        reap(lost, 0);
}

CkThreadPool::EShutdownResult CkThreadPool::State::WaitUntilIdle(const Deadline& deadline)
{
    while (!IsForked())
    {
        Guard guard(*this);
        // A hook that is called under the lock would wait for itself.
        if (guard.IsNested())
            return eShutdownTimeout;
        if (scheduler.IsIdle())
            return eShutdownDone;
        scheduler.RetryStart();
        // `CkEvent::SetAll` may have set the event of a pool that is not idle.
        idleEvent.Reset();
        idleEventSet = false;
        if (!guard.Leave())
            return eShutdownNoWorker;
        switch (idleEvent.Wait(deadline.GetRemaining()))
        {
        case CkEvent::eWaitSignaled: break;
        case CkEvent::eWaitTimeout: return eShutdownTimeout;
        default: return eShutdownFailed;
        }
    }
    return eShutdownInChild;
}

template <class AtEnd>
bool CkThreadPool::State::StopWorkers(Guard& guard, unsigned int maxWorkers, AtEnd atEnd)
{
    WorkerList lostBefore = std::exchange(lost, {});
    WorkerList stopped;
    WorkerList unreachable;
    for (unsigned int lasting = scheduler.GetLastingCount(); lasting > maxWorkers; --lasting)
    {
        ScheduledWorker* const worker = scheduler.TakeToStop();
        if (worker == nullptr)
            break;
        (Wake(*worker) ? stopped : unreachable).AddTail(*worker);
    }
    const unsigned int count = stopped.GetCount();
    const bool complete = unreachable.IsEmpty();
    while (ScheduledWorker* const worker = unreachable.TakeHead())
        scheduler.NotStopped(*worker);
    guard.Leave();

    reap(lostBefore, INFINITE);
    reap(stopped, INFINITE);
    tarvo::detail::BackOff backOff;
    const Guard again(*this, backOff);
    while (ScheduledWorker* const worker = lostBefore.TakeHead())
        lost.AddTail(*worker);
    scheduler.Stopped(count);
    atEnd(complete);
    return complete;
}

CkThreadPool::CkThreadPool() : m_state(std::make_unique<State>(*this, CkMachineCapabilities::GetCPUCount()))
{
    static const bool closedByFork = tarvo::kernel::callInForkedChild(
        []
        {
            if (const CkThreadPool* const pool = FindInstance())
                pool->m_state->closed.fetch_or(State::forked, std::memory_order_release);
        });
    static_cast<void>(closedByFork);
    for (unsigned int i = getWorkerCount(); i != 0; --i)
        createWorkerThread();
}

CkThreadPool::~CkThreadPool()
{
    // In the child of a fork there are no threads to wait for, and other locks may be held for ever.
    if (m_state->IsForked())
        static_cast<void>(m_state.release());
    else
        reap(m_state->lost, INFINITE);
}

CkThreadPool::ESubmitResult CkThreadPool::Submit(Task task, ETaskPriority priority)
{
    if (m_state->IsClosed())
        return eSubmitClosed;
    if (!task)
        return eSubmitDeclined;
    Scheduler::Added added;
    bool started;
    {
        State::Guard guard(*m_state);
        const State::DeferredRelease release(*m_state, guard, task);
        if (m_state->IsClosed())
            return eSubmitClosed;
        added = m_state->scheduler.Add(task, GetCurrentThreadId(), priority);
        started = guard.Leave();
    }
    switch (added)
    {
    case Scheduler::Added::accepted: return started ? eSubmitAccepted : eSubmitAcceptedWithoutWorker;
    case Scheduler::Added::declined: return eSubmitDeclined;
    case Scheduler::Added::noSuchPriority: throw CkException(source, lineBadPriority);
    case Scheduler::Added::noMemory: break;
    }
    throw CkExceptionOutOfMemory(source, lineOutOfMemory);
}

bool CkThreadPool::WaitUntilIdle(unsigned int timeoutMs)
{
    return !m_state->IsForked() && m_state->WaitUntilIdle(Deadline(timeoutMs)) == eShutdownDone;
}

CkThreadPool::EShutdownResult CkThreadPool::Shutdown(unsigned int timeoutMs)
{
    if (m_state->IsForked())
        return eShutdownInChild;
    const Deadline deadline(timeoutMs);
    for (;;)
    {
        const EShutdownResult waited = m_state->WaitUntilIdle(deadline);
        if (waited != eShutdownDone)
            return waited;
        State::Guard guard(*m_state);
        if (!m_state->scheduler.IsIdle())
            continue;
        if (getWorkerCount() == 0 && m_state->lost.IsEmpty())
            return eShutdownDone;
        m_state->closed.fetch_or(State::stopping, std::memory_order_release);
        ++m_state->shutdowns;
        // A thread that waits for the pool to be idle finds it open again.
        const auto open = [this](bool complete)
        {
            if (!complete)
                m_state->closed.fetch_or(State::failed, std::memory_order_release);
            if (--m_state->shutdowns == 0)
                m_state->closed.fetch_and(~State::stopping, std::memory_order_release);
        };
        return m_state->StopWorkers(guard, 0, open) ? eShutdownDone : eShutdownFailed;
    }
}

bool CkThreadPool::TrimWorkers(unsigned int maxWorkers)
{
    if (m_state->IsForked())
        return false;
    State::Guard guard(*m_state);
    // A hook of a task, which is called under the lock, cannot wait for threads that need it.
    if (!guard.IsNested())
        m_state->StopWorkers(guard, maxWorkers, [](bool) {});
    return getWorkerCount() <= maxWorkers;
}

bool CkThreadPool::limitWorkerCount(unsigned int maxWorkers)
{
    while (WaitUntilIdle(INFINITE))
    {
        State::Guard guard(*m_state);
        if (m_state->scheduler.IsIdle())
            return m_state->StopWorkers(guard, maxWorkers, [](bool) {});
    }
    return false;
}

unsigned int CkThreadPool::getWorkerCount() const noexcept
{
    return m_state->scheduler.GetWorkerCount();
}

/// Hands the task to a worker that was idle; false, and the task stays where it is, when the worker cannot be reached.
bool CkThreadPool::occupyWorker(Task& task, WorkerThread& worker) noexcept
{
    return worker.m_mailbox.Put(task);
}

/// Called by a worker that has begun, or has released its task: gives it the next one, or puts it to the idle ones.
void CkThreadPool::considerIdleWorker(WorkerThread& worker) noexcept
{
    if (m_state->IsForked())
        return;
    const State::Guard guard(*m_state, worker.m_backOff, &worker);
    m_state->Look(worker);
}

/// Starts a worker that has been counted; takes it off the count when that fails.
bool CkThreadPool::createWorkerThread() noexcept
{
    try
    {
        auto worker = std::make_unique<WorkerThread>(this);
        if (worker->Start().GetValue())
        {
            // From here on the worker belongs to its own thread or the idle list, and may have been deleted already.
            static_cast<void>(worker.release());
            return true;
        }
    }
    catch (...)
    {
        tarvo::framework::discardException();
    }
    tarvo::detail::BackOff backOff;
    const State::Guard guard(*m_state, backOff);
    // A thread that waits for the pool to be idle would wait for a worker that does not come: it tries by itself.
    if (!m_state->scheduler.StartFailed())
        m_state->idleEvent.Set();
    return false;
}

void CkThreadPool::updateIdleState() noexcept
{
    const bool idle = m_state->scheduler.IsIdle();
    if (idle == m_state->idleEventSet)
        return;
    m_state->idleEventSet = idle;
    if (idle)
        m_state->idleEvent.Set();
    else
        m_state->idleEvent.Reset();
}

CkThreadPoolShutdown::~CkThreadPoolShutdown()
{
    auto result = CkThreadPool::eShutdownDone;
    try
    {
        if (CkThreadPool* const pool = CkThreadPool::FindInstance())
            result = pool->Shutdown(m_timeoutMs);
    }
    catch (...)
    {
        tarvo::framework::discardException();
        result = CkThreadPool::eShutdownFailed;
    }
    if (m_result != nullptr)
        *m_result = result;
}
