#include <tarvo/threads/ckthreadpool.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/platform/kernel/processor.h>
#include <tarvo/system/ckmachinecapabilities.h>
#include <tarvo/threads/cktimer.h>
#include <tarvo/threads/detail/lockorder.h>
#include <tarvo/threads/detail/workerthread.h>

#include <algorithm>
#include <bit>
#include <memory>
#include <thread>
#include <utility>

template class CkSingleton<CkThreadPool>;

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\threads\\ckthreadpool");
constexpr unsigned int lineBadPriority = 10;
constexpr unsigned int lineOutOfMemory = 20;

constexpr unsigned int taskBlockSize = 100;

using tarvo::detail::LockOrder;
constexpr auto lockRank = tarvo::detail::LockRank::threadPool;

/// What is left of a time-out. Never grows; no time-out stays none.
class Remaining
{
public:
    explicit Remaining(unsigned int timeoutMs) : m_timeoutMs(timeoutMs) { m_timer.Start(); }

    unsigned int Get() const
    {
        if (m_timeoutMs == INFINITE)
            return INFINITE;
        const unsigned __int64 elapsed = m_timer.GetElapsedTime();
        return elapsed < m_timeoutMs ? m_timeoutMs - static_cast<unsigned int>(elapsed) : 0;
    }

private:
    const unsigned int m_timeoutMs;
    CkTimer m_timer{CkTimer::eResolutionMilliseconds};
};
} // namespace

/// The outermost stay of a thread does, as it leaves, what must not be done under the lock.
class CkThreadPool::Stay
{
public:
    explicit Stay(CkThreadPool& pool) : m_pool(pool)
    {
        LockOrder::Check(lockRank);
        pool.m_lock.Enter();
        LockOrder::Entered(lockRank);
    }

    /// For a worker, which cannot do without: where the kernel refuses the lock, it tries again.
    Stay(CkThreadPool& pool, Worker worker) noexcept : m_pool(pool), m_worker(worker) { enterAgain(); }

    /// For a worker that comes to look for work. `patience` says for how many pauses it lets others go on who have the
    /// lock.
    Stay(CkThreadPool& pool, unsigned int& patience) noexcept : m_pool(pool), m_worker(Worker::working)
    {
        if (tryEnter())
            patience = std::max(patience / 2, leastPatience);
        else
            enterPatiently(patience);
    }

    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;
    ~Stay() { Leave(); }

    /// Whether this stay is within another one of the thread.
    bool IsNested() const noexcept { return m_pool.m_lock.GetRecursionCount() > 1; }

    /// Leaves the lock; false when a worker that was wanted could not be started.
    bool Leave() noexcept
    {
        if (m_left)
            return true;
        m_left = true;
        if (IsNested() || m_worker == Worker::ending)
        {
            leaveLock();
            return true;
        }
        // A worker that has a task now runs that first: what declined may wait for it as it goes.
        if (!m_hasTask)
            ReleaseTasks();
        m_pool.updateIdleState();
        WorkerList ended;
        if (m_worker == Worker::none)
            std::swap(ended, m_pool.m_endedWorkers);
        const unsigned int toStart = std::exchange(m_pool.m_workersToStart, 0);
        leaveLock();
        reap(ended);
        bool started = true;
        for (unsigned int i = 0; i < toStart; ++i)
            started = m_pool.createWorkerThread() && started;
        return started;
    }

    /// The worker has found a task.
    void HasTask() noexcept { m_hasTask = true; }

    /// Releases the tasks that were put aside for that, with the lock left meanwhile.
    void ReleaseTasks() noexcept
    {
        while (!m_pool.m_releasedTasks.IsEmpty())
        {
            Task task = std::move(m_pool.m_releasedTasks.GetHead().task);
            m_pool.m_releasedTasks.RemoveHead();
            leaveLock();
            task.Reset();
            enterAgain();
        }
    }

private:
    // To take the lock from each other for each task costs more than a small task: all that the lock guards moves to
    // another processor. So a worker that finds it taken again and again waits ever longer, and then finds many tasks
    // where a submitter has added them undisturbed: a million tasks take a third of the time.

