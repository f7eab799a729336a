#include <tarvo/containers/ckarraymanaged.h>
#include <tarvo/platform/kernel/processor.h>
#include <tarvo/threads/ckevent.h>

#include <QSemaphore>
#include <benchmark/benchmark.h>

#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <latch>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;

constexpr unsigned int withoutLimit = 0xFFFFFFFF;

// Events that are reset by the wait they satisfy.

class TarvoEvent
{
public:
    void Set() { m_event.Set(); }
    void Wait() { m_event.Wait(withoutLimit); }

private:
    CkEvent m_event{false};
};

class QtEvent
{
public:
    void Set() { m_semaphore.release(); }
    void Wait() { m_semaphore.acquire(); }

private:
    QSemaphore m_semaphore;
};

class StandardEvent
{
public:
    void Set() { m_semaphore.release(); }
    void Wait() { m_semaphore.acquire(); }

private:
    std::binary_semaphore m_semaphore{0};
};

/// The least that an event can be, for one waiter at a time: a word in which the waiter leaves a mark before it sleeps,
/// so that setting enters the kernel only if there is one. Looks for the signal `spins` times before that.
template <int spins>
class FutexEvent
{
public:
    void Set()
    {
        if (m_word.exchange(set, std::memory_order_acq_rel) == waitedFor)
            syscall(SYS_futex, &m_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }

    void Wait()
    {
        if (take())
            return;
        for (int i = 0; i < spins; ++i)
        {
            tarvo::kernel::spinPause();
            if (m_word.load(std::memory_order_relaxed) == set && take())
                return;
        }
        while (!take())
            sleep();
    }

private:
    enum : std::uint32_t
    {
        unset,
        set,
        waitedFor
    };

    bool take()
    {
        std::uint32_t word = set;
        return m_word.compare_exchange_strong(word, unset, std::memory_order_acquire, std::memory_order_relaxed);
    }

    void sleep()
    {
        std::uint32_t word = unset;
        if (m_word.compare_exchange_strong(word, waitedFor, std::memory_order_relaxed) || word == waitedFor)
            syscall(SYS_futex, &m_word, FUTEX_WAIT_PRIVATE, waitedFor, nullptr, nullptr, 0);
    }

    std::atomic<std::uint32_t> m_word{unset};
};

/// Sets an event and then waits for it, with no other thread in sight.
template <class Event>
void setAndWait(benchmark::State& state)
{
    Event event;
    benchmark::DoNotOptimize(&event);
    for (auto _ : state)
    {
        event.Set();
        benchmark::ClobberMemory();
        event.Wait();
        benchmark::ClobberMemory();
    }
}

/// What an event is without a library.
struct ConditionEvent
{
    std::mutex mutex;
    std::condition_variable condition;
    bool set = false;
};

struct EventDescriptor
{
    ~EventDescriptor() { close(descriptor); }

