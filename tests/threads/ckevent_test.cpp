#include <tarvo/tarvo.h>

#include <tarvo/containers/ckarraymanaged.h>

#include <support/reports.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace
{
using EventPointers = CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault>;

constexpr CkEvent::EWaitResult failed = CkEvent::eWaitFailed;
constexpr CkEvent::EWaitResult signaled = CkEvent::eWaitSignaled;
constexpr CkEvent::EWaitResult timeout = CkEvent::eWaitTimeout;

/// What a listener of trace messages is to do; listeners cannot be removed.
std::function<void(const CString&)> g_onTrace;

void listenToTraces(std::function<void(const CString&)> onTrace)
{
    static const bool registered = []
    {
        CkLogListenerManager::GetInstance().RegisterListener(
            CkLogListenerManager::eEventTrace,
            CkLogListenerManager::Listener(
                [](CkLogListenerManager::EEventType, const CString&, unsigned int, const CString& message)
                {
                    if (g_onTrace)
                        g_onTrace(message);
                }));
        return true;
    }();
    static_cast<void>(registered);
    g_onTrace = std::move(onTrace);
}
} // namespace

TEST(CkEvent, is_set_until_it_is_reset_or_has_satisfied_one_wait)
{
    CkEvent manual;
    EXPECT_EQ(manual.Wait(0), timeout);
    EXPECT_TRUE(manual.Set());
    EXPECT_EQ(manual.Wait(0xFFFFFFFF), signaled);
    EXPECT_TRUE(manual.IsSet());
    EXPECT_TRUE(manual.Pulse());
    EXPECT_FALSE(manual.IsSet());
    CkEvent automatic(false);
    EXPECT_TRUE(automatic.Set());
    EXPECT_TRUE(automatic.IsSet());
    EXPECT_FALSE(automatic.IsSet());
    EXPECT_EQ(automatic.Wait(1), timeout);
}

TEST(CkEvent, copies_share_the_flag_and_assignment_changes_it)
{
    CkEvent first;
    {
        CkEvent copy(first);
        CkEvent other(false);
        other = first;
        CkEvent& self = other;
        other = self;
        copy.Set();
        EXPECT_TRUE(first.IsSet());
        EXPECT_TRUE(other.IsSet());
        EXPECT_TRUE(other.Reset());
    }
    EXPECT_FALSE(first.IsSet());
    EXPECT_TRUE(first.Set());
}

TEST(CkEvent, waits_for_several_take_arrays_of_events_and_of_pointers)
{
    for (const unsigned int count : {0u, 1u, 3u, 64u, 65u})
    {
        CkArrayManaged<CkEvent, 0> events(count);
        EventPointers pointers;
        for (const CkEvent& event : events)
            pointers.AddTail(&event);
        const bool tooMany = count > 64;
        const CkEvent::EWaitResult nothingSet = count == 0 ? signaled : tooMany ? failed : timeout;
        unsigned int index = 1000;
        EXPECT_EQ(CkEvent::WaitForSingleEvent(events, 0, index), nothingSet) << count;
        EXPECT_EQ(CkEvent::WaitForSingleEvent(pointers, 0, index), nothingSet) << count;
        EXPECT_EQ(CkEvent::WaitForMultipleEvents(events, 0), nothingSet) << count;
        EXPECT_EQ(CkEvent::WaitForMultipleEvents(pointers, 1), nothingSet) << count;
        EXPECT_EQ(index, 1000u);
        if (count == 0 || tooMany)
            continue;
        for (unsigned int i = count; i-- > count / 2;)
            events[i].Set();
        EXPECT_EQ(CkEvent::WaitForSingleEvent(events, 0, index), signaled);
        EXPECT_EQ(index, count / 2);
        index = 1000;
        EXPECT_EQ(CkEvent::WaitForSingleEvent(pointers, 0xFFFFFFFF, index), signaled);
        EXPECT_EQ(index, count / 2);
        EXPECT_EQ(CkEvent::WaitForMultipleEvents(pointers, 0), count == 1 ? signaled : timeout);
        for (CkEvent& event : events)
            event.Set();
        EXPECT_EQ(CkEvent::WaitForMultipleEvents(events, 0xFFFFFFFF), signaled);
        EXPECT_EQ(CkEvent::WaitForMultipleEvents(pointers, 0xFFFFFFFF), signaled);
    }
}

TEST(CkEvent, set_all_reports_how_many_and_sets_them_whatever_a_listener_does)
{
    CString heard;
    listenToTraces([&heard](const CString& message) { heard = message; });
    CkEvent::SetAll();
    CString before = heard;
    {
        CkEvent events[3];
        CkArrayManaged<CkEvent, 0> array(2);
        array.InsertBefore(0, 1); // moves the others
        array.Remove(1);
        CkEvent::SetAll();
        for (const CkEvent& event : events)
            EXPECT_TRUE(event.IsSet());
        EXPECT_EQ(CkEvent::WaitForMultipleEvents(array, 0), signaled);
        EXPECT_NE(heard, before);
    }
    CkEvent::SetAll();
    EXPECT_EQ(heard, before); // none is left behind

    CkEvent one;
    listenToTraces(
        [](const CString&)
        {
            CkEvent created;
            throw 7;
        });
    EXPECT_THROW(CkEvent::SetAll(), int);
    EXPECT_TRUE(one.IsSet());
    listenToTraces({});
}

// One thread holds the lock of all reports and creates events, while the other sets them all and reports.
TEST(CkEvent, set_all_does_not_hang_with_listeners_and_threads_that_make_events)
{
    std::atomic<bool> end{false};
    listenToTraces([](const CString&) { CkEvent created; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
    {
        threads.emplace_back(
            [&]
            {
                while (!end)
                {
                    std::vector<CkEvent> events(8);
                    events[1] = events[0];
                    events[2].Set();
                    CkLogListenerManager::GetInstance().NotifyListeners(CkLogListenerManager::eEventTrace, CString(), 1,
                                                                        CString());
                    const CkEvent copy(events[3]);
                }
            });
    }
    CkEvent survivor;
    for (int i = 0; i < 300; ++i)
    {
        survivor.Reset();
        CkEvent::SetAll();
        EXPECT_TRUE(survivor.IsSet());
    }
    end = true;
    for (std::thread& thread : threads)
        thread.join();
    listenToTraces({});
}
