#include <tarvo/tarvo.h>
#include <tarvo/threads/detail/threadpoolstate.h>

#include <gtest/gtest.h>
#include <support/platform.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// Where tests want more or fewer submitters than processors, they make tasks that wait for an event, and as many
// threads as they need.

struct CkThreadPoolPeer
{
    static CkThreadPool& Pool() { return CkThreadPool::GetInstance(); }
    static unsigned int WorkerCount() { return Pool().getWorkerCount(); }
    static bool Limit(unsigned int count) { return Pool().limitWorkerCount(count); }
    static bool HoldsLock() { return Pool().m_state->lock.IsLocking(); }

    static unsigned int EntryCount()
    {
        const CkCriticalSectionAuto guard(Pool().m_state->lock);
        return Pool().m_state->scheduler.GetSubmitterCount();
    }
};

namespace
{
using Peer = CkThreadPoolPeer;
using Priority = CkThreadPool::ETaskPriority;
constexpr Priority low = CkThreadPool::eTaskPriorityLow;
constexpr Priority normal = CkThreadPool::eTaskPriorityNormal;
constexpr Priority high = CkThreadPool::eTaskPriorityHigh;

/// Calls what it is given.
class Work : public CkTask
{
public:
    explicit Work(std::function<void()> run = {}, std::function<bool()> decline = {}, std::function<void()> add = {})
        : m_run(std::move(run)), m_decline(std::move(decline)), m_add(std::move(add))
    {
        ++s_alive;
    }

    ~Work() override
    {
        if (destroyedBy != nullptr)
            *destroyedBy = std::this_thread::get_id();
        --s_alive;
    }

    static inline std::atomic<int> s_alive{0};
    std::thread::id* destroyedBy = nullptr; ///< Receives the thread that destroys the task.

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        if (m_run)
            m_run();
        return true;
    }

    bool doNotRun() const override { return m_decline && m_decline(); }

    void onAdd() override
    {
        CkTask::onAdd();
        if (m_add)
            m_add();
    }

private:
    const std::function<void()> m_run;
    const std::function<bool()> m_decline;
    const std::function<void()> m_add;
};

bool add(const CkSmartPointer<CkTask>& task, Priority priority = normal)
{
    return Peer::Pool().AddTask(task, priority);
}

bool addWork(std::function<void()> run, Priority priority = normal)
{
    return add(new Work(std::move(run)), priority);
}

unsigned int processors()
{
    return CkMachineCapabilities::GetCPUCount();
}

class CkThreadPoolTest : public testing::Test
{
protected:
    void SetUp() override { EXPECT_EQ(Work::s_alive, 0); }

    void TearDown() override
    {
        gate.Set();
        EXPECT_TRUE(Peer::Pool().ShutdownAndWait(INFINITE));
        EXPECT_EQ(Work::s_alive, 0);
        EXPECT_EQ(Peer::EntryCount(), 0u);
        EXPECT_EQ(Peer::WorkerCount(), 0u);
    }

    /// As many tasks of the calling thread as may run at once, which run until the gate opens.
    void occupyAll()
    {
        for (unsigned int i = 0; i < processors(); ++i)
            EXPECT_TRUE(addWork([this] { gate.Wait(INFINITE); }));
    }

    CkEvent gate;
};
} // namespace

TEST_F(CkThreadPoolTest, runs_one_submitters_tasks_by_priority_and_in_order)
{
    // All places but one stay taken, so that one worker runs the tasks one after another.
    CkEvent place;
    EXPECT_TRUE(addWork([&] { place.Wait(INFINITE); }));
    for (unsigned int i = 1; i < processors(); ++i)
        EXPECT_TRUE(addWork([this] { gate.Wait(INFINITE); }));
    const unsigned int workers = Peer::WorkerCount();
    std::vector<int> order;
    CkEvent last;
    const Priority priorities[] = {low, high, normal, low, high, normal};
    for (int i = 0; i < 6; ++i)
    {
        EXPECT_TRUE(addWork(
            [&, i]
            {
                order.push_back(i);
                if (order.size() == 6)
                    last.Set();
            },
            priorities[i]));
    }
    EXPECT_EQ(Peer::WorkerCount(), workers); // the submitter has no place for another
    EXPECT_FALSE(Peer::Pool().WaitUntilIdle(0));
    EXPECT_FALSE(Peer::Pool().ShutdownAndWait(5));
    EXPECT_THROW(add(new Work, static_cast<Priority>(3)), CkException);
    place.Set();
    EXPECT_EQ(last.Wait(INFINITE), CkEvent::eWaitSignaled);
    EXPECT_EQ(order, (std::vector<int>{1, 4, 2, 5, 0, 3}));
    gate.Set();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_TRUE(add(new Work, static_cast<Priority>(3))); // not looked at when it goes straight to a worker
}

