// The thread pool under everything at once: many submitters, random priorities, hooks that raise, decline and add
// tasks, one thread that sets all events of the process, shutdowns and restarts in between. Every accepted task that
// did not decline has run exactly once, and in the end nothing is left of any. Takes half a minute, or as many seconds
// as the argument says.

#include <tarvo/tarvo.h>
#include <tarvo/threads/detail/threadpoolstate.h>

#include <support/expect.h>
#include <support/resources.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

struct CkThreadPoolPeer
{
    static unsigned int WorkerCount(CkThreadPool& pool) { return pool.getWorkerCount(); }
    static bool Limit(CkThreadPool& pool, unsigned int count) { return pool.limitWorkerCount(count); }

    static unsigned int EntryCount(CkThreadPool& pool)
    {
        const CkCriticalSectionAuto guard(pool.m_state->lock);
        return pool.m_state->scheduler.GetSubmitterCount();
    }
};

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int submitters = 6;

/// More would take all memory where submitters are faster than workers.
constexpr long mostAlive = 20000;

std::atomic<unsigned int> g_seed{1};
std::atomic<long> g_alive{0};
std::atomic<long> g_accepted{0}; ///< Tasks that were accepted and do not decline.
std::atomic<long> g_ran{0};
std::atomic<long> g_wrong{0}; ///< Tasks that ran twice, or although they were refused or had declined.

void addTask();

/// What a task does, its seed decides.
class StressTask : public CkTask
{
public:
    StressTask() { ++g_alive; }

    ~StressTask() override
    {
        if (has(1, 64))
            addTask();
        --g_alive;
    }

    bool Declines() const { return has(2, 8); }

    void MustNotRun() { g_wrong += m_runs.fetch_add(1) != 0 ? 1 : 0; }

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        g_wrong += m_runs.fetch_add(1) != 0 || Declines() ? 1 : 0;
        ++g_ran;
        if (has(3, 16))
            throw CkExceptionStream(CK_T("stress"), 1);
        if (has(4, 8))
            addTask();
        if (has(5, 32))
            std::this_thread::yield();
        return !has(6, 4);
    }

    bool doNotRun() const override
    {
        if (has(7, 128))
            addTask();
        if (Declines() && has(8, 4))
            throw 7;
        return Declines();
    }

    void onAdd() override
    {
        CkTask::onAdd();
        if (has(9, 64))
            addTask();
        if (has(10, 64))
            throw 8;
    }

    void onException(const CkException*) override
    {
        if (has(11, 4))
            throw 9;
    }

private:
    /// True for one seed in `often`, independently for each `what`.
    bool has(unsigned int what, unsigned int often) const
    {
        unsigned int mix = m_seed ^ what * 0x85EBCA6Bu;
        mix = (mix ^ mix >> 15) * 0xC2B2AE35u;
        return (mix ^ mix >> 13) % often == 0;
    }

    const unsigned int m_seed = g_seed++ * 0x9E3779B9u;
    std::atomic<int> m_runs{0};
};

void addTask()
{
    if (g_alive > mostAlive)
        return;
    const CkSmartPointer<StressTask> task(new StressTask);
    bool accepted = false;
    try
    {
        accepted = CkThreadPool::GetInstance().AddTask(task, static_cast<CkThreadPool::ETaskPriority>(g_alive % 3));
    }
    catch (int)
    {
        // One of its hooks has raised.
    }
    if (!accepted)
        task->MustNotRun();
    else if (!task->Declines())
        ++g_accepted;
}

/// Waits, shuts down or limits the pool until `end`.
void disturb(CkThreadPool& pool, const std::atomic<bool>& end)
{
    for (unsigned int round = 0; !end; ++round)
    {
        const long before = g_accepted;
        const unsigned int timeoutMs = round % 5 * 10;
        const bool idle = round % 3 == 0 ? pool.ShutdownAndWait(timeoutMs) : pool.WaitUntilIdle(timeoutMs);
        expect(!idle || g_ran >= before, "an idle pool has finished what it had accepted");
        if (idle && round % 8 == 0)
            expect(CkThreadPoolPeer::Limit(pool, 1), "the number of workers can be limited");
    }
}

long g_eventCount = 0;

long countEvents()
{
    CkEvent::SetAll();
    return g_eventCount;
}

void listenToTraces()
{
    CkLogListenerManager::GetInstance().RegisterListener(
        CkLogListenerManager::eEventTrace,
        CkLogListenerManager::Listener(
            [](CkLogListenerManager::EEventType, const CString&, unsigned int, const CString& message)
            { g_eventCount = std::atol(message.ToUtf8().c_str() + 25); }));
}

template <class Action>
void repeat(std::vector<std::thread>& threads, const std::atomic<bool>& end, Action action)
{
    threads.emplace_back(
        [&end, action]
        {
            while (!end)
                action();
        });
}
/// Until the end nobody sees this program's own threads but through what they do.
void runFor(std::chrono::seconds duration, CkThreadPool& pool)
{
    std::atomic<bool> end{false};
    std::atomic<bool> quiet{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < submitters; ++i)
    {
        repeat(threads, end,
               []
               {
                   for (int burst = 0; burst < 50; ++burst)
                       addTask();
                   // Now and then there is time to become idle.
                   if (g_seed % 7 == 0)
                       std::this_thread::sleep_for(std::chrono::milliseconds(30));
               });
    }
    repeat(threads, end,
           [&quiet]
           {
               if (quiet)
                   std::this_thread::sleep_for(std::chrono::milliseconds(1));
               else
                   CkEvent::SetAll();
           });
    threads.emplace_back([&] { disturb(pool, end); });
    for (const auto stop = Clock::now() + duration; Clock::now() < stop;)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        quiet = !quiet;
    }
    end = true;
    for (std::thread& thread : threads)
        thread.join();
}

void expectNothingLeft(CkThreadPool& pool)
{
    // Tasks that add others as they go keep the pool busy a little longer.
    for (const auto stop = Clock::now() + std::chrono::seconds(60); g_alive != 0 && Clock::now() < stop;)
        pool.WaitUntilIdle(1000);
    expect(pool.ShutdownAndWait(60000), "the pool shuts down in the end");
    std::printf("%ld accepted, %ld ran\n", g_accepted.load(), g_ran.load());
    expect(g_accepted > 1000, "tasks were accepted");
    expect(g_ran == g_accepted, "every accepted task ran");
    expect(g_wrong == 0, "no task ran twice or after it was refused");
    expect(g_alive == 0, "no task is left");
    expect(CkThreadPoolPeer::EntryCount(pool) == 0, "no submitter is left");
    expect(CkThreadPoolPeer::WorkerCount(pool) == 0, "no worker is left");
}
} // namespace

int main(int argc, char** argv)
{
    const auto duration = std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 30);
    CkThreadPool& pool = CkThreadPool::GetInstance();
    listenToTraces();
    expect(pool.ShutdownAndWait(INFINITE), "the pool shuts down");
    const long eventsBefore = countEvents();
    const std::size_t threadsBefore = Resources::Now().threads;

    runFor(duration, pool);
    expectNothingLeft(pool);
    expect(countEvents() == eventsBefore, "no event is left");
    // The system's own record of a thread may outlive it by a moment.
    for (const auto stop = Clock::now() + std::chrono::seconds(10);
         Resources::Now().threads > threadsBefore && Clock::now() < stop;)
        std::this_thread::yield();
    expect(Resources::Now().threads <= threadsBefore, "no thread is left");
    return failures != 0 ? 1 : 0;
}
