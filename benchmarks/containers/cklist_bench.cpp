#include <tarvo/containers/cklist.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <deque>
#include <list>

namespace
{
template <class T>
using Ours = CkList<T, 17, unsigned int>;

/// An element of a few words, as the data of a listener is.
struct Entry
{
    explicit Entry(int number) : words{number, number, number, number} {}

    std::array<std::int64_t, 4> words;
};

template <class T>
void add(Ours<T>& list, int number)
{
    list.AddTail(T(number));
}

template <class Queue>
void add(Queue& queue, int number)
{
    queue.push_back(typename Queue::value_type(number));
}

template <class T>
T take(Ours<T>& list)
{
    T value = list.GetHead();
    list.RemoveHead();
    return value;
}

template <class Queue>
typename Queue::value_type take(Queue& queue)
{
    typename Queue::value_type value = queue.front();
    queue.pop_front();
    return value;
}

/// One comes and one goes in each iteration, where 100 wait.
template <class Queue>
void pass(benchmark::State& state)
{
    Queue queue;
    benchmark::DoNotOptimize(&queue);
    int number = 0;
    while (number < 100)
        add(queue, number++);
    for (auto _ : state)
    {
        add(queue, number++);
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(take(queue));
        benchmark::ClobberMemory();
    }
}

/// In each iteration 1,000 come before the first of them goes. The memory of the iterations before is there.
template <class Queue>
void fillAndDrain(benchmark::State& state)
{
    constexpr int count = 1000;
    Queue queue;
    benchmark::DoNotOptimize(&queue);
    for (auto _ : state)
    {
        for (int number = 0; number < count; ++number)
        {
            add(queue, number);
            benchmark::ClobberMemory();
        }
        for (int number = 0; number < count; ++number)
        {
            benchmark::DoNotOptimize(take(queue));
            benchmark::ClobberMemory();
        }
    }
}

BENCHMARK(pass<Ours<int>>)->Name("list_pass_int/tarvo");
BENCHMARK(pass<std::list<int>>)->Name("list_pass_int/std::list");
BENCHMARK(pass<std::deque<int>>)->Name("list_pass_int/std::deque");

BENCHMARK(fillAndDrain<Ours<int>>)->Name("list_fill_drain_int/tarvo");
BENCHMARK(fillAndDrain<std::list<int>>)->Name("list_fill_drain_int/std::list");
BENCHMARK(fillAndDrain<std::deque<int>>)->Name("list_fill_drain_int/std::deque");

BENCHMARK(pass<Ours<Entry>>)->Name("list_pass_entry/tarvo");
BENCHMARK(pass<std::list<Entry>>)->Name("list_pass_entry/std::list");
BENCHMARK(pass<std::deque<Entry>>)->Name("list_pass_entry/std::deque");

BENCHMARK(fillAndDrain<Ours<Entry>>)->Name("list_fill_drain_entry/tarvo");
BENCHMARK(fillAndDrain<std::list<Entry>>)->Name("list_fill_drain_entry/std::list");
BENCHMARK(fillAndDrain<std::deque<Entry>>)->Name("list_fill_drain_entry/std::deque");

} // namespace
