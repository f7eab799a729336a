#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckinttotype.h>
#include <tarvo/core/ckloglistenermanager.h>
#include <tarvo/platform/kernel/kernel.h>

#include <concepts>
#include <functional>

/// A condition of a contract, as an object at the place where it must hold: evaluates a callable and reports to the log
/// listeners, with the place and an empty message, when that says false. `N` is the strength of the check.
///
/// | N | a condition that does not hold                           |
/// |---|----------------------------------------------------------|
/// | 0 | is reported                                              |
/// | 1 | is reported                                              |
/// | 2 | is reported, and raised as `CkExceptionCondition`        |
/// | 3 | is never evaluated; the object holds nothing             |
///
/// Threads: a condition is for one thread.
/// Lifetime: the file name is not copied and must outlive the condition; a literal is meant, and a temporary is refused.
/// Failure: construction and `Evaluate` raise what the callable raises, `std::bad_function_call` when there is none,
/// and what a listener raises, at level 2 in place of the `CkExceptionCondition`.
template <int N>
class CkConditionBase
{
    static_assert(N >= 0 && N <= 2, "the levels are 0 to 3");

public:
    using EEventType = CkLogListenerManager::EEventType;

    /// Evaluates at once.
    CkConditionBase(EEventType eventType, const WCHAR* fileName, unsigned int codeLine,
                    std::function<bool()> condition);

    /// Copying and destroying evaluate nothing.
    CkConditionBase(const CkConditionBase&);
    CkConditionBase& operator=(const CkConditionBase&);
    virtual ~CkConditionBase() noexcept(false);

    void Evaluate();

    /// The result of the latest evaluation.
    bool IsFulfilled() const noexcept;

protected:
    /// Evaluates and reports at any level, and raises nothing.
    void evaluateWhileUnwinding() noexcept;

private:
    void handleUnfulfilledCondition(CkIntToType<0>) const;
    void handleUnfulfilledCondition(CkIntToType<1>) const
        requires(N == 1);
    void handleUnfulfilledCondition(CkIntToType<2>) const
        requires(N == 2);

    EEventType m_eventType;
    const WCHAR* m_fileName;
    unsigned int m_codeLine;
    std::function<bool()> m_condition;
    bool m_fulfilled = false;
};

/// What must hold where a function begins. Evaluated when constructed.
template <int N>
class CkPreCondition : public CkConditionBase<N>
{
public:
    CkPreCondition(const WCHAR* fileName, unsigned int codeLine, std::function<bool()> condition);
    CkPreCondition(CString&& fileName, unsigned int codeLine, std::function<bool()> condition) = delete;
};

/// What must hold at the end of a function, and is therefore written there. Evaluated when constructed.
template <int N>
class CkPostCondition : public CkConditionBase<N>
{
public:
    CkPostCondition(const WCHAR* fileName, unsigned int codeLine, std::function<bool()> condition);
    CkPostCondition(CString&& fileName, unsigned int codeLine, std::function<bool()> condition) = delete;
};

/// What must hold at the beginning and at the end of a scope. Evaluated when constructed and when destroyed; a copy is
/// evaluated when it is destroyed as well.
///
/// Lifetime: automatic, in the scope that it speaks of.
/// Failure: the destructor raises as `Evaluate` does, unless an exception that came after the construction is unwinding
/// the stack. Then it only reports, and nothing leaves it.
template <int N>
class CkInvariant : public CkConditionBase<N>
{
public:
    CkInvariant(const WCHAR* fileName, unsigned int codeLine, std::function<bool()> condition);
    CkInvariant(CString&& fileName, unsigned int codeLine, std::function<bool()> condition) = delete;
    CkInvariant(const CkInvariant&);
    CkInvariant& operator=(const CkInvariant&);
    ~CkInvariant() noexcept(false) override;

private:
    int m_exceptionsOutside; ///< How many exceptions were in flight when the object came to be.
};

namespace tarvo::detail
{
template <class Condition>
concept ConditionCallable = std::constructible_from<std::function<bool()>, Condition>;
} // namespace tarvo::detail

/// Takes what the other levels take, and does nothing with it.
template <>
class CkConditionBase<3>
{
public:
    template <tarvo::detail::ConditionCallable Condition = std::function<bool()>>
    CkConditionBase(CkLogListenerManager::EEventType, const WCHAR*, unsigned int, const Condition&) noexcept
    {
    }

    void Evaluate() noexcept {}
    bool IsFulfilled() const noexcept { return true; }

protected:
    CkConditionBase() noexcept = default;
};

template <>
class CkPreCondition<3> : public CkConditionBase<3>
{
public:
    template <tarvo::detail::ConditionCallable Condition = std::function<bool()>>
    CkPreCondition(const WCHAR*, unsigned int, const Condition&) noexcept
    {
    }
};

template <>
class CkPostCondition<3> : public CkConditionBase<3>
{
public:
    template <tarvo::detail::ConditionCallable Condition = std::function<bool()>>
    CkPostCondition(const WCHAR*, unsigned int, const Condition&) noexcept
    {
    }
};

template <>
class CkInvariant<3> : public CkConditionBase<3>
{
public:
    template <tarvo::detail::ConditionCallable Condition = std::function<bool()>>
    CkInvariant(const WCHAR*, unsigned int, const Condition&) noexcept
    {
    }
};

extern template class TARVO_API CkConditionBase<0>;
extern template class TARVO_API CkConditionBase<1>;
extern template class TARVO_API CkConditionBase<2>;
extern template class TARVO_API CkPreCondition<0>;
extern template class TARVO_API CkPreCondition<1>;
extern template class TARVO_API CkPreCondition<2>;
extern template class TARVO_API CkPostCondition<0>;
extern template class TARVO_API CkPostCondition<1>;
extern template class TARVO_API CkPostCondition<2>;
extern template class TARVO_API CkInvariant<0>;
extern template class TARVO_API CkInvariant<1>;
extern template class TARVO_API CkInvariant<2>;
