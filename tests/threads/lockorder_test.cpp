#include <tarvo/tarvo.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

#if TARVO_CHECKED && GTEST_HAS_DEATH_TEST
namespace
{
/// Calls what it was given while the pool asks it whether it declines, under the pool's lock.
class Asked : public CkTask
{
public:
    explicit Asked(std::function<void()> asked) : m_asked(std::move(asked)) {}

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override { return true; }

    bool doNotRun() const override
    {
        m_asked();
        return false;
    }

private:
    std::function<void()> m_asked;
};

void addTask(std::function<void()> asked = [] {})
{
    CkThreadPool::GetInstance().AddTask(CkSmartPointer<CkTask>(new Asked(std::move(asked))),
                                        CkThreadPool::eTaskPriorityNormal);
}

/// Calls `action` under the lock of the log listener manager.
void whileListening(const std::function<void()>& action)
{
    bool called = false;
    const auto listener = [&](CkLogListenerManager::EEventType, const CString&, unsigned int, const CString&)
    {
        if (!std::exchange(called, true))
            action();
    };
    CkLogListenerManager& manager = CkLogListenerManager::GetInstance();
    manager.RegisterListener(CkLogListenerManager::eEventUser6, listener);
    manager.NotifyListeners(CkLogListenerManager::eEventUser6, CString(), 0, CString());
}

void askForSingleton()
{
    CkThreadPool::HasInstance();
}

/// They are made under the singleton lock, which is not for tasks and listeners to enter.
void makeSingletons()
{
    CkThreadPool::GetInstance();
    CkLogListenerManager::GetInstance();
}

/// Ends the process with 0, so that a test may change what stays.
[[noreturn]] void succeed()
{
    std::fputs("done\n", stderr);
    std::_Exit(0);
}

TEST(LockOrderDeathTest, a_lock_further_out_is_not_entered_even_if_it_is_free)
{
    makeSingletons();
    const CkThreadPoolShutdown guard;
    EXPECT_DEATH(whileListening([] { addTask(); }), "lock of the thread pool .* holds .* log listener manager");
    EXPECT_DEATH(whileListening(askForSingleton), "singleton lock .* holds .* log listener manager");
    EXPECT_DEATH(addTask(askForSingleton), "singleton lock .* holds .* thread pool");
}

TEST(LockOrderDeathTest, locks_further_in_and_locks_held_already_are_entered)
{
    struct Row
    {
        const char* what;
        std::function<void()> action;
    };
    const auto raise = [] { static_cast<void>(CkException(CK_T("test"), 1)); };
    const Row rows[] = {
        {"a listener sets all events", [] { whileListening(CkEvent::SetAll); }},
        {"a listener registers and reports", [raise] { whileListening([raise] { whileListening(raise); }); }},
        {"a task adds another as it is added", [] { addTask([] { addTask(); }); }},
        {"a task is added under the singleton lock",
         []
         {
             const CkCriticalSectionAuto guard(GetCriticalSectionSingleton());
             addTask(askForSingleton);
         }},
        {"a task reports as it is added", [] { addTask([] { whileListening(CkEvent::SetAll); }); }},
        {"the order is as before when all were left",
         []
         {
             whileListening([] {});
             addTask();
             askForSingleton();
         }},
    };
    makeSingletons();
    const CkThreadPoolShutdown guard;
    for (const Row& row : rows)
    {
        const auto run = [&row]
        {
            row.action();
            succeed();
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(0), "done") << row.what;
    }
}
} // namespace
#endif
