#include <tarvo/threads/cktimer.h>

#include <support/printers.h>

#include <gtest/gtest.h>

/// A counter whose time the test sets.
struct CkPerformanceCounterPeer : CkPerformanceCounter
{
    explicit CkPerformanceCounterPeer(long long frequency)
    {
        m_frequency = frequency;
        m_reader = static_cast<long long (CkPerformanceCounter::*)() const>(&CkPerformanceCounterPeer::read);
    }

    long long read() const { return ticks; }

    long long ticks = 0;

    static long long ReadTicks() { return CkPerformanceCounter::GetInstance().getPerformanceCounterTC(); }
};

struct CkTimerPeer
{
    static void Use(CkTimer& timer, CkPerformanceCounter& counter) { timer.m_counter = &counter; }
};

namespace
{
constexpr auto seconds = CkTimer::eResolutionSeconds;
constexpr auto milliseconds = CkTimer::eResolutionMilliseconds;
constexpr auto microseconds = CkTimer::eResolutionMicroseconds;
constexpr auto nanoseconds = CkTimer::eResolutionNanoseconds;

CkTimer::EResolution perSecond(unsigned int units)
{
    return static_cast<CkTimer::EResolution>(units);
}

/// A millisecond timer on a counter of its own, which runs at 10 MHz.
struct TestTimer : CkTimer
{
    TestTimer() { CkTimerPeer::Use(*this, counter); }

    void Pass(long long ms) { counter.ticks += ms * 10000; }

    CkPerformanceCounterPeer counter{10000000};
};
} // namespace

TEST(CkTimer, adds_up_the_periods_in_which_it_runs)
{
    TestTimer timer;
    timer.Pass(5);
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(timer.GetElapsedTime(), 0u);
    timer.Start();
    timer.Pass(20);
    timer.Start();
    EXPECT_TRUE(timer.IsRunning());
    EXPECT_EQ(timer.GetElapsedTime(), 20u);
    timer.Stop();
    timer.Pass(7);
    timer.Stop();
    timer.Start();
    timer.Pass(30);
    EXPECT_EQ(timer.GetElapsedTime(), 50u);
    timer.Stop();
    timer.SetResolution(microseconds);
    EXPECT_EQ(timer.GetElapsedTime(), 50000u);
    EXPECT_EQ(CkTimer::GetFormatted(timer), CK_T("50'000\u00B5s"));
    timer.Reset();
    EXPECT_EQ(timer.GetElapsedTime(), 0u);
    EXPECT_FALSE(timer.IsRunning());
}

TEST(CkTimer, resetting_lets_it_run_from_nothing)
{
    TestTimer timer;
    timer.Start();
    timer.Pass(20);
    timer.Stop();
    timer.Start();
    timer.Pass(20);
    timer.Reset();
    EXPECT_TRUE(timer.IsRunning());
    EXPECT_EQ(timer.GetElapsedTime(), 0u);
    timer.Pass(3);
    EXPECT_EQ(timer.GetElapsedTime(), 3u);
}

TEST(CkTimer, subtracts_from_the_running_period)
{
    constexpr unsigned __int64 all = ~0ull;
    struct Row
    {
        const char* what;
        unsigned __int64 amount;
        unsigned int resolution;
        unsigned __int64 running; ///< What a timer of 100 + 50 ms reads then,
        unsigned __int64 later;   ///< what after another 100 ms,
        unsigned __int64 stopped; ///< and what when it was stopped before those.
    };
    const Row rows[] = {
        {"a part of the period", 30, 1000, 120, 220, 120},
        {"more than the period", 80, 1000, 70, 170, 70},
        {"more than has elapsed", 200, 1000, 0, 50, 0},
        {"more than there will ever be", all, 1000, 0, 0, 0},
        {"parts of a tick", 3, 40000000, 6000000, 10000000, 6000000},
        {"of a resolution that is none", 30, 0, 0, 0, 0},
    };
    for (const Row& row : rows)
    {
        TestTimer timer;
        timer.SetResolution(perSecond(row.resolution));
        timer.Start();
        timer.Pass(100);
        timer.Stop();
        timer.Subtract(all);
        timer.Start();
        timer.Pass(50);
        timer.Subtract(row.amount);
        CkTimer stopped = timer;
        stopped.Stop();
        EXPECT_EQ(timer.GetElapsedTime(), row.running) << row.what;
        timer.Pass(100);
        EXPECT_EQ(timer.GetElapsedTime(), row.later) << row.what;
        EXPECT_EQ(stopped.GetElapsedTime(), row.stopped) << row.what;
        timer.Subtract(all);
        timer.Subtract(all);
        EXPECT_EQ(timer.GetElapsedTime(), 0u) << row.what;
    }
}

