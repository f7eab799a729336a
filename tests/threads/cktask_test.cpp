#include <tarvo/tarvo.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace
{
/// Thrown as a pointer, so that whoever handles it deletes it.
struct CountedException : CException
{
    CountedException() { ++s_alive; }
    ~CountedException() override { --s_alive; }
    static inline std::atomic<int> s_alive{0};
};

/// Notes the hooks that are called and does in one of them what it is told.
struct Recorder : CkTask
{
    enum Deed
    {
        nothing,
        refuse,
        raise,
        raiseOther,
        raisePointer
    };

    Recorder(const char* at, Deed what) : hook(at), deed(what) {}

    const std::string hook;
    const Deed deed;
    bool raisesInHandler = false;
    std::string calls;

    using CkTask::onAdd;

private:
    bool call(const char* name)
    {
        calls += name;
        if (hook != name || deed == nothing)
            return true;
        if (deed == raise)
            throw CkExceptionStream(CK_T("test"), 7);
        if (deed == raiseOther)
            throw 7;
        if (deed == raisePointer)
            throw new CountedException;
        return false;
    }

    void onBeforeRun() override { call("B"); }
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override { return call("R"); }
    void onAfterRun() override { call("A"); }

    void onException(const CkException* exception) override
    {
        calls += exception == nullptr ? "?" : exception->GetCodeLine() == 7 ? "!" : "wrong";
        if (raisesInHandler)
            throw 8;
    }
};
} // namespace

TEST(CkTask, runs_its_hooks_until_one_fails)
{
    struct Row
    {
        const char* hook;
        Recorder::Deed deed;
        const char* calls;
        bool successful;
    };
    const Row rows[] = {
        {"", Recorder::nothing, "BRA", true},        {"B", Recorder::raise, "B!", false},
        {"B", Recorder::raiseOther, "B?", false},    {"R", Recorder::refuse, "BR", false},
        {"R", Recorder::raise, "BR!", false},        {"A", Recorder::raise, "BRA!", false},
        {"A", Recorder::raiseOther, "BRA?", false},  {"B", Recorder::raisePointer, "B?", false},
        {"R", Recorder::raisePointer, "BR?", false}, {"A", Recorder::raisePointer, "BRA?", false},
    };
    for (const Row& row : rows)
    {
        for (const bool raisesInHandler : {false, true})
        {
            const CkSmartPointer<Recorder> task(new Recorder(row.hook, row.deed));
            task->raisesInHandler = raisesInHandler;
            EXPECT_FALSE(task->WaitUntilTerminate(0));
            const bool handled = row.deed >= Recorder::raise;
            if (raisesInHandler && handled)
                EXPECT_THROW(task->Run(), int);
            else
                EXPECT_NO_THROW(task->Run());
            EXPECT_EQ(task->calls, row.calls);
            EXPECT_EQ(task->IsSuccessful(), row.successful) << row.calls;
            EXPECT_TRUE(task->WaitUntilTerminate(0)) << row.calls;
            EXPECT_EQ(CountedException::s_alive, 0) << row.calls;
        }
    }
}

TEST(CkTask, a_copy_shares_the_terminated_event)
{
    const CkSmartPointer<Recorder> task(new Recorder("", Recorder::nothing));
    const CkSmartPointer<Recorder> copy(new Recorder(*task));
    copy->Run();
    EXPECT_TRUE(task->WaitUntilTerminate(0));
    EXPECT_FALSE(task->IsSuccessful());
    const CkSmartPointer<Recorder> another(new Recorder("R", Recorder::refuse));
    static_cast<CkTask&>(*another) = *task;
    EXPECT_TRUE(another->WaitUntilTerminate(0));
}

