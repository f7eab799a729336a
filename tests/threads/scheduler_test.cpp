#include <tarvo/threads/detail/scheduler.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Runs the real scheduler through every order of a few events, up to a number of them, with workers that are no threads,
// and compares each step with a model. Orders that lead to the same state are followed once.

namespace
{
using tarvo::detail::ScheduledWorker;
using tarvo::detail::Scheduler;

constexpr unsigned int priorities = 3;

/// What a task does when it is asked whether it runs.
enum class Kind : unsigned char
{
    willing,
    declines,
    addsAndDeclines
};

class Asked : public CkTask
{
public:
    Asked(Kind kind, int submitter, unsigned int taskPriority, std::function<void()> add)
        : m_kind(kind), owner(submitter), priority(taskPriority), m_add(std::move(add))
    {
        ++s_alive;
    }

    ~Asked() override { --s_alive; }

    const Kind m_kind;
    const int owner;
    const unsigned int priority;
    static inline int s_alive = 0;

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override { return true; }

    bool doNotRun() const override
    {
        if (m_kind == Kind::addsAndDeclines)
            m_add();
        return m_kind != Kind::willing;
    }

private:
    const std::function<void()> m_add;
};

/// Something that happens to the pool.
struct Event
{
    enum What : char
    {
        add,         ///< Submitter `which` adds a task of `kind` and `priority`.
        look,        ///< Worker `which`, which was started or woken, looks; or its task has ended and it looks.
        startFails,  ///< Worker `which` is not started.
        setAll,      ///< `CkEvent::SetAll` wakes the idle worker `which`.
        unreachable, ///< The next worker that is to be woken or given a task cannot be.
        stop,        ///< An idle worker is taken to be stopped.
        stopped,     ///< Its thread has ended.
        retry        ///< A thread waits for the pool to be idle.
    };

    What what;
    int which = 0;
    Kind kind = Kind::willing;
    unsigned int priority = 1;
};

/// The bounds of a search.
struct Limits
{
    unsigned int slots;
    int submitters;
    int tasks;    ///< Queued and running at once.
    int failures; ///< Starts that fail, workers that are lost or stopped.
    std::size_t depth;
    std::vector<std::pair<Kind, unsigned int>> kinds; ///< What is added, with its priority.
};

class World : Scheduler::Wakeup
{
public:
    explicit World(const Limits& limits)
        : m_limits(limits), m_owners(static_cast<std::size_t>(limits.submitters)), m_scheduler(*this, limits.slots)
    {
        for (unsigned int i = 0; i < limits.slots; ++i)
            m_workers.push_back(std::make_unique<Worker>());
    }

    std::vector<Event> Enabled() const
    {
        std::vector<Event> events;
        for (int owner = 0; owner < m_limits.submitters && countTasks() < m_limits.tasks; ++owner)
        {
            for (const auto& [kind, priority] : m_limits.kinds)
                events.push_back({Event::add, owner, kind, priority});
        }
        for (int i = 0; i < static_cast<int>(m_workers.size()); ++i)
        {
            const Phase phase = m_workers[static_cast<std::size_t>(i)]->phase;
            if (phase == Phase::starting || phase == Phase::woken || phase == Phase::busy)
                events.push_back({Event::look, i});
            if (m_failures == m_limits.failures)
                continue;
            if (phase == Phase::starting)
                events.push_back({Event::startFails, i});
            if (phase == Phase::idle)
                events.push_back({Event::setAll, i});
        }
        if (m_failures < m_limits.failures && !m_isNextUnreachable)
            events.push_back({Event::unreachable});
        if (m_failures < m_limits.failures && count(Phase::idle) != 0)
            events.push_back({Event::stop});
        if (count(Phase::stopped) != 0)
            events.push_back({Event::stopped});
        if (m_refused != 0)
            events.push_back({Event::retry});
        return events;
    }

