#include <tarvo/core/cksmartpointer.h>

#include <benchmark/benchmark.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <memory>

namespace
{
struct Ours : CkReferenceCountedClass<Ours, 0>
{
    explicit Ours(int number) : value(number) {}
    int value;
};

struct Plain
{
    explicit Plain(int number) : value(number) {}
    int value;
};

struct Intrusive : boost::intrusive_ref_counter<Intrusive, boost::thread_safe_counter>
{
    explicit Intrusive(int number) : value(number) {}
    int value;
};

CkSmartPointer<Ours> makeOurs(int value)
{
    return new Ours(value);
}

std::shared_ptr<Plain> makeShared(int value)
{
    return std::make_shared<Plain>(value);
}

boost::intrusive_ptr<Intrusive> makeIntrusive(int value)
{
    return new Intrusive(value);
}

/// Copies a pointer and releases the copy; the object stays.
template <auto make>
void copy(benchmark::State& state)
{
    const auto original = make(1);
    for (auto _ : state)
    {
        auto another = original;
        benchmark::DoNotOptimize(another);
    }
}

/// Makes an object and releases it.
template <auto make>
void create(benchmark::State& state)
{
    int value = 1;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(value);
        auto only = make(value);
        benchmark::DoNotOptimize(only);
    }
}

BENCHMARK(copy<makeOurs>)->Name("pointer_copy/tarvo");
BENCHMARK(copy<makeShared>)->Name("pointer_copy/std::shared_ptr");
BENCHMARK(copy<makeIntrusive>)->Name("pointer_copy/boost::intrusive_ptr");

BENCHMARK(create<makeOurs>)->Name("object_create/tarvo");
BENCHMARK(create<makeShared>)->Name("object_create/std::make_shared");
} // namespace