    const int descriptor = eventfd(0, EFD_CLOEXEC);
};

template <class Event>
void make(benchmark::State& state)
{
    for (auto _ : state)
    {
        Event event;
        benchmark::DoNotOptimize(&event);
        benchmark::ClobberMemory();
    }
}

/// A processor on which this process may run: 0 is the first; after the last comes the first again.
int processor(int number)
{
    cpu_set_t set;
    sched_getaffinity(0, sizeof set, &set);
    number %= CPU_COUNT(&set);
    int found = 0;
    while (!CPU_ISSET(found, &set) || number-- != 0)
        ++found;
    return found;
}

void confineThread(std::initializer_list<int> processors)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const int number : processors)
        CPU_SET(number, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

/// Where the two threads of a pair may run.
enum class Places
{
    twoProcessors, ///< Each on its own.
    oneProcessor,
    anyOfTwo ///< Wherever the system puts them.
};

template <Places places>
void confineThread(int side)
{
    const int first = processor(0);
    const int second = processor(1);
    if (places == Places::anyOfTwo)
        confineThread({first, second});
    else
        confineThread({places == Places::twoProcessors && side == 1 ? second : first});
}

/// Two threads that wait for each other in turn, on events that don't share a cache line.
template <class Event, Places places>
class Pair
{
public:
    /// Starts the threads. They play `warmUp` rounds, and `rounds` more once all pairs have come as far.
    void Start(std::int64_t warmUp, std::int64_t rounds, std::latch& warm)
    {
        m_pong = std::jthread(
            [this, all = warmUp + rounds]
            {
                confineThread<places>(1);
                for (std::int64_t round = 0; round < all; ++round)
                {
                    m_there.Wait();
                    m_back.Set();
                }
            });
        m_ping = std::jthread(
            [this, warmUp, rounds, &warm]
            {
                confineThread<places>(0);
                play(warmUp);
                warm.arrive_and_wait();
                m_begin = Clock::now();
                play(rounds);
                m_end = Clock::now();
            });
    }

    void Join()
    {
        m_ping.join();
        m_pong.join();
    }

    Clock::time_point GetBegin() const { return m_begin; }
    Clock::time_point GetEnd() const { return m_end; }

private:
    void play(std::int64_t rounds)
    {
        for (std::int64_t round = 0; round < rounds; ++round)
        {
            m_there.Set();
            m_back.Wait();
        }
    }

    alignas(64) Event m_there;
    alignas(64) Event m_back;
    alignas(64) Clock::time_point m_begin;
    Clock::time_point m_end;
    std::jthread m_ping;
    std::jthread m_pong;
};

/// Wall time for a round there and back of every pair. All rounds of a run are played at one go.
template <class Event, Places places, int pairCount>
void pingPong(benchmark::State& state)
{
    constexpr std::int64_t warmUp = 500;
    while (state.KeepRunningBatch(state.max_iterations))
    {
        std::latch warm(pairCount);
        std::vector<Pair<Event, places>> pairs(pairCount);
        for (auto& pair : pairs)
            pair.Start(warmUp, state.max_iterations, warm);
        Clock::time_point begin = Clock::time_point::max();
        Clock::time_point end = Clock::time_point::min();
        for (auto& pair : pairs)
        {
            pair.Join();
            begin = std::min(begin, pair.GetBegin());
            end = std::max(end, pair.GetEnd());
        }
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
    }
}

/// Waits for any of `count` events, the last of which is set and stays so.
template <int count>
void waitForAny(benchmark::State& state)
{
    CkArrayManaged<CkEvent, 0> events(count);
    events[count - 1].Set();
    unsigned int index = 0;
    for (auto _ : state)
    {
        CkEvent::WaitForSingleEvent(events, withoutLimit, index);
        benchmark::DoNotOptimize(index);
    }
    if (index != count - 1)
        state.SkipWithError("another event was set");
}

template <int count>
void pollForAny(benchmark::State& state)
{
    std::vector<EventDescriptor> events(count);
    eventfd_write(events.back().descriptor, 1);
    std::vector<pollfd> polled;
    for (const EventDescriptor& event : events)
        polled.push_back({event.descriptor, POLLIN, 0});
    std::ptrdiff_t index = 0;
    for (auto _ : state)
    {
        poll(polled.data(), polled.size(), -1);
        index = std::find_if(polled.begin(), polled.end(), [](const pollfd& entry) { return entry.revents != 0; }) -
                polled.begin();
        benchmark::DoNotOptimize(index);
    }
    if (index != count - 1)
        state.SkipWithError("another event was set");
}

BENCHMARK(setAndWait<TarvoEvent>)->Name("event_set_wait/tarvo")->MinTime(0.1);
BENCHMARK(setAndWait<QtEvent>)->Name("event_set_wait/QSemaphore")->MinTime(0.1);
BENCHMARK(setAndWait<FutexEvent<0>>)->Name("event_set_wait/futex")->MinTime(0.1);

BENCHMARK(make<CkEvent>)->Name("event_make/tarvo")->MinTime(0.1);
BENCHMARK(make<ConditionEvent>)->Name("event_make/std::condition_variable")->MinTime(0.1);
BENCHMARK(make<EventDescriptor>)->Name("event_make/eventfd")->MinTime(0.1);

template <class Event>
void twoProcessors(benchmark::State& state)
{
    pingPong<Event, Places::twoProcessors, 1>(state);
}

template <class Event>
void oneProcessor(benchmark::State& state)
{
    pingPong<Event, Places::oneProcessor, 1>(state);
}

template <class Event>
void fourPairs(benchmark::State& state)
{
    pingPong<Event, Places::anyOfTwo, 4>(state);
}

BENCHMARK(twoProcessors<TarvoEvent>)->Name("event_ping_pong/tarvo")->MinTime(0.1)->UseManualTime();
BENCHMARK(twoProcessors<StandardEvent>)->Name("event_ping_pong/std::binary_semaphore")->MinTime(0.1)->UseManualTime();
BENCHMARK(twoProcessors<FutexEvent<4000>>)->Name("event_ping_pong/futex_spinning")->MinTime(0.1)->UseManualTime();

BENCHMARK(oneProcessor<TarvoEvent>)->Name("event_ping_pong_one_processor/tarvo")->MinTime(0.1)->UseManualTime();
BENCHMARK(oneProcessor<FutexEvent<0>>)->Name("event_ping_pong_one_processor/futex")->MinTime(0.1)->UseManualTime();

BENCHMARK(fourPairs<TarvoEvent>)->Name("event_ping_pong_four_pairs/tarvo")->MinTime(0.1)->UseManualTime();
BENCHMARK(fourPairs<FutexEvent<0>>)->Name("event_ping_pong_four_pairs/futex")->MinTime(0.1)->UseManualTime();

BENCHMARK(waitForAny<8>)->Name("event_any_of_8/tarvo")->MinTime(0.1);
BENCHMARK(pollForAny<8>)->Name("event_any_of_8/eventfd")->MinTime(0.1);

BENCHMARK(waitForAny<64>)->Name("event_any_of_64/tarvo")->MinTime(0.1);
BENCHMARK(pollForAny<64>)->Name("event_any_of_64/eventfd")->MinTime(0.1);
} // namespace
