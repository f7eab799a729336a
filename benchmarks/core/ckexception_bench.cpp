#include <tarvo/core/ckexception.h>

#include <benchmark/benchmark.h>

#include <stdexcept>

namespace
{
/// Constructs, throws and catches; nobody listens to the report.
void throwTarvo(benchmark::State& state)
{
    unsigned int line = 100;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(line);
        try
        {
            throw CkException(CK_T("benchmarks\\core\\ckexception_bench"), line);
        }
        catch (const CkException& exception)
        {
            benchmark::DoNotOptimize(&exception);
        }
    }
}

void throwRuntimeError(benchmark::State& state)
{
    for (auto _ : state)
    {
        try
        {
            throw std::runtime_error("benchmarks\\core\\ckexception_bench");
        }
        catch (const std::runtime_error& exception)
        {
            benchmark::DoNotOptimize(&exception);
        }
    }
}

BENCHMARK(throwTarvo)->Name("exception_throw/tarvo");
BENCHMARK(throwRuntimeError)->Name("exception_throw/std::runtime_error");
} // namespace
