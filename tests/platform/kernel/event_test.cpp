#include <tarvo/platform/kernel/kernel.h>

#include <support/barrier.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace
{
/// Owns a handle.
struct Handle
{
    explicit Handle(HANDLE owned) : value(owned) {}
    Handle(Handle&& other) noexcept : value(std::exchange(other.value, nullptr)) {}
    Handle& operator=(Handle&&) = delete;
    ~Handle()
    {
        if (value != nullptr)
            CloseHandle(value);
    }

    HANDLE value;
};

Handle makeEvent(bool manual, bool set = false)
{
    return Handle(CreateEventW(nullptr, manual, set, nullptr));
}

Handle duplicate(HANDLE source)
{
    HANDLE result = nullptr;
    DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &result, 0, TRUE, DUPLICATE_SAME_ACCESS);
    return Handle(result);
}

DWORD probe(HANDLE handle)
{
    return WaitForSingleObject(handle, 0);
}

constexpr DWORD set = WAIT_OBJECT_0;
constexpr DWORD notSet = WAIT_TIMEOUT;
} // namespace

TEST(KernelEvent, what_each_call_leaves)
{
    enum Call
    {
        setIt,
        resetIt,
        pulseIt,
        waitForIt
    };
    struct Row
    {
        bool manual;
        bool initially;
        Call call;
        DWORD result;
        DWORD after;
    };
    const Row rows[] = {
        {true, false, setIt, TRUE, set},          {true, true, setIt, TRUE, set},
        {true, false, resetIt, TRUE, notSet},     {true, true, resetIt, TRUE, notSet},
        {true, false, pulseIt, TRUE, notSet},     {true, true, pulseIt, TRUE, notSet},
        {true, false, waitForIt, notSet, notSet}, {true, true, waitForIt, set, set},
        {false, false, setIt, TRUE, set},         {false, true, setIt, TRUE, set},
        {false, true, resetIt, TRUE, notSet},     {false, true, pulseIt, TRUE, notSet},
        {false, true, waitForIt, set, notSet},    {false, false, waitForIt, notSet, notSet},
    };
    // Through the handle that the event was made with, and through another one.
    for (const bool through : {false, true})
    {
        for (const Row& row : rows)
        {
            const Handle event = makeEvent(row.manual, row.initially);
            const Handle other = duplicate(event.value);
            ASSERT_NE(other.value, nullptr);
            const HANDLE used = through ? other.value : event.value;
            DWORD result = 0;
            switch (row.call)
            {
            case setIt: result = static_cast<DWORD>(SetEvent(used)); break;
            case resetIt: result = static_cast<DWORD>(ResetEvent(used)); break;
            case pulseIt: result = static_cast<DWORD>(PulseEvent(used)); break;
            case waitForIt: result = probe(used); break;
            }
            const auto number = &row - rows;
            EXPECT_EQ(result, row.result) << number;
            EXPECT_EQ(probe(through ? event.value : other.value), row.after) << number;
        }
    }
}

TEST(KernelEvent, a_duplicate_keeps_the_object_and_other_handles_are_refused)
{
    const Handle semaphore(CreateSemaphoreW(nullptr, 0, 1, nullptr));
    Handle event = makeEvent(true);
    const Handle other = duplicate(event.value);
    // No other may be made from here on, which could get the number of the closed one.
    const HANDLE closed = std::exchange(event.value, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    for (const HANDLE handle : {closed, HANDLE{nullptr}, semaphore.value})
    {
        BOOL(*const calls[])
        (HANDLE) = {[](HANDLE h) { return SetEvent(h); }, [](HANDLE h) { return ResetEvent(h); },
                    [](HANDLE h) { return PulseEvent(h); }};
        for (const auto call : calls)
        {
            SetLastError(12345);
            EXPECT_FALSE(call(handle));
            EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
        }
    }
    SetLastError(12345);
    EXPECT_EQ(duplicate(closed).value, nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    const HANDLE several[] = {other.value, closed};
    SetLastError(12345);
    EXPECT_EQ(WaitForMultipleObjects(2, several, FALSE, 0), DWORD{WAIT_FAILED});
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_TRUE(SetEvent(other.value));
    EXPECT_EQ(probe(duplicate(other.value).value), set);
}

TEST(KernelWait, for_any_takes_the_lowest_alone)
{
    std::vector<Handle> events;
    std::array<HANDLE, 65> handles{};
    for (std::size_t i = 0; i < handles.size(); ++i)
    {
        events.push_back(makeEvent(false));
        handles[i] = events.back().value;
    }
    EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), FALSE, 0), DWORD{WAIT_TIMEOUT});
    for (const std::size_t i : {7u, 3u, 63u})
        SetEvent(handles[i]);
    for (const DWORD expected : {DWORD{3}, DWORD{7}, DWORD{63}, DWORD{WAIT_TIMEOUT}})
        EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), FALSE, expected == WAIT_TIMEOUT ? 5 : INFINITE), expected);
    for (const DWORD count : {DWORD{0}, DWORD{65}})
    {
        SetLastError(12345);
        EXPECT_EQ(WaitForMultipleObjects(count, handles.data(), FALSE, 0), DWORD{WAIT_FAILED});
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    }
}