// The kernel has an event for a task only where somebody asked for it. Neither way may show.
TEST(CkTask, its_event_is_the_same_with_and_without_the_kernel)
{
    for (const bool made : {false, true})
    {
        const CkSmartPointer<Recorder> task(new Recorder("", Recorder::nothing));
        EXPECT_FALSE(made && task->GetTerminatedEvent().IsSet());
        task->Run();
        EXPECT_TRUE(task->WaitUntilTerminate(0)) << made;
        task->onAdd();
        EXPECT_FALSE(task->WaitUntilTerminate(0)) << made;
        CkEvent::SetAll();
        EXPECT_TRUE(task->WaitUntilTerminate(0)) << made;
        EXPECT_TRUE(task->GetTerminatedEvent().IsSet()) << made;
        task->onAdd();
        EXPECT_FALSE(task->GetTerminatedEvent().IsSet()) << made;
    }
    const CkSmartPointer<Recorder> young(new Recorder("", Recorder::nothing));
    EXPECT_FALSE(young->GetTerminatedEvent().IsSet());
}

TEST(CkTask, its_event_comes_to_be_while_others_set_and_reset_it)
{
    const auto setAll = [](Recorder&) { CkEvent::SetAll(); };
    const auto run = [](Recorder& task) { task.Run(); };
    const auto addAndRun = [](Recorder& task) { task.onAdd(), task.Run(); };
    for (void (*const deed)(Recorder&) : {+setAll, +run, +addAndRun})
    {
        for (int round = 0; round < 500; ++round)
        {
            const CkSmartPointer<Recorder> task(new Recorder("", Recorder::nothing));
            std::atomic<int> ready{0};
            const auto together = [&](auto action)
            {
                ++ready;
                while (ready != 3)
                    std::this_thread::yield();
                action();
            };
            const CkEvent* seen = nullptr;
            std::thread waiter([&] { together([&] { EXPECT_TRUE(task->WaitUntilTerminate(INFINITE)); }); });
            std::thread asker([&] { together([&] { seen = &task->GetTerminatedEvent(); }); });
            together([&] { deed(*task); });
            waiter.join();
            asker.join();
            ASSERT_EQ(seen, &task->GetTerminatedEvent());
            ASSERT_TRUE(seen->IsSet());
        }
    }
}

TEST(CkTask, its_event_comes_to_be_not_set_while_it_is_reset_whoever_has_set_it)
{
    for (const bool byAll : {false, true})
    {
        for (int round = 0; round < 500; ++round)
        {
            const CkSmartPointer<Recorder> task(new Recorder("", Recorder::nothing));
            if (!byAll)
                task->Run();
            std::atomic<int> ready{0};
            const auto meet = [&ready]
            {
                ++ready;
                while (ready != 2)
                    std::this_thread::yield();
            };
            std::thread asker([&] { meet(), task->GetTerminatedEvent(); });
            meet();
            if (byAll)
                CkEvent::SetAll();
            task->onAdd();
            asker.join();
            ASSERT_FALSE(task->GetTerminatedEvent().IsSet()) << byAll;
        }
    }
}

namespace
{
struct Worker
{
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> Run()
    {
        ++runs;
        if (release.Wait(INFINITE) != CkEvent::eWaitSignaled || raises)
            throw 7;
        return succeeds;
    }

    CkEvent release;
    std::atomic<int> runs{0};
    bool succeeds = true;
    bool raises = false;
};

using WorkerBase = CkThread<Worker, CkThreadPolicyMFC>;

struct TestThread : WorkerBase
{
    explicit TestThread(Worker& worker) : WorkerBase(&worker, &Worker::Run, CK_T("TestThread")) {}
    explicit TestThread(Worker& worker, std::atomic<int>& deleted) : TestThread(worker)
    {
        m_deleted = &deleted;
        setDeleteOnExit();
    }

    ~TestThread() override
    {
        if (m_deleted != nullptr)
            ++*m_deleted;
    }

    bool raisesAtStart = false;
    std::atomic<bool> started{false};
    std::string ends;

protected:
    void onThreadStart() override
    {
        started = true;
        if (raisesAtStart)
            throw 7;
    }

