#include <tarvo/platform/kernel/kernel.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

namespace
{
/// Owns a semaphore's handle.
struct Semaphore
{
    Semaphore(LONG initial, LONG maximum) : handle(CreateSemaphoreW(nullptr, initial, maximum, nullptr)) {}
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    ~Semaphore()
    {
        if (handle != nullptr)
            CloseHandle(handle);
    }

    const HANDLE handle;
};
} // namespace

TEST(KernelSemaphore, refuses_counts_that_make_no_sense)
{
    struct Row
    {
        const char* what;
        LONG initial;
        LONG maximum;
        bool made;
    };
    const Row rows[] = {
        {"none of one", 0, 1, true},        {"all of the most", 0x7FFFFFFF, 0x7FFFFFFF, true},
        {"negative count", -1, 1, false},   {"maximum of none", 0, 0, false},
        {"negative maximum", 0, -1, false}, {"more than the maximum", 2, 1, false},
    };
    for (const Row& row : rows)
    {
        SetLastError(12345);
        const Semaphore semaphore(row.initial, row.maximum);
        EXPECT_EQ(semaphore.handle != nullptr, row.made) << row.what;
        EXPECT_EQ(GetLastError(), DWORD{row.made ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_INVALID_PARAMETER}}) << row.what;
    }
}

TEST(KernelSemaphore, counts_between_nothing_and_its_maximum)
{
    struct Row
    {
        const char* what;
        LONG initial;
        LONG maximum;
        LONG released;
        BOOL result;
        DWORD lastError;
        LONG previous;
        LONG waitsSatisfied;
    };
    const Row rows[] = {
        {"one unit", 0, 2, 1, TRUE, 12345, 0, 1},
        {"several units at once", 1, 5, 4, TRUE, 12345, 1, 5},
        {"beyond the maximum", 1, 2, 2, FALSE, ERROR_TOO_MANY_POSTS, -1, 1},
        {"beyond what a count can hold", 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, FALSE, ERROR_TOO_MANY_POSTS, -1, 3},
    };
    for (const Row& row : rows)
    {
        const Semaphore semaphore(row.initial, row.maximum);
        LONG previous = -1;
        SetLastError(12345);
        EXPECT_EQ(ReleaseSemaphore(semaphore.handle, row.released, &previous), row.result) << row.what;
        EXPECT_EQ(previous, row.previous) << row.what;
        if (!row.result)
        {
            EXPECT_EQ(GetLastError(), row.lastError) << row.what;
        }
        for (LONG i = 0; i < row.waitsSatisfied; ++i)
            EXPECT_EQ(WaitForSingleObject(semaphore.handle, 0), DWORD{WAIT_OBJECT_0}) << row.what;
        if (row.waitsSatisfied != 3)
        {
            EXPECT_EQ(WaitForSingleObject(semaphore.handle, 0), DWORD{WAIT_TIMEOUT}) << row.what;
        }
    }
}

TEST(KernelHandles, one_that_is_not_open_is_refused_by_every_call)
{
    HANDLE closed = nullptr;
    {
        const Semaphore semaphore(1, 1);
        closed = semaphore.handle;
    }
    const std::vector<HANDLE> handles = {nullptr, closed, reinterpret_cast<HANDLE>(0x7FFFFFFCll)};
    for (const HANDLE handle : handles)
    {
        SetLastError(12345);
        EXPECT_EQ(WaitForSingleObject(handle, 0), DWORD{WAIT_FAILED});
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
        SetLastError(12345);
        EXPECT_FALSE(ReleaseSemaphore(handle, 1, nullptr));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
        SetLastError(12345);
        EXPECT_FALSE(CloseHandle(handle));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    }
}

TEST(KernelHandles, many_are_distinct_and_come_back)
{
    for (int round = 0; round < 2; ++round)
    {
        std::vector<HANDLE> handles;
        for (int i = 0; i < 3000; ++i)
            handles.push_back(CreateSemaphoreW(nullptr, 0, 1, nullptr));
        EXPECT_EQ(std::set<HANDLE>(handles.begin(), handles.end()).size(), handles.size());
        EXPECT_EQ(std::set<HANDLE>(handles.begin(), handles.end()).count(nullptr), 0u);
        for (const HANDLE handle : handles)
            EXPECT_TRUE(CloseHandle(handle));
    }
}

TEST(KernelWait, ends_not_before_its_time)
{
    using namespace std::chrono;
    const Semaphore semaphore(0, 1);
    const auto start = steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(semaphore.handle, 20), DWORD{WAIT_TIMEOUT});
    const auto elapsed = steady_clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(19));
    EXPECT_LT(elapsed, seconds(10));
}

TEST(KernelWait, every_unit_satisfies_exactly_one_wait)
{
    constexpr int producers = 3;
    constexpr int units = 20000;
    const Semaphore semaphore(0, 0x7FFFFFFF);
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < producers; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int unit = 0; unit < units; unit += 2)
                    EXPECT_TRUE(ReleaseSemaphore(semaphore.handle, 2, nullptr));
            });
        threads.emplace_back(
            [&, patient = i == 0]
            {
                // The impatient ones give up and come again; a unit handed to one that gives up must not get lost.
                while (taken < producers * units)
                {
                    if (WaitForSingleObject(semaphore.handle, patient ? 10 : 1) == WAIT_OBJECT_0)
                        ++taken;
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(taken, producers * units);
    EXPECT_EQ(WaitForSingleObject(semaphore.handle, 0), DWORD{WAIT_TIMEOUT});
}

TEST(KernelWait, a_waiter_may_close_the_handle_as_soon_as_it_wakes)
{
    for (int round = 0; round < 2000; ++round)
    {
        const HANDLE semaphore = CreateSemaphoreW(nullptr, 0, 1, nullptr);
        std::thread signaller([semaphore] { EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, nullptr)); });
        EXPECT_EQ(WaitForSingleObject(semaphore, INFINITE), DWORD{WAIT_OBJECT_0});
        EXPECT_TRUE(CloseHandle(semaphore));
        // Takes the place of the closed one while the signalling call may still be under way.
        const Semaphore next(0, 1);
        EXPECT_EQ(WaitForSingleObject(next.handle, 0), DWORD{WAIT_TIMEOUT});
        signaller.join();
    }
}

TEST(KernelThread, ids_are_distinct_and_errors_are_each_threads_own)
{
    const DWORD own = GetCurrentThreadId();
    DWORD other = 0;
    std::thread(
        [&other]
        {
            other = GetCurrentThreadId();
            EXPECT_EQ(GetCurrentThreadId(), other);
            SetLastError(9);
        })
        .join();
    EXPECT_NE(own, 0u);
    EXPECT_NE(other, 0u);
    EXPECT_NE(own, other);
    EXPECT_NE(GetLastError(), 9u);
}

TEST(KernelTime, ticks_are_milliseconds)
{
    using namespace std::chrono;
    const auto start = steady_clock::now();
    const DWORD first = GetTickCount();
    const Semaphore semaphore(0, 1);
    WaitForSingleObject(semaphore.handle, 60);
    const DWORD ticks = GetTickCount() - first;
    const auto elapsed = duration_cast<milliseconds>(steady_clock::now() - start).count();
    EXPECT_GE(ticks, 60u - 20u);
    EXPECT_LE(ticks, static_cast<DWORD>(elapsed) + 20u);
}