// Two submitters have made the pool larger than the limit of one.
TEST_F(CkThreadPoolTest, runs_no_more_tasks_of_a_submitter_at_once_than_there_are_processors)
{
    std::thread([this] { occupyAll(); }).join();
    occupyAll();
    gate.Set();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_GT(Peer::WorkerCount(), processors());
    gate.Reset();
    std::atomic<unsigned int> running{0};
    std::atomic<bool> tooMany{false};
    for (unsigned int i = 0; i < 3 * processors(); ++i)
    {
        EXPECT_TRUE(addWork(
            [&]
            {
                tooMany = tooMany || ++running > processors();
                gate.Wait(2);
                --running;
            }));
    }
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_FALSE(tooMany);
}

TEST_F(CkThreadPoolTest, grows_for_a_submitter_that_has_places)
{
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    occupyAll();
    const unsigned int workers = Peer::WorkerCount();
    EXPECT_GE(workers, processors());
    // Another submitter's task, and one that its hook adds, run although all workers are busy.
    CkEvent ran;
    CkEvent nestedRan;
    const auto addNested = [&] { EXPECT_TRUE(addWork([&] { nestedRan.Set(); })); };
    std::thread([&] { EXPECT_TRUE(add(new Work([&] { ran.Set(); }, {}, addNested))); }).join();
    EXPECT_EQ(ran.Wait(INFINITE), CkEvent::eWaitSignaled);
    EXPECT_EQ(nestedRan.Wait(INFINITE), CkEvent::eWaitSignaled);
    EXPECT_GT(Peer::WorkerCount(), workers);
    gate.Set();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_TRUE(Peer::Limit(1));
    EXPECT_EQ(Peer::WorkerCount(), 1u);
    EXPECT_TRUE(Peer::Limit(1));
    std::atomic<int> count{0};
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(addWork([&] { ++count; }));
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_EQ(count, 100);
}

TEST_F(CkThreadPoolTest, leaves_nothing_of_what_declines_or_fails_to_be_added)
{
    EXPECT_FALSE(add(nullptr));
    EXPECT_TRUE(addWork({})); // from here on there is an idle worker
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    const auto mustNotRun = [] { ADD_FAILURE(); };
    EXPECT_FALSE(add(new Work(mustNotRun, [] { return true; })));
    EXPECT_THROW(add(new Work(mustNotRun, []() -> bool { throw 7; })), int);
    EXPECT_THROW(add(new Work(mustNotRun, {}, [] { throw 8; })), int);
    EXPECT_EQ(Peer::EntryCount(), 0u);
    EXPECT_EQ(Work::s_alive, 0);

    occupyAll();
    EXPECT_TRUE(add(new Work(mustNotRun, [] { return true; })));
    EXPECT_TRUE(add(new Work(mustNotRun, []() -> bool { throw 7; })));
    std::atomic<bool> ran{false};
    EXPECT_TRUE(addWork([&] { ran = true; }));
    gate.Set();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_TRUE(ran);
    EXPECT_EQ(Peer::EntryCount(), 0u);
}

