#include <tarvo/threads/cktimer.h>

#include <benchmark/benchmark.h>

#include <chrono>

namespace
{
/// Reads a timer that runs.
template <CkTimer::EResolution resolution>
void readTarvo(benchmark::State& state)
{
    CkTimer timer(resolution);
    timer.Start();
    for (auto _ : state)
        benchmark::DoNotOptimize(timer.GetElapsedTime());
}

void readSteadyClock(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(std::chrono::steady_clock::now());
}

BENCHMARK(readTarvo<CkTimer::eResolutionNanoseconds>)->Name("timer_nanoseconds/tarvo")->MinTime(0.1);
BENCHMARK(readSteadyClock)->Name("timer_nanoseconds/std::chrono::steady_clock")->MinTime(0.1);

BENCHMARK(readTarvo<CkTimer::eResolutionMicroseconds>)->Name("timer_microseconds/tarvo")->MinTime(0.1);
BENCHMARK(readSteadyClock)->Name("timer_microseconds/std::chrono::steady_clock")->MinTime(0.1);
} // namespace