    /// Everything up to the moment when the pool's lock is left.
    void Do(const Event& event)
    {
        switch (event.what)
        {
        case Event::add: add(event.which, event.kind, event.priority); break;
        case Event::look: look(worker(event.which)); break;
        case Event::startFails:
            worker(event.which).phase = Phase::gone;
            EXPECT_EQ(m_scheduler.StartFailed(), countWorkers() != count(Phase::stopped));
            ++m_refused;
            ++m_failures;
            break;
        case Event::setAll:
            EXPECT_EQ(m_scheduler.WakeUp(worker(event.which).scheduled), Scheduler::Woken::end);
            worker(event.which).phase = Phase::gone;
            ++m_failures;
            break;
        case Event::unreachable: m_isNextUnreachable = true; break;
        case Event::stop:
            of(*m_scheduler.TakeToStop()).phase = Phase::stopped;
            ++m_failures;
            break;
        case Event::stopped:
            m_scheduler.Stopped(1);
            (*std::ranges::find(m_workers, Phase::stopped, &Worker::phase))->phase = Phase::gone;
            break;
        case Event::retry:
            m_scheduler.RetryStart();
            m_refused -= countWorkers() == count(Phase::stopped) ? 1u : 0u;
            break;
        }
        leave();
    }

    /// Adds nothing more: every task that was accepted runs or is dropped, and the pool is idle.
    void Finish()
    {
        int steps = 0;
        for (bool again = true; again;)
        {
            ASSERT_LT(++steps, 100) << "the tasks do not come to an end";
            again = false;
            for (std::size_t i = 0; i < m_workers.size(); ++i)
            {
                const Phase phase = m_workers[i]->phase;
                if (phase != Phase::starting && phase != Phase::woken && phase != Phase::busy)
                    continue;
                Do({Event::look, static_cast<int>(i)});
                again = true;
            }
            while (count(Phase::stopped) != 0)
                Do({Event::stopped});
            if (!again && m_refused != 0)
            {
                Do({Event::retry});
                again = true;
            }
        }
        EXPECT_EQ(countTasks(), 0);
        EXPECT_EQ(Asked::s_alive, 0);
        EXPECT_TRUE(m_scheduler.IsIdle());
    }

    /// Equal for states from which the same can happen.
    std::string Signature() const
    {
        std::string text;
        for (const Owner& owner : m_owners)
        {
            text += static_cast<char>('0' + owner.running);
            for (const auto& queue : owner.queues)
            {
                for (const Scheduler::Task& task : queue)
                    text += static_cast<char>('a' + static_cast<int>(static_cast<const Asked&>(*task).m_kind));
                text += ',';
            }
        }
        for (const int owner : m_waiting)
            text += static_cast<char>('A' + owner);
        std::vector<std::string> workers;
        for (const auto& worker : m_workers)
        {
            if (worker->phase != Phase::gone)
                workers.push_back({static_cast<char>('0' + static_cast<int>(worker->phase)),
                                   static_cast<char>('0' + (worker->task ? worker->task->owner : 9))});
        }
        std::ranges::sort(workers);
        for (const std::string& worker : workers)
            text += worker;
        return text + '|' + std::to_string(m_refused) + std::to_string(m_failures) + std::to_string(m_most) +
               (m_isNextUnreachable ? "u" : "");
    }

private:
    enum class Phase
    {
        starting,
        woken,
        busy,
        idle,
        stopped,
        gone
    };

    struct Worker
    {
        ScheduledWorker scheduled;
        Phase phase = Phase::starting;
        CkSmartPointer<Asked> task;
    };

    struct Owner
    {
        unsigned int running = 0;
        std::array<std::deque<Scheduler::Task>, priorities> queues;
    };

    // What the scheduler asks for.

    bool Deliver(ScheduledWorker& scheduled, Scheduler::Task& task) noexcept override
    {
        Worker& worker = of(scheduled);
        EXPECT_EQ(worker.phase, Phase::idle);
        if (std::exchange(m_isNextUnreachable, false))
            return lose(worker);
        worker.phase = Phase::busy;
        worker.task = static_cast<Asked*>(task.Get());
        task.Reset();
        // The slot of the asking is still counted.
        ++m_owners[static_cast<std::size_t>(worker.task->owner)].running;
        return true;
    }

    bool Wake(ScheduledWorker& scheduled) noexcept override
    {
        Worker& worker = of(scheduled);
        if (worker.phase == Phase::gone) // was not reached with a task
            return false;
        EXPECT_EQ(worker.phase, Phase::idle);
        if (std::exchange(m_isNextUnreachable, false))
            return lose(worker);
        worker.phase = Phase::woken;
        return true;
    }

    bool lose(Worker& worker)
    {
        worker.phase = Phase::gone;
        ++m_failures;
        return false;
    }

    // What happens.