// Hooks and destructors add tasks, from the submitter's thread and from workers, for submitters that the pool does not
// know yet.
TEST_F(CkThreadPoolTest, takes_tasks_from_within_its_hooks)
{
    std::atomic<int> runs{0};
    struct AddsAtEnd : Work
    {
        explicit AddsAtEnd(std::atomic<int>& count) : Work([&count] { ++count; }), runs(count) {}
        ~AddsAtEnd() override
        {
            addWork([&count = runs] { ++count; });
        }
        std::atomic<int>& runs;
    };
    const auto addOne = [&] { EXPECT_TRUE(addWork([&] { ++runs; })); };
    const auto addOneAndDecline = [&] { return addOne(), true; };
    const auto addOneAndRun = [&] { return addOne(), false; };
    for (int busy = 0; busy < 2; ++busy)
    {
        runs = 0;
        gate.Reset();
        if (busy != 0)
            occupyAll();
        add(new Work([&] { ++runs; }, {}, addOne));             // 2
        add(new Work([&] { ++runs; }, addOneAndRun));           // 2, and one more for each time it is asked
        add(new Work([] { ADD_FAILURE(); }, addOneAndDecline)); // 1
        add(new AddsAtEnd(runs));                               // 2
        addWork(addOne);                                        // 1
        gate.Set();
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        // The one that adds as it ends does so after the worker that ran it has let it go.
        while (runs < 8)
            std::this_thread::yield();
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        EXPECT_GE(runs, 8);
        EXPECT_LE(runs, 9);
    }
}

// What a task adds while it is asked finds the place taken that its own has meanwhile.
TEST_F(CkThreadPoolTest, runs_what_a_declining_task_has_added)
{
    for (const bool raises : {false, true})
    {
        EXPECT_TRUE(addWork({}));
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        std::atomic<int> runs{0};
        std::function<bool(int)> decline = [&](int depth)
        {
            if (depth == 0)
                EXPECT_TRUE(addWork([&] { ++runs; }));
            else
                add(new Work({}, [&decline, depth] { return decline(depth - 1); }));
            if (raises && depth == 5)
                throw 7;
            return true;
        };
        const CkSmartPointer<CkTask> outermost(new Work({}, [&] { return decline(5); }));
        if (raises)
            EXPECT_THROW(add(outermost), int);
        else
            EXPECT_FALSE(add(outermost));
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        EXPECT_EQ(runs, 1);
    }
}

// A task that has declined in the queue goes before its worker is idle, or has another task.
TEST_F(CkThreadPoolTest, lets_destructors_wait_for_the_pool)
{
    struct WaitsAtEnd : Work
    {
        explicit WaitsAtEnd(bool wait) : Work({}, [] { return true; }), waitsForTask(wait) {}

        ~WaitsAtEnd() override
        {
            if (!waitsForTask)
            {
                Peer::Pool().ShutdownAndWait(5); // false on a worker, which is busy with this
                return;
            }
            const CkSmartPointer<CkTask> task(new Work);
            EXPECT_TRUE(add(task));
            EXPECT_TRUE(task->WaitUntilTerminate(INFINITE));
        }

        const bool waitsForTask;
    };
    for (const bool waitsForTask : {false, true})
    {
        gate.Reset();
        occupyAll();
        EXPECT_TRUE(add(new WaitsAtEnd(waitsForTask)));
        EXPECT_TRUE(addWork({}));
        gate.Set();
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    }
}

TEST_F(CkThreadPoolTest, notices_workers_that_set_all_has_ended)
{
    for (int round = 0; round < 50; ++round)
    {
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        CkEvent::SetAll();
        if (round % 2 == 0)
        {
            while (Peer::WorkerCount() != 0)
                std::this_thread::yield();
        }
        CkEvent ran;
        EXPECT_TRUE(addWork([&] { ran.Set(); }));
        EXPECT_EQ(ran.Wait(INFINITE), CkEvent::eWaitSignaled);
    }
    // Neither is fooled by an idle event that others have set.
    occupyAll();
    CkEvent::SetAll(); // opens the gate as well, for those who have come to it
    gate.Reset();
    EXPECT_TRUE(addWork([this] { gate.Wait(INFINITE); }));
    EXPECT_FALSE(Peer::Pool().WaitUntilIdle(5));
    EXPECT_FALSE(Peer::Pool().ShutdownAndWait(5));
}