TEST(CkTimer, converts_ticks_without_wrapping)
{
    constexpr long long most = 0x7FFFFFFFFFFFFFFF;
    struct Row
    {
        long long frequency;
        long long ticks;
        CkTimer::EResolution resolution;
        unsigned __int64 expected;
    };
    const Row rows[] = {
        {1000000000, 1999999999, seconds, 1},
        {1000000000, 1999999999, milliseconds, 1999},
        {1000000000, 1999999999, microseconds, 1999999},
        {1000000000, most, nanoseconds, most},
        {1000000000, most, perSecond(3), 27670116110ull},
        {10000000, 19999999, seconds, 1},
        {10000000, 19999999, milliseconds, 1999},
        {10000000, 19999999, microseconds, 1999999},
        {10000000, most, microseconds, most / 10},
        {10000000, 36000000000ll * 24, nanoseconds, 86400000000000ull},
        {10000000, most, nanoseconds, ~0ull},
        {10000000, 12345678, perSecond(256), 316},
        {3579545, 3579545ll * 86400 * 365, nanoseconds, 31536000000000000ull},
        {3579545, 3579544, seconds, 0},
        {1000, 0xFFFFFFFF, microseconds, 4294967295000ull},
        {1000, 1, perSecond(0xFFFFFFFF), 4294967},
    };
    for (const Row& row : rows)
    {
        CkPerformanceCounterPeer counter(row.frequency);
        CkTimer timer(row.resolution);
        CkTimerPeer::Use(timer, counter);
        timer.Start();
        counter.ticks = row.ticks;
        EXPECT_EQ(timer.GetElapsedTime(), row.expected) << row.ticks << " at " << row.frequency;
    }
}

TEST(CkTimer, writes_groups_of_thousands_and_the_unit)
{
    struct Row
    {
        unsigned __int64 value;
        CkTimer::EResolution resolution;
        const WCHAR* expected;
    };
    const Row rows[] = {
        {0, seconds, CK_T("0s")},
        {999, milliseconds, CK_T("999ms")},
        {1000, milliseconds, CK_T("1'000ms")},
        {100020, microseconds, CK_T("100'020\u00B5s")},
        {1000000, nanoseconds, CK_T("1'000'000ns")},
        {4294967296, seconds, CK_T("4'294'967'296s")},
        {18446744073709551615ull, seconds, CK_T("18'446'744'073'709'551'615s")},
        {5, perSecond(7), CK_T("5")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CkTimer::GetFormatted(row.value, row.resolution), row.expected);
}

TEST(CkPerformanceCounter, counts_the_same_time_as_the_system_ticks)
{
    const CkPerformanceCounter& counter = CkPerformanceCounter::GetInstance();
    const long long ticksBefore = CkPerformanceCounterPeer::ReadTicks();
    const long long before = counter.QueryPerformanceCounter();
    CkTimer timer;
    timer.Start();
    while (timer.GetElapsedTime() < 100)
    {
    }
    const long long elapsed = (counter.QueryPerformanceCounter() - before) * 1000 / counter.QueryPerformanceFrequency();
    const long long ticks = CkPerformanceCounterPeer::ReadTicks() - ticksBefore;
    EXPECT_GE(elapsed, 100);
    // Read outside the other, at most a tick of 16 ms off, and a while apart at worst.
    EXPECT_GE(ticks, elapsed - 20);
    EXPECT_LE(ticks, elapsed + 10000);
}