    void add(int which, Kind kind, unsigned int priority)
    {
        Owner& owner = m_owners[static_cast<std::size_t>(which)];
        CkSmartPointer<Asked> made(new Asked(kind, which, priority, [this, which] { add(which, Kind::willing, 1); }));
        Scheduler::Task task(made);
        const bool asksNow = count(Phase::idle) != 0 && owner.running < m_limits.slots && countQueued(owner) == 0;
        const bool reaches = !m_isNextUnreachable;
        // A task that is asked has its slot meanwhile.
        owner.running += asksNow ? 1 : 0;
        noteSubmitters(which);
        const Scheduler::Added added = m_scheduler.Add(task, static_cast<ULONG>(which + 1), priority);
        owner.running -= asksNow ? 1 : 0;
        EXPECT_EQ(added, asksNow && kind != Kind::willing ? Scheduler::Added::declined : Scheduler::Added::accepted);
        const bool delivered = std::ranges::any_of(m_workers, [&](const auto& w) { return w->task == made; });
        EXPECT_TRUE(kind != Kind::willing || !reaches || delivered == asksNow);
        EXPECT_NE(bool(task), added == Scheduler::Added::accepted);
        if (added == Scheduler::Added::accepted && !delivered)
            owner.queues[priority].push_back(std::move(made));
        refresh(which);
    }

    void look(Worker& worker)
    {
        int own = -1;
        if (worker.task)
        {
            own = worker.task->owner;
            worker.task.Reset(); // run, or released
            --m_owners[static_cast<std::size_t>(own)].running;
        }
        const bool hasOwn = own >= 0 && countQueued(m_owners[static_cast<std::size_t>(own)]) != 0;
        std::optional<int> expected;
        if (hasOwn)
            expected = own;
        else if (!m_waiting.empty())
            expected = m_waiting.front();

        const Scheduler::Task task = m_scheduler.Look(worker.scheduled);
        m_refused -= m_refused != 0 ? 1 : 0; // tried again
        ASSERT_EQ(bool(task), expected.has_value());
        if (!task)
        {
            worker.phase = Phase::idle;
            if (own >= 0)
                refresh(own);
            return;
        }
        Owner& owner = m_owners[static_cast<std::size_t>(*expected)];
        auto& queue = *std::find_if(owner.queues.rbegin(), owner.queues.rend(), [](auto& q) { return !q.empty(); });
        EXPECT_TRUE(task == queue.front()) << "of the wrong submitter, priority or age";
        queue.pop_front();
        ++owner.running;
        worker.phase = Phase::busy;
        worker.task = static_cast<Asked*>(task.Get());
        if (!hasOwn)
            std::erase(m_waiting, *expected);
        if (own >= 0)
            refresh(own);
        refresh(*expected);
        Scheduler::Declines(*task); // the worker holds its slot until it has released the task
    }

    /// What holds whenever the lock is left.
    void leave()
    {
        const unsigned int before = count(Phase::starting) + count(Phase::woken);
        unsigned int startable = 0;
        for (const Owner& owner : m_owners)
        {
            EXPECT_LE(owner.running, m_limits.slots);
            startable += countStartable(owner);
        }
        const unsigned int missing = m_scheduler.Provide();
        EXPECT_TRUE(missing == 0 || count(Phase::idle) == 0) << "an idle worker is woken first";
        for (unsigned int i = 0; i < missing; ++i)
            m_workers.push_back(std::make_unique<Worker>());
        const unsigned int pending = count(Phase::starting) + count(Phase::woken);
        m_refused = startable > pending ? std::min(m_refused, startable - pending) : 0;
        EXPECT_TRUE(m_refused == 0 || count(Phase::idle) == 0) << "an idle worker can do what a refused one cannot";
        EXPECT_GE(pending + m_refused, startable);
        EXPECT_LE(pending, std::max(before, startable)) << "more come than there are tasks";
        EXPECT_LE(countWorkers() - count(Phase::stopped), m_limits.slots * m_most);
        EXPECT_EQ(m_scheduler.GetWorkerCount(), countWorkers());
        EXPECT_EQ(m_scheduler.GetSubmitterCount(), std::ranges::count_if(m_owners, hasTasks));
    }

    // What the model knows.

    Worker& worker(int which) { return *m_workers[static_cast<std::size_t>(which)]; }

    Worker& of(const ScheduledWorker& scheduled)
    {
        return **std::ranges::find_if(m_workers, [&](const auto& w) { return &w->scheduled == &scheduled; });
    }

    unsigned int count(Phase phase) const
    {
        return static_cast<unsigned int>(std::ranges::count(m_workers, phase, [](const auto& w) { return w->phase; }));
    }