TEST(KernelWait, for_all_consumes_nothing_on_timeout)
{
    struct Row
    {
        const char* what;
        bool secondSet;
        DWORD expected;
        DWORD firstAfter;
    };
    const Row rows[] = {
        {"only one of two is set", false, WAIT_TIMEOUT, set},
        {"both are set", true, WAIT_OBJECT_0, notSet},
    };
    for (const DWORD timeoutMs : {DWORD{0}, DWORD{5}})
    {
        for (const Row& row : rows)
        {
            const Handle first = makeEvent(false, true);
            const Handle second = makeEvent(false, row.secondSet);
            const HANDLE both[] = {first.value, second.value};
            EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, timeoutMs), row.expected) << row.what;
            EXPECT_EQ(probe(first.value), row.firstAfter) << row.what;
            EXPECT_EQ(probe(second.value), notSet) << row.what;
        }
    }
}

TEST(KernelWait, for_all_leaves_signals_to_others_until_all_are_there)
{
    const Handle first = makeEvent(false);
    const Handle second(CreateSemaphoreW(nullptr, 0, 10, nullptr));
    const HANDLE both[] = {first.value, second.value};
    std::atomic<bool> ended{false};
    std::thread waiter(
        [&]
        {
            EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, INFINITE), DWORD{WAIT_OBJECT_0});
            ended = true;
        });
    for (int i = 0; i < 200; ++i)
    {
        SetEvent(first.value);
        EXPECT_EQ(probe(first.value), set);
        ReleaseSemaphore(second.value, 1, nullptr);
        EXPECT_EQ(probe(second.value), set);
    }
    EXPECT_FALSE(ended);
    SetEvent(first.value);
    ReleaseSemaphore(second.value, 2, nullptr);
    waiter.join();
    EXPECT_EQ(probe(first.value), notSet);
    EXPECT_EQ(probe(second.value), set);
    EXPECT_EQ(probe(second.value), notSet);
}

TEST(KernelWait, a_pulse_wakes_who_waits_and_nobody_later)
{
    for (const bool manual : {false, true})
    {
        const Handle event = makeEvent(manual);
        std::atomic<int> woken{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 2; ++i)
        {
            waiters.emplace_back(
                [&]
                {
                    EXPECT_EQ(WaitForSingleObject(event.value, INFINITE), set);
                    ++woken;
                });
        }
        // Nobody can know when a thread is asleep.
        while (woken != 2)
        {
            PulseEvent(event.value);
            std::this_thread::yield();
        }
        for (std::thread& waiter : waiters)
            waiter.join();
        EXPECT_EQ(probe(event.value), notSet);
    }
}

// Waits for one, any and all over the same few objects by threads that give up and come again, while handles come and
// go: every signal satisfies exactly one wait, none is lost.
TEST(KernelWait, no_signal_is_lost_or_taken_twice)
{
    constexpr int objects = 5;
    constexpr int signallers = 2;
    constexpr int perSignaller = 5000;
    std::vector<Handle> handles;
    for (int i = 0; i < objects; ++i)
        handles.emplace_back(CreateSemaphoreW(nullptr, 0, 0x7FFFFFFF, nullptr));
    std::atomic<int> taken{0};
    std::atomic<int> given{0};
    std::atomic<bool> end{false};
    std::vector<std::thread> threads;
    for (int seed = 0; seed < signallers; ++seed)
    {
        threads.emplace_back(
            [&, seed]
            {
                for (int i = 0; i < perSignaller; ++i)
                {
                    EXPECT_TRUE(ReleaseSemaphore(handles[static_cast<std::size_t>((i * 7 + seed) % objects)].value, 1,
                                                 nullptr));
                    ++given;
                }
            });
    }
    for (int kind = 0; kind < 4; ++kind)
    {
        threads.emplace_back(
            [&, kind]
            {
                for (int round = 0; !end; ++round)
                {
                    const Handle own = duplicate(handles[static_cast<std::size_t>(round % objects)].value);
                    const HANDLE next = handles[static_cast<std::size_t>((round + 1) % objects)].value;
                    const HANDLE three[] = {own.value, next,
                                            handles[static_cast<std::size_t>((round + 2) % objects)].value};
                    const DWORD timeoutMs = static_cast<DWORD>(round % 3);
                    if (kind == 0)
                        taken += WaitForSingleObject(own.value, timeoutMs) == WAIT_OBJECT_0 ? 1 : 0;
                    else if (kind == 1)
                        taken += WaitForMultipleObjects(3, three, TRUE, timeoutMs) == WAIT_OBJECT_0 ? 3 : 0;
                    else
                        taken += WaitForMultipleObjects(3, three, FALSE, timeoutMs) < WAIT_OBJECT_0 + 3 ? 1 : 0;
                }
            });
    }
    threads[0].join();
    threads[1].join();
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (taken != given && std::chrono::steady_clock::now() < giveUp)
        std::this_thread::yield();
    end = true;
    for (std::size_t i = signallers; i < threads.size(); ++i)
        threads[i].join();
    EXPECT_EQ(taken, signallers * perSignaller);
    for (const Handle& handle : handles)
        EXPECT_EQ(probe(handle.value), notSet);
}

TEST(KernelWait, an_object_lives_as_long_as_somebody_waits_for_it)
{
    for (int round = 0; round < 300; ++round)
    {
        Handle event = makeEvent(true);
        const Handle other = duplicate(event.value);
        Barrier barrier(2);
        std::thread waiter(
            [&]
            {
                const HANDLE waited = event.value;
                barrier.Arrive();
                const DWORD result = WaitForSingleObject(waited, INFINITE);
                // The wait may also begin after the handle was closed.
                EXPECT_TRUE(result == set || (result == WAIT_FAILED && GetLastError() == ERROR_INVALID_HANDLE));
            });
        barrier.Arrive();
        CloseHandle(std::exchange(event.value, nullptr));
        SetEvent(other.value);
        waiter.join();
    }
}