TEST_F(CkThreadPoolTest, refuses_tasks_while_it_shuts_down_and_works_again_afterwards)
{
    std::atomic<int> accepted{0};
    std::atomic<int> ran{0};
    std::atomic<bool> end{false};
    std::vector<std::thread> submitters;
    for (int i = 0; i < 3; ++i)
    {
        submitters.emplace_back(
            [&]
            {
                while (!end)
                {
                    for (int burst = 0; burst < 10; ++burst)
                        accepted += addWork([&] { ++ran; }) ? 1 : 0;
                    // Without a pause the pool might never be idle.
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
            });
    }
    for (int i = 0; i < 50; ++i)
    {
        const int before = accepted;
        if (Peer::Pool().ShutdownAndWait(i % 2 == 0 ? 5 : 100))
        {
            EXPECT_GE(ran, before);
        }
    }
    end = true;
    for (std::thread& submitter : submitters)
        submitter.join();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_EQ(ran, accepted);
    {
        const CkThreadPoolShutdown guard;
        EXPECT_TRUE(addWork([&] { ++ran; }));
    }
    EXPECT_EQ(ran, accepted + 1);
    EXPECT_EQ(Peer::WorkerCount(), 0u);
}

// A thread that submits tasks destroys none of another submitter.
TEST_F(CkThreadPoolTest, releases_declined_tasks_on_workers_alone)
{
    occupyAll();
    std::vector<std::thread::id> destroyedBy(100);
    for (std::thread::id& id : destroyedBy)
    {
        const CkSmartPointer<Work> task(new Work({}, [] { return true; }));
        task->destroyedBy = &id;
        EXPECT_TRUE(add(task));
    }
    std::thread::id other;
    std::thread(
        [&]
        {
            other = std::this_thread::get_id();
            for (int i = 0; i < 100; ++i)
                EXPECT_TRUE(addWork({}));
        })
        .join();
    gate.Set();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    for (const std::thread::id& id : destroyedBy)
        EXPECT_TRUE(id != std::this_thread::get_id() && id != other && id != std::thread::id());
}

// Tasks that a hook gives to the pool in vain are released when the lock has been left.
TEST_F(CkThreadPoolTest, destroys_what_hooks_have_submitted_in_vain_without_its_lock)
{
    struct OutsideOfLock : Work
    {
        using Work::Work;
        ~OutsideOfLock() override { EXPECT_FALSE(Peer::HoldsLock()); }
    };
    const auto submit = [](Work* work) { return Peer::Pool().AddTask(CkSmartPointer<CkTask>(work), normal); };
    const auto raise = []() -> bool { throw 8; };
    const std::function<void()> attempts[] = {
        [&] { EXPECT_THROW(submit(new OutsideOfLock({}, {}, raise)), int); },
        [&] { EXPECT_THROW(submit(new OutsideOfLock({}, raise)), int); },
        [&] { EXPECT_FALSE(submit(new OutsideOfLock({}, [] { return true; }))); },
        // A hook cannot wait for threads that need the lock.
        [&] { EXPECT_FALSE(Peer::Pool().TrimWorkers(0)); },
        [&] { EXPECT_FALSE(Peer::Pool().WaitUntilIdle(INFINITE)); },
        [&] { EXPECT_EQ(Peer::Pool().Shutdown(INFINITE), CkThreadPool::eShutdownTimeout); },
        [&] { EXPECT_FALSE(Peer::Limit(0)); },
    };
    for (const auto& attempt : attempts)
    {
        EXPECT_TRUE(addWork({}));
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE)); // an idle worker, so that the tasks are asked at once
        EXPECT_TRUE(add(new Work({}, {}, attempt)));
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    }
}