    unsigned int countWorkers() const { return static_cast<unsigned int>(m_workers.size()) - count(Phase::gone); }

    static unsigned int countQueued(const Owner& owner)
    {
        std::size_t sum = 0;
        for (const auto& queue : owner.queues)
            sum += queue.size();
        return static_cast<unsigned int>(sum);
    }

    static bool hasTasks(const Owner& owner) { return owner.running != 0 || countQueued(owner) != 0; }

    unsigned int countStartable(const Owner& owner) const
    {
        return std::min(countQueued(owner), m_limits.slots - std::min(owner.running, m_limits.slots));
    }

    int countTasks() const
    {
        unsigned int sum = 0;
        for (const Owner& owner : m_owners)
            sum += owner.running + countQueued(owner);
        return static_cast<int>(sum);
    }

    void noteSubmitters(int adding)
    {
        unsigned int now = 0;
        for (int i = 0; i < m_limits.submitters; ++i)
            now += i == adding || hasTasks(m_owners[static_cast<std::size_t>(i)]) ? 1u : 0u;
        m_most = std::max(m_most, now);
    }

    /// Lists the submitter among those that wait, behind the others, when it has come to have a task that can start.
    void refresh(int which)
    {
        const bool waits = std::ranges::find(m_waiting, which) != m_waiting.end();
        const bool can = countStartable(m_owners[static_cast<std::size_t>(which)]) != 0;
        if (can && !waits)
            m_waiting.push_back(which);
        else if (!can && waits)
            std::erase(m_waiting, which);
    }

    const Limits& m_limits;
    std::vector<Owner> m_owners;
    std::vector<int> m_waiting; ///< The one that has waited longest is first.
    std::vector<std::unique_ptr<Worker>> m_workers;
    unsigned int m_refused = 0;
    unsigned int m_most = 1;
    int m_failures = 0;
    bool m_isNextUnreachable = false;
    Scheduler m_scheduler;
};

std::string describe(const std::vector<Event>& events)
{
    const char* const names[] = {"add", "look", "startFails", "setAll", "unreachable", "stop", "stopped", "retry"};
    std::string text;
    for (const Event& event : events)
    {
        text += std::string(names[event.what]) + "(" + std::to_string(event.which);
        if (event.what == Event::add)
            text += ", kind " + std::to_string(static_cast<int>(event.kind)) + ", " + std::to_string(event.priority);
        text += ") ";
    }
    return text;
}

std::unique_ptr<World> replay(const Limits& limits, const std::vector<Event>& events)
{
    auto world = std::make_unique<World>(limits);
    for (const Event& event : events)
        world->Do(event);
    return world;
}

/// The number of states that were found; stops at the first failure.
std::size_t search(const Limits& limits)
{
    std::set<std::string> seen;
    std::deque<std::vector<Event>> open{{}};
    while (!open.empty())
    {
        std::vector<Event> path = std::move(open.front());
        open.pop_front();
        const std::vector<Event> enabled = replay(limits, path)->Enabled();
        for (const Event& event : enabled)
        {
            path.push_back(event);
            const std::unique_ptr<World> world = replay(limits, path);
            if (seen.insert(world->Signature()).second)
            {
                if (path.size() < limits.depth)
                    open.push_back(path);
                world->Finish();
            }
            if (testing::Test::HasFailure())
            {
                ADD_FAILURE() << describe(path);
                return seen.size();
            }
            path.pop_back();
        }
    }
    return seen.size();
}
} // namespace

TEST(SchedulerTest, keeps_invariant_bound_and_order_whatever_happens)
{
    const std::pair<Kind, unsigned int> willing{Kind::willing, 1};
    const std::pair<Kind, unsigned int> declines{Kind::declines, 1};
    const std::pair<Kind, unsigned int> addsAndDeclines{Kind::addsAndDeclines, 1};
    const Limits searches[] = {
        {1, 3, 4, 0, 12, {willing}},
        {2, 2, 5, 0, 12, {willing, declines}},
        {1, 3, 4, 2, 10, {willing}},
        {2, 2, 4, 2, 9, {willing}},
        {1, 2, 4, 1, 9, {willing, declines, addsAndDeclines}},
        {2, 1, 6, 1, 10, {{Kind::willing, 0}, {Kind::willing, 2}}},
    };
    for (const Limits& limits : searches)
    {
        const std::size_t states = search(limits);
        EXPECT_GT(states, 300u);
    }
}