    static constexpr unsigned int leastPatience = 64;  ///< About a microsecond.
    static constexpr unsigned int mostPatience = 4096; ///< As long as it takes to wake a thread.

    void enterPatiently(unsigned int& patience) noexcept
    {
        patience = std::max(patience, leastPatience);
        for (unsigned int waited = 0; waited < 2 * mostPatience;)
        {
            waited += patience;
            for (unsigned int pauses = patience; pauses != 0; --pauses)
                tarvo::kernel::spinPause();
            patience = std::min(2 * patience, mostPatience);
            if (tryEnter())
                return;
        }
        enterAgain();
    }

    bool tryEnter() noexcept
    {
        if (!m_pool.m_lock.TryEnter())
            return false;
        LockOrder::Entered(lockRank);
        return true;
    }

    void enterAgain() noexcept
    {
        LockOrder::Check(lockRank);
        for (;; std::this_thread::yield())
        {
            try
            {
                m_pool.m_lock.Enter();
                LockOrder::Entered(lockRank);
                return;
            }
            catch (...)
            {
            }
        }
    }

    void leaveLock() noexcept
    {
        LockOrder::Left(lockRank);
        try
        {
            m_pool.m_lock.Leave();
        }
        catch (...)
        {
            // The lock is free; the one who waits for it looks again by itself.
        }
    }

    CkThreadPool& m_pool;
    bool m_left = false;
    bool m_hasTask = false;
    const Worker m_worker = Worker::none;
};

void CkThreadPool::SThreadData::SetPool(const CkSmartPointer<TaskNodePool>& pool)
{
    for (TaskQueue& queue : queues)
        queue.SetPlexManager(pool);
}

bool CkThreadPool::SThreadData::TryAdd(Task& task, unsigned int priority)
{
    STaskEntry entry{std::move(task)};
    // No std::move: what was not added is still there.
    const bool added = queues[priority].TryAddTail(static_cast<STaskEntry&&>(entry));
    if (added)
        prioritiesInUse |= 1u << priority;
    else
        task = std::move(entry.task);
    return added;
}

CkThreadPool::Task CkThreadPool::SThreadData::TakeFirst()
{
    if (!HasTasks())
        return nullptr;
    const auto priority = static_cast<unsigned int>(std::bit_width(prioritiesInUse)) - 1;
    TaskQueue& queue = queues[priority];
    Task task = std::move(queue.GetHead().task);
    queue.RemoveHead();
    if (queue.IsEmpty())
        prioritiesInUse &= ~(1u << priority);
    else // the next one, which another processor has written, comes while this one runs
        tarvo::kernel::prefetchForWriting(queue.GetHead().task.Get(), sizeof(CkTask));
    return task;
}

void CkThreadPool::WorkerList::AddTail(WorkerThread& worker) noexcept
{
    worker.m_nextWorker = nullptr;
    (m_tail != nullptr ? m_tail->m_nextWorker : m_head) = &worker;
    m_tail = &worker;
    ++m_count;
}

void CkThreadPool::WorkerList::AddHead(WorkerThread& worker) noexcept
{
    worker.m_nextWorker = m_head;
    if (m_head == nullptr)
        m_tail = &worker;
    m_head = &worker;
    ++m_count;
}

WorkerThread* CkThreadPool::WorkerList::TakeHead() noexcept
{
    WorkerThread* const worker = m_head;
    if (worker == nullptr)
        return nullptr;
    m_head = worker->m_nextWorker;
    if (m_head == nullptr)
        m_tail = nullptr;
    --m_count;
    return worker;
}