// SetAll sets the event that a thread waits on again and again; its time is up all the same.
TEST_F(CkThreadPoolTest, waits_no_longer_than_it_is_told)
{
    std::atomic<bool> end{false};
    std::atomic<bool> open{false};
    EXPECT_TRUE(addWork(
        [&]
        {
            while (!open)
                std::this_thread::yield();
        }));
    std::thread disturber(
        [&]
        {
            while (!end)
            {
                CkEvent::SetAll();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    EXPECT_FALSE(Peer::Pool().WaitUntilIdle(50));
    EXPECT_EQ(Peer::Pool().Shutdown(50), CkThreadPool::eShutdownTimeout);
    end = true;
    disturber.join();
    open = true;
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
}

TEST_F(CkThreadPoolTest, ends_idle_workers_while_others_run)
{
    std::thread([this] { occupyAll(); }).join();
    CkEvent last;
    EXPECT_TRUE(addWork([&] { last.Wait(INFINITE); }));
    gate.Set();
    while (!Peer::Pool().TrimWorkers(1)) // the workers that the gate has let go become idle
        std::this_thread::yield();
    EXPECT_EQ(Peer::WorkerCount(), 1u);
    EXPECT_FALSE(Peer::Pool().TrimWorkers(0));
    EXPECT_EQ(Peer::WorkerCount(), 1u);
    last.Set();
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_TRUE(Peer::Pool().TrimWorkers(0));
    EXPECT_EQ(Peer::WorkerCount(), 0u);
}

namespace
{
/// What a worker's thread does as the last thing, when it ends.
struct AtThreadEnd
{
    ~AtThreadEnd()
    {
        if (action)
            action();
    }
    std::function<void()> action;
};

thread_local AtThreadEnd t_atThreadEnd;
} // namespace

TEST_F(CkThreadPoolTest, tells_what_becomes_of_a_task_and_of_a_shutdown)
{
    const auto submit = [](Work* work) { return Peer::Pool().Submit(work, normal); };
    std::atomic<int> atEnd{-1};
    const auto submitAtEnd = [&]
    {
        if constexpr (ownKernel) // elsewhere the compiler's run-time does not end thread_local objects in time
            t_atThreadEnd.action = [&] { atEnd = submit(new Work); };
    };
    EXPECT_EQ(submit(new Work(submitAtEnd)), CkThreadPool::eSubmitAccepted);
    EXPECT_EQ(submit(nullptr), CkThreadPool::eSubmitDeclined);
    EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
    EXPECT_EQ(submit(new Work({}, [] { return true; })), CkThreadPool::eSubmitDeclined);
    auto result = CkThreadPool::eShutdownFailed;
    {
        const CkThreadPoolShutdown guard(INFINITE, &result);
    }
    EXPECT_EQ(result, CkThreadPool::eShutdownDone);
    EXPECT_EQ(atEnd, ownKernel ? CkThreadPool::eSubmitClosed : -1); // the worker has ended while the pool was closed
    EXPECT_EQ(submit(new Work([this] { gate.Wait(INFINITE); })), CkThreadPool::eSubmitAccepted);
    {
        const CkThreadPoolShutdown guard(5, &result);
    }
    EXPECT_EQ(result, CkThreadPool::eShutdownTimeout);
    gate.Set();
}

// On Windows the system itself starts no thread while another one ends.
TEST_F(CkThreadPoolTest, a_submitter_does_not_wait_for_workers_that_end)
{
    if constexpr (ownKernel)
    {
        std::mutex mutex;
        for (unsigned int i = 0; i < processors(); ++i)
            EXPECT_TRUE(addWork([&] { t_atThreadEnd.action = [&] { const std::lock_guard guard(mutex); }; }));
        EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        {
            const std::lock_guard guard(mutex);
            while (Peer::WorkerCount() != 0)
            {
                CkEvent::SetAll();
                std::this_thread::yield();
            }
            for (int i = 0; i < 10; ++i)
                EXPECT_TRUE(addWork({}));
            EXPECT_TRUE(Peer::Pool().WaitUntilIdle(INFINITE));
        }
        EXPECT_TRUE(Peer::Pool().ShutdownAndWait(INFINITE)); // waits for the threads that have ended as well
    }
}

TEST_F(CkThreadPoolTest, a_task_can_be_waited_for)
{
    std::atomic<bool> ran{false};
    const CkSmartPointer<CkTask> task(new Work([&] { ran = true; }));
    task->RunAsThread();
    EXPECT_TRUE(task->WaitUntilTerminate(INFINITE));
    EXPECT_TRUE(ran);
    EXPECT_TRUE(task->IsSuccessful());
}
