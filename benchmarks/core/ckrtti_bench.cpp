#include <support/kinds.h>

#include <benchmark/benchmark.h>

namespace
{
// Each holds an object by its root and asks it whether it is a `Kind`, which it is. The object is a leaf, and so the
// question is answered by walking up from it.

template <class Kind>
void askTarvo(benchmark::State& state)
{
    const auto object = ours::makeLeaf();
    for (auto _ : state)
    {
        bool is = object->IsKindOf(Kind::RTTI);
        benchmark::DoNotOptimize(is);
    }
}

template <class Kind>
void askDynamicCast(benchmark::State& state)
{
    const auto object = plain::makeLeaf();
    for (auto _ : state)
    {
        bool is = dynamic_cast<const Kind*>(object.get()) != nullptr;
        benchmark::DoNotOptimize(is);
    }
}

template <class Kind>
void askQObject(benchmark::State& state)
{
    const auto object = qt::makeLeaf();
    for (auto _ : state)
    {
        bool is = qobject_cast<const Kind*>(object.get()) != nullptr;
        benchmark::DoNotOptimize(is);
    }
}

BENCHMARK(askTarvo<ours::First>)->Name("kind_one/tarvo");
BENCHMARK(askDynamicCast<plain::First>)->Name("kind_one/dynamic_cast");
BENCHMARK(askQObject<qt::First>)->Name("kind_one/qobject_cast");

BENCHMARK(askTarvo<ours::Third>)->Name("kind_three/tarvo");
BENCHMARK(askDynamicCast<plain::Third>)->Name("kind_three/dynamic_cast");
BENCHMARK(askQObject<qt::Third>)->Name("kind_three/qobject_cast");
} // namespace