void CkThreadPool::WorkerList::Remove(WorkerThread& worker) noexcept
{
    WorkerThread* previous = nullptr;
    for (WorkerThread* other = m_head; other != &worker; other = other->m_nextWorker)
        previous = other;
    (previous != nullptr ? previous->m_nextWorker : m_head) = worker.m_nextWorker;
    if (m_tail == &worker)
        m_tail = previous;
    --m_count;
}

CkThreadPool::CkThreadPool()
    : m_runningCap(CkMachineCapabilities::GetCPUCount()), m_taskNodePool(new TaskNodePool(taskBlockSize)),
      m_releasedTasks(m_taskNodePool)
{
    m_taskNodePool->PreallocateBlock();
    m_waitingSubmitters.AddTail(0); // its pool, and the map's, obtain their first block
    m_waitingSubmitters.RemoveHead();
    m_threadData.TryAdd(0);
    m_threadData.RemoveKey(0);

    Stay stay(*this);
    m_workerCount.store(m_runningCap, std::memory_order_relaxed);
    m_workersToStart = m_runningCap;
}

CkThreadPool::~CkThreadPool()
{
    reap(m_endedWorkers);
}

/// Deletes workers whose threads have ended or are about to.
void CkThreadPool::reap(WorkerList& workers) noexcept
{
    while (WorkerThread* const worker = workers.TakeHead())
    {
        worker->WaitUntilTerminate(INFINITE).GetValue();
        delete worker;
    }
}

bool CkThreadPool::AddTask(Task task, ETaskPriority priority)
{
    if (!task || m_closed.load(std::memory_order_acquire))
        return false;
    Added added;
    bool started;
    {
        Stay stay(*this);
        added = add(task, priority);
        if (task && stay.IsNested())
            releaseLater(std::move(task));
        started = stay.Leave();
    }
    switch (added)
    {
    case Added::yes:
    case Added::queued: return true;
    case Added::grow: return started;
    case Added::no: return false;
    case Added::badPriority: throw CkException(source, lineBadPriority);
    case Added::noMemory: break;
    }
    throw CkExceptionOutOfMemory(source, lineOutOfMemory);
}

CkThreadPool::Added CkThreadPool::add(Task& task, ETaskPriority priority)
{
    if (m_closed.load(std::memory_order_relaxed))
        return Added::no;
    task->onAdd();
    SThreadData* const data = findOrMakeData(GetCurrentThreadId());
    if (data == nullptr)
        return Added::noMemory;
    Added added = Added::queued;
    if (hasPlace(*data) && m_idleWorkers.GetCount() != 0 && !isWorkerComing())
        added = startNow(task, *data);
    if (added == Added::queued)
        added = queue(task, *data, priority);
    if (added != Added::yes)
        removeIfUnused(*data);
    return added;
}

/// Gives the task to an idle worker unless it declines. The submitter has the place meanwhile, so that its entry stays,
/// whatever the task adds.
CkThreadPool::Added CkThreadPool::startNow(Task& task, SThreadData& data)
{
    ++data.running;
    try
    {
        if (task->doNotRun())
        {
            giveUpPlace(data);
            return Added::no;
        }
    }
    catch (...)
    {
        giveUpPlace(data);
        removeIfUnused(data);
        throw;
    }
    // The task may have made use of the idle workers itself.
    if (occupyWorker(task, data))
        return Added::yes;
    --data.running;
    return Added::queued;
}

/// Tasks that the one that was asked has added have found the place taken.
void CkThreadPool::giveUpPlace(SThreadData& data) noexcept
{
    --data.running;
    if (data.HasTasks())
        callForWorker(data);
}

bool CkThreadPool::occupyWorker(Task& task, SThreadData& data)
{
    while (WorkerThread* const worker = m_idleWorkers.TakeHead())
    {
        worker->m_state = WorkerThread::busy;
        worker->m_data = &data;
        if (worker->m_mailbox.Put(task))
            return true;
        loseWorker(*worker);
    }
    return false;
}

