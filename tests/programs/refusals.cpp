// The pool while the system refuses threads and memory at random: each task that was accepted runs once, each other one
// not at all, and when the refusals end everything goes on.

#include <support/refusals.h>

#include <tarvo/tarvo.h>

#include <support/expect.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <new>
#include <thread>
#include <vector>

struct CkThreadPoolPeer
{
    static unsigned int WorkerCount(CkThreadPool& pool) { return pool.getWorkerCount(); }
};

namespace
{
constexpr unsigned int submitters = 4;

std::atomic<long> g_alive{0};
std::atomic<long> g_accepted{0};
std::atomic<long> g_withoutWorker{0};
std::atomic<long> g_failed{0};
std::atomic<long> g_ran{0};
std::atomic<long> g_wrong{0};

class Counting : public CkTask
{
public:
    Counting() { ++g_alive; }
    ~Counting() override { --g_alive; }

    /// The task was refused.
    void MustNotRun() { g_wrong += m_runs.fetch_add(1) != 0 ? 1 : 0; }

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        g_wrong += m_runs.fetch_add(1) != 0 ? 1 : 0;
        ++g_ran;
        return true;
    }

private:
    std::atomic<int> m_runs{0};
};

CkThreadPool::ESubmitResult submitRefused(CkThreadPool& pool, const CkSmartPointer<Counting>& task)
{
    const refusals::Scope scope;
    return pool.Submit(task, CkThreadPool::eTaskPriorityNormal);
}

void submitOne(CkThreadPool& pool)
{
    const CkSmartPointer<Counting> task(new Counting);
    try
    {
        switch (submitRefused(pool, task))
        {
        case CkThreadPool::eSubmitAcceptedWithoutWorker: ++g_withoutWorker; [[fallthrough]];
        case CkThreadPool::eSubmitAccepted: ++g_accepted; return;
        case CkThreadPool::eSubmitClosed: break;
        case CkThreadPool::eSubmitDeclined: ++g_wrong; break;
        }
    }
    catch (CException* exception)
    {
        exception->Delete();
        ++g_failed;
    }
    catch (const CkExceptionOutOfMemory&)
    {
        ++g_failed;
    }
    catch (const std::bad_alloc&)
    {
        ++g_failed;
    }
    task->MustNotRun();
}

void submitFor(CkThreadPool& pool, std::chrono::milliseconds duration)
{
    for (const auto stop = std::chrono::steady_clock::now() + duration; std::chrono::steady_clock::now() < stop;)
    {
        for (int burst = 0; burst < 20; ++burst)
            submitOne(pool);
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
}
} // namespace

int main()
{
    CkThreadPool& pool = CkThreadPool::GetInstance();
    const unsigned int bound = CkMachineCapabilities::GetCPUCount() * (submitters + 1);
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < submitters; ++i)
        threads.emplace_back([&] { submitFor(pool, std::chrono::milliseconds(1500)); });
    // Waits without limit while starts are refused; must not wait for a worker that does not come.
    std::atomic<bool> end{false};
    std::thread waiter(
        [&]
        {
            while (!end)
                pool.WaitUntilIdle(INFINITE);
        });
    for (int i = 0; i < 100; ++i)
    {
        // Ends the workers again and again, so that new ones are needed.
        const refusals::Scope scope;
        if (i % 2 == 0)
            pool.TrimWorkers(0);
        else
            pool.Shutdown(5);
        const refusals::Pause pause;
        expect(CkThreadPoolPeer::WorkerCount(pool) <= bound, "workers that were not started are not counted");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    for (std::thread& thread : threads)
        thread.join();
    end = true;
    waiter.join();
    expect(pool.WaitUntilIdle(INFINITE), "the pool goes on when nothing is refused any more");
    expect(pool.Shutdown(INFINITE) == CkThreadPool::eShutdownDone, "the pool shuts down");
    std::printf("%u requests refused, %ld tasks accepted, %ld of them without a worker, %ld failed, %ld ran\n",
                refusals::g_refused.load(), g_accepted.load(), g_withoutWorker.load(), g_failed.load(), g_ran.load());
    expect(g_ran == g_accepted, "every task that was accepted ran");
    expect(g_wrong == 0, "no task ran twice, or after it was refused");
    expect(g_alive == 0, "no task is left");
    expect(CkThreadPoolPeer::WorkerCount(pool) == 0, "no worker is left");
    return failures != 0 ? 1 : 0;
}
