#include <tarvo/core/ckbreakpoint.h>
#include <tarvo/core/ckcheckreturn.h>
#include <tarvo/core/ckcondition.h>
#include <tarvo/core/ckexception.h>

#include <support/breakpoint.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace
{
using Manager = CkLogListenerManager;

/// Receives the reports of the types 1 to 4 while it lives.
class Conditions
{
public:
    struct Report
    {
        int type;
        CString fileName;
        unsigned int codeLine;
        CString message;

        bool operator==(const Report&) const = default;
    };

    explicit Conditions(bool throws = false) : m_throws(throws)
    {
        static const bool registered = (listen(), true);
        static_cast<void>(registered);
        s_current = this;
    }
    Conditions(const Conditions&) = delete;
    Conditions& operator=(const Conditions&) = delete;
    ~Conditions() { s_current = nullptr; }

    std::vector<Report> Take() { return std::exchange(m_reports, {}); }

    std::vector<int> TakeTypes()
    {
        std::vector<int> types;
        for (const Report& report : Take())
            types.push_back(report.type);
        return types;
    }

private:
    static void listen()
    {
        for (int type = Manager::eEventPreCondition; type <= Manager::eEventException; ++type)
            Manager::GetInstance().RegisterListener(static_cast<Manager::EEventType>(type), &receive);
    }

    static void receive(Manager::EEventType type, const CString& fileName, unsigned int codeLine,
                        const CString& message)
    {
        if (s_current == nullptr)
            return;
        s_current->m_reports.push_back({type, fileName, codeLine, message});
        if (s_current->m_throws)
            throw std::runtime_error("listener");
    }

    static inline Conditions* s_current = nullptr;
    const bool m_throws;
    std::vector<Report> m_reports;
};

using Types = std::vector<int>;

const WCHAR* const file = CK_T("c:\\src\\lib\\file1");

template <template <int> class Kind, int N>
void checkLevel(int type)
{
    SCOPED_TRACE("type " + std::to_string(type) + ", level " + std::to_string(N));
    Conditions conditions;
    Kind<N>(file, 12, [] { return true; });
    EXPECT_TRUE(conditions.Take().empty());
    std::optional<CkExceptionCondition> raised;
    int evaluations = 0;
    try
    {
        const Kind<N> condition(file, 12,
                                [&evaluations]
                                {
                                    ++evaluations;
                                    return evaluations > 1;
                                });
    }
    catch (const CkExceptionCondition& exception)
    {
        raised = exception;
    }
    EXPECT_EQ(raised.has_value(), N == 2);
    std::vector<Conditions::Report> expected = {{type, file, 12, CString()}};
    if (raised)
    {
        EXPECT_EQ(raised->GetFilename(), file);
        EXPECT_EQ(raised->GetCodeLine(), 12u);
        expected.push_back({Manager::eEventException, file, 12, CK_T("CkExceptionCondition")});
    }
    EXPECT_EQ(evaluations, type == Manager::eEventInvariant && N != 2 ? 2 : 1);
    EXPECT_EQ(conditions.Take(), N == 3 ? std::vector<Conditions::Report>() : expected);
}

template <template <int> class Kind>
void checkLevels(int type)
{
    checkLevel<Kind, 0>(type);
    checkLevel<Kind, 1>(type);
    checkLevel<Kind, 2>(type);
}
} // namespace

// A text that goes at the end of the line would be reported when it has long gone.
static_assert(!std::is_constructible_v<CkInvariant<0>, CString, unsigned int, bool (*)()>);
static_assert(std::is_constructible_v<CkInvariant<0>, const CString&, unsigned int, bool (*)()>);

TEST(Condition, failures_are_reported_and_at_level_2_raised)
{
    checkLevels<CkPreCondition>(Manager::eEventPreCondition);
    checkLevels<CkPostCondition>(Manager::eEventPostCondition);
    checkLevels<CkInvariant>(Manager::eEventInvariant);
}

TEST(Condition, level_3_evaluates_nothing)
{
    Conditions conditions;
    const auto fail = []() -> bool { throw std::runtime_error("evaluated"); };
    CkPreCondition<3> pre(file, 1, fail);
    const CkPostCondition<3> post(file, 1, fail);
    const CkInvariant<3> invariant(file, 1, fail);
    CkConditionBase<3> base(Manager::eEventInvariant, file, 1, fail);
    base = invariant;
    pre = CkPreCondition<3>(file, 2, {});
    pre.Evaluate();
    EXPECT_TRUE(pre.IsFulfilled());
    EXPECT_TRUE(conditions.Take().empty());
}

TEST(Condition, only_an_invariant_is_evaluated_when_it_goes_and_so_is_its_copy)
{
    Conditions conditions;
    bool holds = true;
    const auto condition = [&holds] { return holds; };
    {
        const CkPreCondition<0> pre(file, 1, condition);
        const CkPostCondition<0> post(file, 2, condition);
        const CkInvariant<0> invariant(file, 3, condition);
        const CkInvariant<0> copy = invariant;
        const CkPostCondition<0> copyOfPost = post;
        holds = false;
    }
    EXPECT_EQ(conditions.TakeTypes(), (Types{3, 3}));
}

