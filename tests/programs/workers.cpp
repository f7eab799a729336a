// The pool never has more workers than processors times the submitters that have tasks at once, however these come: from
// many threads, from many threads on one processor, from tasks that add tasks while they are asked and then decline.
// Which of them the argument says.

#include <tarvo/tarvo.h>

#include <support/affinity.h>
#include <support/expect.h>
#include <support/resources.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

struct CkThreadPoolPeer
{
    static unsigned int WorkerCount(CkThreadPool& pool) { return pool.getWorkerCount(); }
};

namespace
{
constexpr auto duration = std::chrono::milliseconds(1500);

std::atomic<long> g_ran{0};

class Plain : public CkTask
{
protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        ++g_ran;
        return true;
    }
};

/// Adds a task while it is asked, and declines.
class Adder : public CkTask
{
protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override { return true; }

    bool doNotRun() const override
    {
        CkThreadPool::GetInstance().AddTask(new Plain, CkThreadPool::eTaskPriorityNormal);
        return true;
    }
};

/// The most workers that were seen while `submitters` threads added tasks in bursts, by the pool's count and by the
/// threads of the process, of which `others` are not the pool's.
unsigned int mostWorkers(CkThreadPool& pool, unsigned int submitters, std::size_t others)
{
    std::atomic<bool> end{false};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < submitters; ++i)
    {
        threads.emplace_back(
            [&]
            {
                while (!end)
                {
                    for (int burst = 0; burst < 100; ++burst)
                        pool.AddTask(new Plain, CkThreadPool::eTaskPriorityNormal);
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                }
            });
    }
    unsigned int most = 0;
    for (const auto stop = std::chrono::steady_clock::now() + duration; std::chrono::steady_clock::now() < stop;)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const std::size_t threadsNow = Resources::Now().threads - others - submitters;
        most = std::max({most, CkThreadPoolPeer::WorkerCount(pool), static_cast<unsigned int>(threadsNow)});
    }
    end = true;
    for (std::thread& thread : threads)
        thread.join();
    return most;
}

void expectAtMost(unsigned int workers, unsigned int bound)
{
    std::printf("%u workers, %u at most, %ld tasks\n", workers, bound, g_ran.load());
    expect(workers <= bound, "there are no more workers than the submitters may use");
}
} // namespace

int main(int, char** arguments)
{
    const bool one = std::strcmp(arguments[1], "one") == 0;
    if (one)
        useOneProcessor();
    const CkThreadPoolShutdown shutdown;
    CkThreadPool& pool = CkThreadPool::GetInstance();
    const unsigned int processors = CkMachineCapabilities::GetCPUCount();
    const std::size_t others = Resources::Now().threads - processors;
    if (std::strcmp(arguments[1], "adders") == 0)
    {
        for (int i = 0; i < 200; ++i)
        {
            expect(pool.WaitUntilIdle(INFINITE), "the pool becomes idle");
            pool.AddTask(new Adder, CkThreadPool::eTaskPriorityNormal);
        }
        expectAtMost(CkThreadPoolPeer::WorkerCount(pool), processors);
    }
    else
    {
        const unsigned int submitters = one ? 32 : 16;
        expectAtMost(mostWorkers(pool, submitters, others), processors * submitters);
    }
    expect(pool.WaitUntilIdle(INFINITE), "the pool becomes idle");
    expect(Resources::Now().threads <= others + CkThreadPoolPeer::WorkerCount(pool), "each thread is counted");
    expect(pool.TrimWorkers(1) && CkThreadPoolPeer::WorkerCount(pool) == 1, "idle workers can be ended");
    return failures != 0 ? 1 : 0;
}