    void onThreadEnd(int reserved) override { ends += reserved == 0 ? "e" : "wrong"; }

private:
    std::atomic<int>* m_deleted = nullptr;
};
} // namespace

struct CkThreadPeer
{
    template <class Thread>
    static unsigned int State(const Thread& thread)
    {
        return thread.m_state;
    }

    template <class Thread>
    static DWORD ExitCode(const Thread& thread)
    {
        DWORD code = 12345;
        GetExitCodeThread(thread.m_handle, &code);
        return code;
    }
};

TEST(CkThread, tells_how_it_went_and_can_start_again)
{
    Worker worker;
    TestThread thread(worker);
    EXPECT_FALSE(thread.WaitUntilTerminate(0));
    struct Row
    {
        bool succeeds;
        bool raises;
        bool raisesAtStart;
        unsigned int state;
        DWORD code;
        const char* ends;
        int runs;
    };
    const Row rows[] = {
        {true, false, false, 5, 0, "e", 1},
        {false, false, false, 21, 1, "", 1},
        {true, true, false, 21, 1, "", 1},
        {true, false, true, 21, 1, "", 0},
    };
    for (const Row& row : rows)
    {
        worker.release.Reset();
        worker.succeeds = row.succeeds;
        worker.raises = row.raises;
        worker.runs = 0;
        thread.raisesAtStart = row.raisesAtStart;
        thread.started = false;
        thread.ends.clear();
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(thread.started);
        if (!row.raisesAtStart)
        {
            EXPECT_EQ(CkThreadPeer::State(thread) & ~2u, 1u);
            EXPECT_FALSE(thread.Start()); // and leaves it alone
            EXPECT_FALSE(thread.WaitUntilTerminate(0));
            EXPECT_FALSE(thread.GetTerminatedEvent().IsSet());
        }
        worker.release.Set();
        EXPECT_TRUE(thread.WaitUntilTerminate(INFINITE));
        EXPECT_TRUE(thread.GetTerminatedEvent().IsSet());
        EXPECT_EQ(CkThreadPeer::State(thread), row.state);
        EXPECT_EQ(CkThreadPeer::ExitCode(thread), row.code);
        EXPECT_EQ(thread.ends, row.ends);
        EXPECT_EQ(worker.runs, row.runs);
    }
}

#if !TARVO_THREAD_SANITIZER && !TARVO_ADDRESS_SANITIZER // they do not hear of such an end, and miss the thread

TEST(CkThread, is_ended_by_force_or_by_its_destruction)
{
    Worker worker;
    {
        TestThread thread(worker);
        ASSERT_TRUE(thread.Start());
        thread.Terminate();
        EXPECT_EQ(CkThreadPeer::State(thread), 4u);
        EXPECT_FALSE(thread.WaitUntilTerminate(0));
        ASSERT_TRUE(thread.Start()); // as a new one
    }
    worker.release.Set(); // nobody is left who would hear it
    EXPECT_LE(worker.runs, 2);
}

#endif

TEST(CkThread, one_that_deletes_itself_may_be_gone_before_start_returns)
{
    std::atomic<int> deleted{0};
    Worker worker;
    worker.release.Set();
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE((new TestThread(worker, deleted))->Start());
    while (deleted != 200)
        std::this_thread::yield();
    EXPECT_EQ(worker.runs, 200);
}

TEST(CkThread, starts_while_somebody_sets_all_events)
{
    std::atomic<bool> end{false};
    std::thread setter(
        [&]
        {
            while (!end)
                CkEvent::SetAll();
        });
    Worker worker;
    TestThread thread(worker);
    for (int i = 0; i < 300; ++i)
    {
        thread.started = false;
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(thread.started);
        EXPECT_TRUE(thread.WaitUntilTerminate(INFINITE));
    }
    end = true;
    setter.join();
}
