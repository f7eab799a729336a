#include <support/pools.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;

double secondsBetween(Clock::time_point begin, Clock::time_point end)
{
    return std::chrono::duration<double>(end - begin).count();
}

/// Keeps its processor busy for a while.
template <int microseconds>
void work()
{
    if constexpr (microseconds != 0)
    {
        const Clock::time_point end = Clock::now() + std::chrono::microseconds(microseconds);
        while (Clock::now() < end)
        {
        }
    }
}

/// Tasks that work for a while and count, shared out among `submitters` threads: from the first submission until all
/// have run. A single submitter also waits for that itself.
template <class Pool, int microseconds>
void runMany(benchmark::State& state, std::size_t submitters, std::size_t tasks)
{
    const std::size_t share = tasks / submitters;
    Countdown countdown;
    Pool pool;
    startWorkers(pool);
    const auto submitShare = [&]
    {
        for (std::size_t task = 0; task < share; ++task)
        {
            pool.Submit(
                [&countdown]
                {
                    work<microseconds>();
                    countdown.Count();
                });
        }
    };
    for (auto _ : state)
    {
        countdown.Start(share * submitters);
        std::latch start(1);
        std::vector<std::jthread> others;
        for (std::size_t other = 1; other < submitters; ++other)
        {
            others.emplace_back(
                [&]
                {
                    start.wait();
                    submitShare();
                });
        }
        const Clock::time_point begin = Clock::now();
        start.count_down();
        submitShare();
        others.clear();
        pool.WaitForAll(countdown);
        state.SetIterationTime(secondsBetween(begin, Clock::now()));
    }
}

/// The same for one pool beside the others, with the time of all processors beside the time that has passed.
template <class Pool, int microseconds>
void registerMany(const std::string& name, std::size_t submitters, std::size_t tasks)
{
    benchmark::RegisterBenchmark(name.c_str(), runMany<Pool, microseconds>, submitters, tasks)
        ->Iterations(1)
        ->MeasureProcessCPUTime()
        ->UseManualTime();
}

template <int microseconds>
void registerAll(const std::string& group, std::size_t submitters, std::size_t tasks)
{
    registerMany<TarvoPool, microseconds>(group + "/tarvo", submitters, tasks);
    registerMany<QtPool, microseconds>(group + "/QThreadPool", submitters, tasks);
    registerMany<AsioPool, microseconds>(group + "/boost::asio::thread_pool", submitters, tasks);
    registerMany<TbbPool, microseconds>(group + "/tbb::task_arena", submitters, tasks);
}

