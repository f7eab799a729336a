#include <support/pools.h>

#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <latch>
#include <memory>
#include <string_view>

// Says how many bytes of memory a task takes that waits in the queue of a thread pool. A process of its own, as most
// pools keep what they have taken once: tarvo_bench_queuedtasks tarvo|asio|tbb

namespace
{
constexpr std::size_t taskCount = 1'000'000;

/// The bytes that the process has in memory.
long long residentBytes()
{
    long long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * sysconf(_SC_PAGESIZE);
}

/// Keeps the workers busy until all tasks are queued. Those then run, so that the pool can go.
template <class Pool>
double bytesPerTask()
{
    Countdown countdown;
    std::latch full(1);
    Pool pool;
    startWorkers(pool);
    countdown.Start(taskCount);
    const auto blocked = std::make_shared<std::latch>(workerCount() + 1);
    for (int worker = 0; worker < workerCount(); ++worker)
    {
        pool.Submit(
            [&full, blocked]
            {
                blocked->arrive_and_wait();
                full.wait();
            });
    }
    blocked->arrive_and_wait();
    malloc_trim(0);
    const long long before = residentBytes();
    for (std::size_t task = 0; task < taskCount; ++task)
        pool.Submit([&countdown] { countdown.Count(); });
    const long long after = residentBytes();
    full.count_down();
    pool.WaitForAll(countdown);
    return static_cast<double>(after - before) / taskCount;
}
} // namespace

int main(int argc, char** argv)
{
    struct
    {
        std::string_view name;
        double (*measure)();
    } const subjects[] = {
        {"tarvo", &bytesPerTask<TarvoPool>},
        {"asio", &bytesPerTask<AsioPool>},
        {"tbb", &bytesPerTask<TbbPool>},
    };
    for (const auto& subject : subjects)
    {
        if (argc == 2 && subject.name == argv[1])
        {
            std::cout << subject.measure() << '\n';
            return EXIT_SUCCESS;
        }
    }
    std::cerr << "there is no such pool\n";
    return EXIT_FAILURE;
}