/// The worker cannot be reached any more, and will find that out by itself.
void CkThreadPool::loseWorker(WorkerThread& worker) noexcept
{
    worker.m_state = WorkerThread::leaving;
    worker.m_data = nullptr;
    worker.m_mailbox.Notify();
    m_workerCount.fetch_sub(1, std::memory_order_relaxed);
}

CkThreadPool::Added CkThreadPool::queue(Task& task, SThreadData& data, ETaskPriority priority)
{
    if (priority < eTaskPriorityLow || priority > eTaskPriorityHigh)
        return Added::badPriority;
    if (!data.TryAdd(task, priority))
        return Added::noMemory;
    ++m_queuedTasks;
    if (!hasPlace(data))
        return Added::yes;
    if (isWorkerComing())
    {
        ++m_promised;
        m_trusted = m_lookers.load(std::memory_order_relaxed);
        return Added::yes;
    }
    callForWorker(data);
    return Added::grow;
}

/// Whether a worker is about to look for work that no task counts on yet.
bool CkThreadPool::isWorkerComing() const noexcept
{
    return m_lookers.load(std::memory_order_relaxed) > m_promised;
}

/// Whether more tasks count on a worker than may still come for one. Those that have come since the last of these tasks
/// was added do not count: while a submitter has a backlog its workers keep coming, and each goes on with that.
bool CkThreadPool::arePromisesBroken() const noexcept
{
    return m_promised > std::min(m_trusted, m_lookers.load(std::memory_order_relaxed));
}

/// Finds somebody for tasks that have counted on a worker that has found another task.
void CkThreadPool::keepPromises() noexcept
{
    while (arePromisesBroken())
    {
        const SThreadData* const data = findStartable();
        if (data == nullptr)
        {
            m_promised = 0;
            return;
        }
        if (wakeWorker())
        {
            ++m_trusted;
            continue;
        }
        --m_promised;
        callForWorker(*data);
    }
}

/// A submitter that has tasks and a place for one; null when there is none.
const CkThreadPool::SThreadData* CkThreadPool::findStartable() const noexcept
{
    for (const SThreadData& data : m_threadData)
    {
        if (hasPlace(data) && data.HasTasks())
            return &data;
    }
    return nullptr;
}

/// Makes an idle worker look for work; false when there is none.
bool CkThreadPool::wakeWorker() noexcept
{
    while (WorkerThread* const worker = m_idleWorkers.TakeHead())
    {
        worker->m_state = WorkerThread::looking;
        m_lookers.fetch_add(1, std::memory_order_relaxed);
        if (worker->m_mailbox.Notify())
            return true;
        m_lookers.fetch_sub(1, std::memory_order_relaxed);
        loseWorker(*worker);
    }
    return false;
}

void CkThreadPool::callForWorker(const SThreadData& data) noexcept
{
    // Where there is no memory to note who waits, the worker finds the task as one of any submitter.
    m_waitingSubmitters.TryAddTail(ULONG(data.submitter));
    wantWorker();
}

/// Has a worker started when the lock is left. Counted now: until it has looked for work, the pool is not idle.
void CkThreadPool::wantWorker() noexcept
{
    m_workerCount.fetch_add(1, std::memory_order_relaxed);
    ++m_workersToStart;
}

bool CkThreadPool::createWorkerThread() noexcept
{
    try
    {
        auto worker = std::make_unique<WorkerThread>(this);
        if (worker->Start().GetValue())
        {
            // In the hands of its own thread, or of the list of idle ones, and maybe deleted already.
            static_cast<void>(worker.release());
            return true;
        }
    }
    catch (...)
    {
    }
    const Stay stay(*this, Worker::working);
    m_workerCount.fetch_sub(1, std::memory_order_relaxed);
    return false;
}