/// A million tasks that do nothing else, and fewer that work, from 2, 4 and 16 threads.
[[maybe_unused]] const bool areManyRegistered = []
{
    registerAll<0>("pool_million", 1, 1'000'000);
    registerAll<0>("pool_million_eight_submitters", 8, 1'000'000);
    for (const std::size_t submitters : {2, 4, 16})
    {
        const std::string suffix = "_" + std::to_string(submitters) + "_submitters";
        registerAll<1>("pool_1us" + suffix, submitters, 96'000);
        registerAll<10>("pool_10us" + suffix, submitters, 16'000);
    }
    return true;
}();

enum class Measured
{
    start, ///< From before the task is made until it starts.
    end    ///< Until the submitter knows that it has ended.
};

/// One task at a time for a pool that has nothing else to do: the next one as soon as the submitter knows of the end of
/// the last, when workers may still be on the look-out, or `restMicroseconds` later, when they sleep.
template <class Pool, Measured measured, int restMicroseconds>
void runOne(benchmark::State& state)
{
    Pool pool;
    startWorkers(pool);
    for (auto _ : state)
    {
        if (restMicroseconds != 0)
            std::this_thread::sleep_for(std::chrono::microseconds(restMicroseconds));
        Clock::time_point started;
        const Clock::time_point begin = Clock::now();
        pool.Run([&started] { started = Clock::now(); });
        const Clock::time_point ended = Clock::now();
        state.SetIterationTime(secondsBetween(begin, measured == Measured::start ? started : ended));
    }
}

/// What `tarvo_bench_queuedtasks`, which lies beside this program, says of `pool`; 0 if it fails.
double bytesPerQueuedTask(const char* pool)
{
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string command = "'" + (folder / "tarvo_bench_queuedtasks").string() + "' " + pool;
    double bytes = 0;
    std::FILE* const output = popen(command.c_str(), "r");
    if (output == nullptr || std::fscanf(output, "%lf", &bytes) != 1)
        bytes = 0;
    if (output != nullptr)
        pclose(output);
    return bytes;
}

/// The memory of a task that waits in the queue: a byte is shown as a nanosecond.
void queuedBytes(benchmark::State& state, const char* pool)
{
    for (auto _ : state)
    {
        const double bytes = bytesPerQueuedTask(pool);
        state.SetIterationTime(bytes * 1e-9);
        if (bytes == 0)
            state.SkipWithError("tarvo_bench_queuedtasks has failed");
    }
}

/// How long the first of ten tasks waits behind 100,000 that another thread has submitted before.
template <class Pool>
class Latecomer
{
public:
    Latecomer() { startWorkers(m_pool); }

    /// The time as a number of lengths of a task.
    double Measure()
    {
        m_countdown.Start(earlyTasks + lateTasks);
        m_lateStarted = false;
        for (int task = 0; task < earlyTasks; ++task)
            m_pool.Submit([this] { runEarly(); });
        std::thread(
            [this]
            {
                m_submitted = Clock::now();
                for (int task = 0; task < lateTasks; ++task)
                    m_pool.Submit([this] { runLate(); });
            })
            .join();
        m_pool.WaitForAll(m_countdown);
        return secondsBetween(m_submitted, m_started) / std::chrono::duration<double>(taskLength).count();
    }

private:
    static constexpr int earlyTasks = 100'000;
    static constexpr int lateTasks = 10;
    static constexpr std::chrono::microseconds taskLength{100};

    /// Keeps its worker busy; but once one of the ten has started there is nothing more to measure.
    void runEarly()
    {
        const Clock::time_point end = Clock::now() + taskLength;
        while (!m_lateStarted.load(std::memory_order_relaxed) && Clock::now() < end)
        {
        }
        m_countdown.Count();
    }

    void runLate()
    {
        const Clock::time_point now = Clock::now();
        if (!m_lateStarted.exchange(true, std::memory_order_relaxed))
            m_started = now;
        m_countdown.Count();
    }

    Countdown m_countdown;
    std::atomic<bool> m_lateStarted{false};
    Clock::time_point m_submitted;
    Clock::time_point m_started;
    Pool m_pool;
};

/// The length of a task is shown as a nanosecond.
template <class Pool>
void waitBehindOther(benchmark::State& state)
{
    Latecomer<Pool> latecomer;
    for (auto _ : state)
        state.SetIterationTime(latecomer.Measure() * 1e-9);
}

/// Not measured: what a submitter may expect in a pool that is fair, which is the length of a task until a worker is
/// through with its own, and as much again for all else.
void waitTwoTasks(benchmark::State& state)
{
    for (auto _ : state)
        state.SetIterationTime(2e-9);
}

template <class Pool>
void startAtOnce(benchmark::State& state)
{
    runOne<Pool, Measured::start, 0>(state);
}

template <class Pool>
void endAtOnce(benchmark::State& state)
{
    runOne<Pool, Measured::end, 0>(state);
}

template <class Pool>
void startRested(benchmark::State& state)
{
    runOne<Pool, Measured::start, 300>(state);
}

template <class Pool>
void endRested(benchmark::State& state)
{
    runOne<Pool, Measured::end, 300>(state);
}

BENCHMARK(startAtOnce<TarvoPool>)->Name("pool_one_start/tarvo")->Iterations(5000)->UseManualTime();
BENCHMARK(startAtOnce<QtPool>)->Name("pool_one_start/QThreadPool")->Iterations(5000)->UseManualTime();
BENCHMARK(startAtOnce<AsioPool>)->Name("pool_one_start/boost::asio::thread_pool")->Iterations(5000)->UseManualTime();
BENCHMARK(startAtOnce<TbbPool>)->Name("pool_one_start/tbb::task_arena")->Iterations(5000)->UseManualTime();

BENCHMARK(endAtOnce<TarvoPool>)->Name("pool_one_end/tarvo")->Iterations(5000)->UseManualTime();
BENCHMARK(endAtOnce<QtPool>)->Name("pool_one_end/QThreadPool")->Iterations(5000)->UseManualTime();
BENCHMARK(endAtOnce<AsioPool>)->Name("pool_one_end/boost::asio::thread_pool")->Iterations(5000)->UseManualTime();
BENCHMARK(endAtOnce<TbbPool>)->Name("pool_one_end/tbb::task_arena")->Iterations(5000)->UseManualTime();

BENCHMARK(startRested<TarvoPool>)->Name("pool_one_start_rested/tarvo")->Iterations(300)->UseManualTime();
BENCHMARK(startRested<QtPool>)->Name("pool_one_start_rested/QThreadPool")->Iterations(300)->UseManualTime();
BENCHMARK(startRested<AsioPool>)
    ->Name("pool_one_start_rested/boost::asio::thread_pool")
    ->Iterations(300)
    ->UseManualTime();
BENCHMARK(startRested<TbbPool>)->Name("pool_one_start_rested/tbb::task_arena")->Iterations(300)->UseManualTime();

BENCHMARK(endRested<TarvoPool>)->Name("pool_one_end_rested/tarvo")->Iterations(300)->UseManualTime();
BENCHMARK(endRested<QtPool>)->Name("pool_one_end_rested/QThreadPool")->Iterations(300)->UseManualTime();
BENCHMARK(endRested<AsioPool>)->Name("pool_one_end_rested/boost::asio::thread_pool")->Iterations(300)->UseManualTime();
BENCHMARK(endRested<TbbPool>)->Name("pool_one_end_rested/tbb::task_arena")->Iterations(300)->UseManualTime();

BENCHMARK_CAPTURE(queuedBytes, , "tarvo")
    ->Name("pool_queued_bytes/tarvo")
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime();
BENCHMARK_CAPTURE(queuedBytes, , "asio")
    ->Name("pool_queued_bytes/boost::asio::thread_pool")
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime();
BENCHMARK_CAPTURE(queuedBytes, , "tbb")
    ->Name("pool_queued_bytes/tbb::task_arena")
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime();

BENCHMARK(waitBehindOther<TarvoPool>)->Name("pool_fairness/tarvo")->Iterations(1)->UseManualTime();
BENCHMARK(waitBehindOther<QtPool>)->Name("pool_fairness/QThreadPool")->Iterations(1)->Repetitions(2)->UseManualTime();
BENCHMARK(waitTwoTasks)->Name("pool_fairness/two_tasks")->Iterations(1)->UseManualTime();
} // namespace
