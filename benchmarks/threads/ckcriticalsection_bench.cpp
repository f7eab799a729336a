#include <tarvo/threads/ckcriticalsection.h>

#include <QMutex>
#include <absl/synchronization/mutex.h>
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

namespace
{
void enter(CkCriticalSection& section)
{
    section.Enter();
}

void leave(CkCriticalSection& section)
{
    section.Leave();
}

void enter(absl::Mutex& mutex)
{
    mutex.Lock();
}

void leave(absl::Mutex& mutex)
{
    mutex.Unlock();
}

template <class Mutex>
void enter(Mutex& mutex)
{
    mutex.lock();
}

template <class Mutex>
void leave(Mutex& mutex)
{
    mutex.unlock();
}

template <class Mutex>
void repeat(benchmark::State& state, Mutex& mutex)
{
    benchmark::DoNotOptimize(&mutex);
    for (auto _ : state)
    {
        enter(mutex);
        benchmark::ClobberMemory();
        leave(mutex);
        benchmark::ClobberMemory();
    }
}

/// Enters and leaves where nobody else wants to.
template <class Mutex>
void pair(benchmark::State& state)
{
    Mutex mutex;
    repeat(state, mutex);
}

/// The same by a thread that is in already.
template <class Mutex>
void reentry(benchmark::State& state)
{
    Mutex mutex;
    enter(mutex);
    repeat(state, mutex);
    leave(mutex);
}

/// A number of operations that two threads carry out between them, each operation under the lock: how many of them
/// either gets is for the lock to decide, but both want it until the last is done.
template <class Mutex>
class alignas(64) Contest
{
public:
    explicit Contest(int steps) : m_steps(steps) {}

    void Refill(int operations) { m_left = operations; }

    void TakePart()
    {
        while (operate())
        {
        }
    }

private:
    bool operate()
    {
        enter(m_mutex);
        const bool left = m_left != 0;
        if (left)
        {
            --m_left;
            work();
        }
        leave(m_mutex);
        return left;
    }

    /// An xorshift generator (G. Marsaglia): each step waits for the one before, six cycles on most processors.
    void work()
    {
        std::uint64_t number = m_number;
        for (int step = 0; step < m_steps; ++step)
        {
            number ^= number << 13;
            number ^= number >> 7;
            number ^= number << 17;
        }
        m_number = number;
    }

    Mutex m_mutex;
    int m_left = 0;
    const int m_steps;
    std::uint64_t m_number = 88172645463325252u;
};

/// Where two threads wait for each other. Neither sleeps meanwhile: a thread that is woken may be put behind the other
/// on the same processor, and would come to the start when the race is over.
class Gate
{
public:
    void Meet()
    {
        const int round = m_round.load(std::memory_order_acquire);
        if (m_arrived.exchange(true, std::memory_order_acq_rel))
        {
            m_arrived.store(false, std::memory_order_relaxed);
            m_round.store(round + 1, std::memory_order_release);
            return;
        }
        while (m_round.load(std::memory_order_acquire) == round)
            std::this_thread::yield();
    }

private:
    std::atomic<int> m_round{0};
    std::atomic<bool> m_arrived{false};
};

/// Wall time for an operation, so that a lock which lets one processor idle pays for it. A batch takes milliseconds;
/// the way through the gate is small beside that.
template <class Mutex, int steps, int operations>
void contended(benchmark::State& state)
{
    Contest<Mutex> contest(steps);
    Gate gate;
    bool over = false;
    std::thread rival(
        [&]
        {
            for (;;)
            {
                gate.Meet();
                if (over)
                    return;
                contest.TakePart();
                gate.Meet();
            }
        });
    while (state.KeepRunningBatch(operations))
    {
        contest.Refill(operations);
        gate.Meet();
        contest.TakePart();
        gate.Meet();
    }
    over = true;
    gate.Meet();
    rival.join();
}

/// A few nanoseconds of work under the lock.
template <class Mutex>
void contendedShort(benchmark::State& state)
{
    contended<Mutex, 2, 200'000>(state);
}

/// About a microsecond.
template <class Mutex>
void contendedLong(benchmark::State& state)
{
    contended<Mutex, 600, 10'000>(state);
}

BENCHMARK(pair<CkCriticalSection>)->Name("lock_pair/tarvo");
BENCHMARK(pair<std::recursive_mutex>)->Name("lock_pair/std::recursive_mutex");
BENCHMARK(pair<QMutex>)->Name("lock_pair/QMutex");

BENCHMARK(reentry<CkCriticalSection>)->Name("lock_reentry/tarvo");
BENCHMARK(reentry<QRecursiveMutex>)->Name("lock_reentry/QRecursiveMutex");

BENCHMARK(contendedShort<CkCriticalSection>)->Name("lock_contended_short/tarvo")->UseRealTime();
BENCHMARK(contendedShort<std::recursive_mutex>)->Name("lock_contended_short/std::recursive_mutex")->UseRealTime();
BENCHMARK(contendedShort<absl::Mutex>)->Name("lock_contended_short/absl::Mutex")->UseRealTime();

BENCHMARK(contendedLong<CkCriticalSection>)->Name("lock_contended_long/tarvo")->UseRealTime();
BENCHMARK(contendedLong<std::recursive_mutex>)->Name("lock_contended_long/std::recursive_mutex")->UseRealTime();
BENCHMARK(contendedLong<absl::Mutex>)->Name("lock_contended_long/absl::Mutex")->UseRealTime();
} // namespace