void CkThreadPool::considerIdleWorker(WorkerThread& worker) noexcept
{
    // Who adds a task from here on may leave it to this worker.
    m_lookers.fetch_add(1, std::memory_order_relaxed);
    Stay stay(*this, worker.m_patience);
    m_lookers.fetch_sub(1, std::memory_order_relaxed);
    if (m_trusted != 0)
        --m_trusted;
    Looked looked = Looked::nothing;
    if (SThreadData* const data = std::exchange(worker.m_data, nullptr))
    {
        --data->running;
        // The place of the task that has ended is there, whatever the limit says.
        looked = serve(worker, *data, false);
    }
    while (looked != Looked::served)
    {
        looked = serveWaiting(worker);
        if (looked == Looked::nothing)
            looked = serveAnyone(worker);
        if (looked != Looked::nothing)
            continue;
        if (m_releasedTasks.IsEmpty())
        {
            worker.m_state = WorkerThread::idle;
            m_idleWorkers.AddHead(worker);
            keepPromises();
            return;
        }
        // Before the worker is idle: a destructor may wait for that.
        stay.ReleaseTasks();
    }
    stay.HasTask();
    keepPromises();
}

CkThreadPool::Looked CkThreadPool::serveWaiting(WorkerThread& worker)
{
    if (m_waitingSubmitters.IsEmpty())
        return Looked::nothing;
    const ULONG submitter = m_waitingSubmitters.GetHead();
    m_waitingSubmitters.RemoveHead();
    SThreadData* const data = m_threadData.Lookup(submitter);
    return data != nullptr ? serve(worker, *data, true) : Looked::nothing;
}

CkThreadPool::Looked CkThreadPool::serveAnyone(WorkerThread& worker)
{
    for (SThreadData& data : m_threadData)
    {
        const unsigned int version = m_threadDataVersion;
        const Looked looked = serve(worker, data, true);
        if (looked != Looked::nothing)
            return looked;
        if (version != m_threadDataVersion)
            return Looked::again;
    }
    return Looked::nothing;
}

/// Gives the worker the next task of that submitter that does not decline, as long as there is one, and a place for it
/// if `capped`.
CkThreadPool::Looked CkThreadPool::serve(WorkerThread& worker, SThreadData& data, bool capped)
{
    while (!capped || hasPlace(data))
    {
        Task task = data.TakeFirst();
        if (!task)
            break;
        --m_queuedTasks;
        ++data.running;
        if (!declines(*task))
        {
            worker.m_state = WorkerThread::busy;
            worker.m_data = &data;
            worker.m_next = std::move(task);
            return Looked::served;
        }
        releaseLater(std::move(task));
        --data.running;
    }
    removeIfUnused(data);
    return Looked::nothing;
}

bool CkThreadPool::declines(const CkTask& task) noexcept
{
    try
    {
        return task.doNotRun();
    }
    catch (...)
    {
        return true;
    }
}

/// Without memory for that, at once.
void CkThreadPool::releaseLater(Task task) noexcept
{
    m_releasedTasks.TryAddTail({std::move(task)});
}

bool CkThreadPool::endWorker(WorkerThread& worker) noexcept
{
    // Who stops a worker waits for its thread and looks after the rest.
    if (worker.m_stop.load(std::memory_order_acquire))
        return true;
    // Once it can be reaped, the worker runs nobody else's code any more.
    const Stay stay(*this, Worker::ending);
    if (worker.m_stop.load(std::memory_order_relaxed))
        return true;
    if (worker.m_state == WorkerThread::busy)
        return false; // a task has come meanwhile
    if (worker.m_state == WorkerThread::looking)
    {
        worker.m_state = WorkerThread::busy;
        worker.m_isToLook = true;
        m_lookers.fetch_sub(1, std::memory_order_relaxed);
        return false;
    }
    if (worker.m_state == WorkerThread::idle)
    {
        m_idleWorkers.Remove(worker);
        m_workerCount.fetch_sub(1, std::memory_order_relaxed);
    }
    worker.m_state = WorkerThread::leaving;
    m_endedWorkers.AddTail(worker);
    return true;
}

