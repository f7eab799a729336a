#include <tarvo/threads/detail/scheduler.h>

#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/kernel/processor.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace tarvo::detail
{
namespace
{
constexpr unsigned int taskBlockSize = 100;
constexpr unsigned int priorityCount = 3;

/// Takes the task over; false, and the task stays where it is, when there is no memory.
bool tryAddTask(Submitter& submitter, Scheduler::Task& task, unsigned int priority)
{
    // No std::move: a task that was not added stays in the caller's pointer.
    if (!submitter.queues[priority].TryAddTail(static_cast<Scheduler::Task&&>(task)))
        return false;
    submitter.prioritiesInUse |= 1u << priority;
    ++submitter.queued;
    return true;
}

/// The first task of the highest priority. There is one.
Scheduler::Task takeFirstTask(Submitter& submitter) noexcept
{
    const auto priority = static_cast<unsigned int>(std::bit_width(submitter.prioritiesInUse >> 1));
    auto& queue = submitter.queues[priority];
    Scheduler::Task task = std::move(queue.GetHead());
    queue.RemoveHead();
    --submitter.queued;
    if (queue.IsEmpty())
        submitter.prioritiesInUse &= ~(1u << priority);
    else // The next task, which another processor has written, comes to this one while the first runs.
        kernel::prefetchForWriting(queue.GetHead().Get(), sizeof(CkTask));
    return task;
}
} // namespace

Scheduler::Scheduler(Wakeup& wakeup, unsigned int slots)
    : m_wakeup(wakeup), m_slots(slots), m_pending(slots), m_workerCount(slots), m_nodes(new TaskNodePool(taskBlockSize))
{
    m_nodes->PreallocateBlock();
    m_submitters.TryAdd(0); // The map's pool obtains its first block.
    m_submitters.RemoveKey(0);
}

Scheduler::~Scheduler() = default;

Scheduler::Added Scheduler::Add(Task& task, ULONG id, unsigned int priority)
{
    TaskHooks::Add(*task);
    Submitter* const submitter = findOrMake(id);
    if (submitter == nullptr)
        return Added::noMemory;
    const struct RemoveAtEnd
    {
        ~RemoveAtEnd() { scheduler.removeIfUnused(submitter); }
        Scheduler& scheduler;
        Submitter& submitter;
    } removeAtEnd{*this, *submitter};

    const bool startsNow = !m_idle.IsEmpty() && submitter->running < m_slots && submitter->queued == 0;
    if (startsNow && declinesInSlot(*task, *submitter))
        return Added::declined;
    // What the task has added while it was asked may have taken the idle workers.
    if (startsNow && deliver(task, *submitter))
        return Added::accepted;
    return queue(task, *submitter, priority);
}

/// Asks the task while it holds a slot: the submitter's entry stays, whatever the task adds.
bool Scheduler::declinesInSlot(const CkTask& task, Submitter& submitter)
{
    changeSlots(submitter, 1);
    const struct GiveBackAtEnd
    {
        ~GiveBackAtEnd() { scheduler.changeSlots(submitter, -1); }
        Scheduler& scheduler;
        Submitter& submitter;
    } giveBackAtEnd{*this, submitter};
    return TaskHooks::Declines(task);
}

bool Scheduler::deliver(Task& task, Submitter& submitter) noexcept
{
    while (Worker* const worker = m_idle.TakeHead())
    {
        worker->state = Worker::State::running;
        worker->submitter = &submitter;
        if (m_wakeup.Deliver(*worker, task))
        {
            changeSlots(submitter, 1);
            return true;
        }
        lose(*worker);
        m_wakeup.Wake(*worker); // It may hear that at least, and then ends.
    }
    return false;
}

Scheduler::Added Scheduler::queue(Task& task, Submitter& submitter, unsigned int priority)
{
    if (priority >= priorityCount)
        return Added::noSuchPriority;
    if (!tryAddTask(submitter, task, priority))
        return Added::noMemory;
    update(submitter);
    return Added::accepted;
}

Scheduler::Task Scheduler::Look(Worker& worker) noexcept
{
    if (worker.state == Worker::State::pending)
        --m_pending;
    // This worker may take the task of another one that was refused a worker. So one refusal is forgotten each time, and
    // a start is tried again.
    m_refused -= m_refused != 0 ? 1 : 0;
    Submitter* submitter = std::exchange(worker.submitter, nullptr);
    if (submitter != nullptr && submitter->queued == 0)
    {
        changeSlots(*submitter, -1);
        removeIfUnused(*submitter);
        submitter = nullptr;
    }
    if (submitter == nullptr)
    {
        submitter = m_waiting.TakeHead();
        if (submitter == nullptr)
        {
            worker.state = Worker::State::idle;
            m_idle.AddHead(worker);
            return nullptr;
        }
        // It waits again behind the others if it has more tasks that can start.
        m_startable -= std::exchange(submitter->startable, 0u);
        ++submitter->running;
    }
    worker.state = Worker::State::running;
    worker.submitter = submitter;
    Task task = takeFirstTask(*submitter);
    update(*submitter);
    return task;
}

bool Scheduler::Declines(const CkTask& task) noexcept
try
{
    return TaskHooks::Declines(task);
}
catch (...)
{
    framework::discardException();
    return true;
}

unsigned int Scheduler::Provide() noexcept
{
    while (m_pending < m_startable && !m_idle.IsEmpty())
    {
        Worker& worker = *m_idle.TakeHead();
        worker.state = Worker::State::pending;
        if (m_wakeup.Wake(worker))
            ++m_pending;
        else
            lose(worker);
    }
    const unsigned int needed = m_startable > m_pending ? m_startable - m_pending : 0;
    m_refused = std::min(m_refused, needed);
    const unsigned int missing = needed - m_refused;
    m_pending += missing;
    countWorkers(static_cast<int>(missing));
    if (TARVO_CHECKED)
        verify();
    return missing;
}

bool Scheduler::StartFailed() noexcept
{
    --m_pending;
    ++m_refused;
    countWorkers(-1);
    return GetLastingCount() != 0;
}

void Scheduler::RetryStart() noexcept
{
    if (m_refused != 0 && GetLastingCount() == 0)
        --m_refused;
}

Scheduler::Woken Scheduler::WakeUp(Worker& worker) noexcept
{
    switch (worker.state)
    {
    case Worker::State::pending: return Woken::look;
    case Worker::State::running: return Woken::take;
    case Worker::State::idle:
        m_idle.Remove(worker);
        lose(worker);
        break;
    case Worker::State::stopped:
    case Worker::State::lost: break;
    }
    return Woken::end;
}

Scheduler::Worker* Scheduler::TakeToStop() noexcept
{
    Worker* const worker = m_idle.TakeHead();
    if (worker != nullptr)
    {
        worker->state = Worker::State::stopped;
        ++m_stopped;
    }
    return worker;
}

void Scheduler::Stopped(unsigned int count) noexcept
{
    m_stopped -= count;
    countWorkers(-static_cast<int>(count));
    if (GetWorkerCount() == 0)
        m_mostSubmitters = std::max(1u, m_submitters.GetCount());
}

void Scheduler::NotStopped(Worker& worker) noexcept
{
    --m_stopped;
    worker.state = Worker::State::idle;
    m_idle.AddHead(worker);
}

/// The worker cannot be reached any more, and finds that out by itself.
void Scheduler::lose(Worker& worker) noexcept
{
    worker.state = Worker::State::lost;
    worker.submitter = nullptr;
    countWorkers(-1);
}

void Scheduler::countWorkers(int change) noexcept
{
    m_workerCount.store(m_workerCount.load(std::memory_order_relaxed) + static_cast<unsigned int>(change),
                        std::memory_order_relaxed);
}

/// Null when there is no memory for a new entry.
Submitter* Scheduler::findOrMake(ULONG id)
{
    if (Submitter* const submitter = m_submitters.Lookup(id))
        return submitter;
    Submitter* const submitter = m_submitters.TryAdd(id);
    if (submitter == nullptr)
        return nullptr;
    submitter->id = id;
    for (TaskQueue& queue : submitter->queues)
        queue.SetPlexManager(m_nodes);
    m_mostSubmitters = std::max(m_mostSubmitters, m_submitters.GetCount());
    return submitter;
}

void Scheduler::removeIfUnused(Submitter& submitter) noexcept
{
    if (submitter.running == 0 && submitter.queued == 0)
        m_submitters.RemoveKey(ULONG(submitter.id));
}

void Scheduler::changeSlots(Submitter& submitter, int change) noexcept
{
    submitter.running += static_cast<unsigned int>(change);
    update(submitter);
}

unsigned int Scheduler::countStartable(const Submitter& submitter) const noexcept
{
    return std::min(submitter.queued, m_slots - submitter.running);
}

/// Counts the submitter's tasks that can start anew, and lists the submitter where it has some.
void Scheduler::update(Submitter& submitter) noexcept
{
    const unsigned int startable = countStartable(submitter);
    const unsigned int before = std::exchange(submitter.startable, startable);
    m_startable += startable - before;
    if (before == 0 && startable != 0)
        m_waiting.AddTail(submitter);
    else if (before != 0 && startable == 0)
        m_waiting.Remove(submitter);
}

void Scheduler::verify() const noexcept
{
    unsigned int startable = 0;
    unsigned int running = 0;
    unsigned int waiting = 0;
    for (const Submitter& submitter : m_submitters)
    {
        if (submitter.running > m_slots)
            trap("the pool runs more tasks of a submitter than there are processors");
        startable += countStartable(submitter);
        running += submitter.running;
        waiting += submitter.startable != 0 ? 1 : 0;
    }
    if (startable != m_startable || waiting != m_waiting.GetCount())
        trap("the pool has miscounted the tasks that can start");
    if (m_pending + m_refused < m_startable)
        trap("a task of the pool can start, and no worker comes for it");
    if (GetWorkerCount() > m_pending + m_idle.GetCount() + m_stopped + running)
        trap("a worker of the pool runs no task, and is counted as if it did");
    if (GetLastingCount() > m_slots * m_mostSubmitters)
        trap("the pool has more workers than its submitters may use");
}
} // namespace tarvo::detail