TEST(Condition, is_evaluated_again_on_request)
{
    Conditions conditions;
    bool holds = false;
    CkPostCondition<1> condition(file, 1, [&holds] { return holds; });
    EXPECT_FALSE(condition.IsFulfilled());
    holds = true;
    condition.Evaluate();
    EXPECT_TRUE(condition.IsFulfilled());
    EXPECT_EQ(conditions.TakeTypes(), Types{2});
    condition = CkPostCondition<1>(file, 2, [] { return false; });
    EXPECT_FALSE(condition.IsFulfilled());
    EXPECT_EQ(conditions.TakeTypes(), Types{2}) << "copied, not evaluated";
}

TEST(Condition, a_missing_callable_raises_and_is_not_reported)
{
    Conditions conditions;
    EXPECT_THROW(CkPreCondition<0>(file, 1, {}), std::bad_function_call);
    EXPECT_THROW(CkInvariant<2>(file, 1, nullptr), std::bad_function_call);
    EXPECT_TRUE(conditions.Take().empty());
}

TEST(Condition, what_a_listener_raises_goes_to_the_code_that_stated_the_condition)
{
    Conditions conditions(true);
    EXPECT_THROW(CkPreCondition<0>(file, 1, [] { return false; }), std::runtime_error);
    EXPECT_THROW(CkPreCondition<2>(file, 1, [] { return false; }), std::runtime_error);
    EXPECT_EQ(conditions.TakeTypes(), (Types{1, 1})) << "no CkExceptionCondition was made";
}

TEST(Invariant, lets_nothing_out_while_another_exception_leaves_its_scope)
{
    for (const bool listenerThrows : {false, true})
    {
        Conditions conditions(listenerThrows);
        bool holds = true;
        const auto leave = [&holds]
        {
            const CkInvariant<2> strict(file, 1, [&holds] { return holds; });
            const CkInvariant<0> lax(file, 2, [&holds] { return holds; });
            const CkInvariant<1> raising(file, 2,
                                         [&holds] { return holds ? true : throw std::logic_error("condition"); });
            holds = false;
            throw std::range_error("the first one");
        };
        EXPECT_THROW(leave(), std::range_error);
        EXPECT_EQ(conditions.TakeTypes(), (Types{3, 3}));
    }
}

TEST(Invariant, works_in_what_runs_while_the_stack_is_unwound)
{
    struct Cleaner
    {
        int& raised;
        ~Cleaner()
        {
            try
            {
                bool holds = true;
                const CkInvariant<2> invariant(file, 1, [&holds] { return holds; });
                holds = false;
            }
            catch (const CkExceptionCondition&)
            {
                ++raised;
            }
        }
    };
    int raised = 0;
    const auto leave = [&raised]
    {
        const Cleaner cleaner{raised};
        throw std::range_error("the first one");
    };
    EXPECT_THROW(leave(), std::range_error);
    EXPECT_EQ(raised, 1) << "at the end of its own scope, which no exception leaves";
}

TEST(BreakPoint, stops_when_asked_to)
{
    EXPECT_EQ(BreakPoints::CountIn([] { CkBreakPoint::BreakIf(false); }), 0);
    EXPECT_EQ(BreakPoints::CountIn([] { CkBreakPoint::BreakIf(true); }), 1);
    EXPECT_EQ(BreakPoints::CountIn([] { CkBreakPoint::Break(); }), 1);
}

TEST(CheckReturn, complains_once_of_a_result_that_nobody_looked_at)
{
    static int complaints = 0;
    struct Policy
    {
        static void OnUnchecked() noexcept { ++complaints; }
    };
    using Result = CkCheckReturn<int, Policy>;
    struct Row
    {
        const char* what;
        void (*use)(Result first);
        int complaints;
    };
    const Row rows[] = {
        {"dropped", [](Result) {}, 1},
        {"converted", [](Result first) { EXPECT_EQ(first, 1); }, 0},
        {"asked for its value", [](Result first) { EXPECT_EQ(first.GetValue(), 1); }, 0},
        {"moved and looked at", [](Result first) { EXPECT_EQ(Result(std::move(first)), 1); }, 0},
        {"moved and dropped", [](Result first) { const Result second(std::move(first)); }, 1},
        {"taken out", [](Result first) { EXPECT_EQ(std::move(first).GetValue(), 1); }, 0},
        {"overwritten", [](Result first) { EXPECT_EQ(first = Result(2), 2); }, 1},
    };
    for (const Row& row : rows)
    {
        complaints = 0;
        row.use(Result(1));
        EXPECT_EQ(complaints, row.complaints) << row.what;
    }
}

TEST(CheckReturn, the_asserting_policy_traps_where_errors_are_checked)
{
    const auto drop = [] { const CkCheckReturn<bool> result(false); };
    if (TARVO_CHECKED)
    {
        EXPECT_DEATH(drop(), "not looked at");
    }
    else
        drop();
    const auto raise = []
    {
        const CkCheckReturn<bool> result(false);
        throw std::runtime_error("between");
    };
    EXPECT_THROW(raise(), std::runtime_error);
}