/// Null when there is no memory for a new entry.
CkThreadPool::SThreadData* CkThreadPool::findOrMakeData(ULONG submitter)
{
    if (SThreadData* const data = m_threadData.Lookup(submitter))
        return data;
    SThreadData* const data = m_threadData.TryAdd(submitter);
    if (data == nullptr)
        return nullptr;
    ++m_threadDataVersion;
    data->submitter = submitter;
    data->SetPool(m_taskNodePool);
    return data;
}

void CkThreadPool::removeIfUnused(SThreadData& data) noexcept
{
    if (data.running != 0 || data.HasTasks())
        return;
    ++m_threadDataVersion;
    const ULONG submitter = data.submitter;
    m_threadData.RemoveKey(submitter);
}

bool CkThreadPool::isIdle() const noexcept
{
    return m_idleWorkers.GetCount() == getWorkerCount() && m_queuedTasks == 0;
}

void CkThreadPool::updateIdleState() noexcept
{
    const bool idle = isIdle();
    if (idle == m_idleEventSet)
        return;
    m_idleEventSet = idle;
    if (idle)
        m_idleEvent.Set();
    else
        m_idleEvent.Reset();
}

bool CkThreadPool::WaitUntilIdle(unsigned int timeoutMs)
{
    const Remaining remaining(timeoutMs);
    for (;;)
    {
        Stay stay(*this);
        if (isIdle())
            return true;
        // Tasks for which no worker could be started have nobody who would run them.
        if (m_queuedTasks != 0 && m_idleWorkers.GetCount() == getWorkerCount())
            wantWorker();
        // Whoever has set it from outside, the pool is not idle.
        m_idleEvent.Reset();
        m_idleEventSet = false;
        if (!stay.Leave() || m_idleEvent.Wait(remaining.Get()) != CkEvent::eWaitSignaled)
            return false;
    }
}

bool CkThreadPool::ShutdownAndWait(unsigned int timeoutMs)
{
    const Remaining remaining(timeoutMs);
    while (WaitUntilIdle(remaining.Get()))
    {
        Stay stay(*this);
        if (!isIdle())
            continue;
        if (getWorkerCount() == 0)
            return true;
        m_closed.store(true, std::memory_order_release);
        ++m_stopping;
        const bool stopped = stopWorkers(stay, 0);
        const Stay again(*this);
        m_failed = m_failed || !stopped;
        --m_stopping;
        m_closed.store(m_failed || m_stopping != 0, std::memory_order_release);
        return stopped;
    }
    return false;
}

bool CkThreadPool::limitWorkerCount(unsigned int maxWorkers)
{
    while (WaitUntilIdle(INFINITE))
    {
        Stay stay(*this);
        if (isIdle())
            return getWorkerCount() <= maxWorkers || stopWorkers(stay, maxWorkers);
    }
    return false;
}

/// Ends idle workers until there are at most `maxWorkers`. Called with all of them idle; leaves the lock. They stay
/// counted until they have ended, so that the pool is not idle before.
bool CkThreadPool::stopWorkers(Stay& stay, unsigned int maxWorkers)
{
    WorkerList signalled;
    for (unsigned int excess = getWorkerCount() - maxWorkers; excess != 0; --excess)
    {
        WorkerThread* const worker = m_idleWorkers.TakeHead();
        worker->m_state = WorkerThread::leaving;
        worker->m_stop.store(true, std::memory_order_release);
        worker->m_mailbox.Notify();
        signalled.AddTail(*worker);
    }
    stay.Leave();

    unsigned int ended = 0;
    WorkerList failed;
    while (WorkerThread* const worker = signalled.TakeHead())
    {
        if (worker->WaitUntilTerminate(INFINITE).GetValue())
        {
            delete worker;
            ++ended;
        }
        else
            failed.AddTail(*worker);
    }
    const bool stopped = failed.GetCount() == 0;
    const Stay again(*this);
    m_workerCount.fetch_sub(ended, std::memory_order_relaxed);
    while (WorkerThread* const worker = failed.TakeHead())
        m_idleWorkers.AddTail(*worker);
    return stopped;
}
