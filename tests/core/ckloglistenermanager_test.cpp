#include <tarvo/core/ckexception.h>
#include <tarvo/core/ckloglistenermanager.h>

#include <support/barrier.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <regex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{
using Manager = CkLogListenerManager;
using Type = Manager::EEventType;

Manager& manager()
{
    return Manager::GetInstance();
}

void report(Type type, const CString& message = CString())
{
    manager().NotifyListeners(type, CK_T("file"), 5, message);
}

/// Notes which of its listeners are called, and with what last. The listeners stay in the manager for ever, but do
/// nothing after their log has gone.
class Log
{
public:
    void Listen(Type type, const CString& name, const CString& filter = CString(), std::function<void()> then = {})
    {
        const auto listener = [notes = std::weak_ptr(m_notes), name, then](
                                  Type reported, const CString& fileName, unsigned int codeLine, const CString& message)
        {
            const auto alive = notes.lock();
            if (!alive)
                return;
            *alive = {alive->names + name, reported, fileName, codeLine, message};
            if (then)
                then();
        };
        manager().RegisterListener(type, listener, filter);
    }

    struct Notes
    {
        CString names;
        Type type = Manager::eEventUser0;
        CString fileName;
        unsigned int codeLine = 0;
        CString message;

        bool operator==(const Notes&) const = default;
    };

    /// What was noted since the last look.
    Notes TakeAll() { return std::exchange(*m_notes, Notes()); }
    CString Take() { return TakeAll().names; }

private:
    std::shared_ptr<Notes> m_notes = std::make_shared<Notes>();
};
} // namespace

TEST(LogListenerManager, calls_the_listeners_of_a_type_in_order_with_the_report)
{
    Log log;
    log.Listen(Manager::eEventUser5, CK_T("a"));
    log.Listen(Manager::eEventUser6, CK_T("x"));
    log.Listen(Manager::eEventUser5, CK_T("b"));
    report(Manager::eEventUser5, CK_T("message"));
    EXPECT_EQ(log.TakeAll(), (Log::Notes{CK_T("ab"), Manager::eEventUser5, CK_T("file"), 5, CK_T("message")}));
    report(Manager::eEventUser6);
    EXPECT_EQ(log.Take(), CK_T("x"));

    log.Listen(Manager::eEventException, CK_T("all "));
    log.Listen(Manager::eEventException, CK_T("streams "), CK_T("Stream"));
    const CkExceptionStream first(CK_T("place"), 1);
    EXPECT_EQ(log.TakeAll(), (Log::Notes{CK_T("all streams "), Manager::eEventException, CK_T("place"), 1,
                                         CK_T("CkExceptionStream")}));
    const CkException second(CK_T("place"), 1);
    EXPECT_EQ(log.Take(), CK_T("all "));
}

TEST(LogListenerManager, filters_select_by_the_message_alone)
{
    struct Row
    {
        const WCHAR* filter;
        const WCHAR* message;
        bool called;
    };
    const Row rows[] = {
        {CK_T("^$"), CK_T(""), true},
        {CK_T("file"), CK_T(""), false},
        {CK_T(""), CK_T("anything"), true},
        {CK_T(""), CK_T(""), true},
    };
    for (const Row& row : rows)
    {
        Log log;
        log.Listen(Manager::eEventUser0, CK_T("called"), row.filter);
        report(Manager::eEventUser0, row.message);
        EXPECT_EQ(!log.Take().IsEmpty(), row.called) << CString(row.filter).ToUtf8();
    }
}

TEST(LogListenerManager, a_refused_registration_leaves_all_as_it_was)
{
    Log log;
    EXPECT_THROW(log.Listen(Manager::eEventUser0, CK_T("bad"), CK_T("(")), std::regex_error);
    for (const int number : {8, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
    {
        EXPECT_THROW(log.Listen(static_cast<Type>(number), CK_T("odd")), CkExceptionPreconditionViolation);
        report(static_cast<Type>(number));
    }
    for (int type = 0; type < 8; ++type)
        report(static_cast<Type>(type));
    EXPECT_EQ(log.Take(), CK_T(""));
}

TEST(LogListenerManager, a_listener_may_report_raise_and_register)
{
    Log log;
    log.Listen(Manager::eEventUser6, CK_T("inner "));
    log.Listen(Manager::eEventException, CK_T("exception "));
    bool added = false;
    log.Listen(Manager::eEventUser0, CK_T("first "), CString(),
               [&]
               {
                   report(Manager::eEventUser6);
                   const CkException exception(CK_T("file"), 1);
                   if (!std::exchange(added, true))
                       log.Listen(Manager::eEventUser0, CK_T("added "));
               });
    report(Manager::eEventUser0);
    EXPECT_EQ(log.Take(), CK_T("first inner exception ")) << "the new one is not called yet";
    report(Manager::eEventUser0);
    EXPECT_EQ(log.Take(), CK_T("first inner exception added "));
}

TEST(LogListenerManager, what_a_listener_raises_ends_the_report_and_frees_the_lock)
{
    Log log;
    log.Listen(Manager::eEventUser5, CK_T("throws "), CString(), [] { throw std::runtime_error("listener"); });
    log.Listen(Manager::eEventUser5, CK_T("behind "));
    EXPECT_THROW(report(Manager::eEventUser5), std::runtime_error);
    EXPECT_EQ(log.Take(), CK_T("throws "));
    std::thread([] { EXPECT_THROW(report(Manager::eEventUser5), std::runtime_error); }).join();

    manager().RegisterListener(Manager::eEventUser0, Manager::Listener(), CK_T("^for the empty listener$"));
    EXPECT_THROW(report(Manager::eEventUser0, CK_T("for the empty listener")), CkException);
}

TEST(LogListenerManager, threads_report_and_register_at_once)
{
    constexpr int threadCount = 4;
    constexpr int rounds = 100;
    struct Calls
    {
        int first = 0; // not atomic: reports exclude each other
        int added = 0;
    };
    const auto calls = std::make_shared<Calls>();
    const auto count = [&calls](int Calls::*which)
    {
        return [alive = std::weak_ptr(calls), which](Type, const CString&, unsigned int, const CString&)
        {
            if (const auto counted = alive.lock())
                ++((*counted).*which);
        };
    };
    const CString filter = CK_T("^thread (one|two)$");
    manager().RegisterListener(Manager::eEventUser5, count(&Calls::first), filter);
    Barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                start.Arrive();
                for (int round = 0; round < rounds; ++round)
                {
                    report(Manager::eEventUser5, i % 2 == 0 ? CK_T("thread one") : CK_T("thread two"));
                    if (round % 10 == 0)
                        manager().RegisterListener(Manager::eEventUser5, count(&Calls::added), filter);
                    const CkException exception(CK_T("file"), 1);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(calls->first, threadCount * rounds);
    calls->added = 0;
    report(Manager::eEventUser5, CK_T("thread one"));
    EXPECT_EQ(calls->added, threadCount * rounds / 10);
}
