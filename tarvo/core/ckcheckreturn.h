#pragma once

#include <tarvo/config.h>

#include <exception>
#include <type_traits>
#include <utility>

/// Traps in a build with TARVO_CHECKED, unless an exception has kept the caller from looking.
struct CkCheckReturnPolicyAssert
{
    static void OnUnchecked() noexcept
    {
        if (TARVO_CHECKED && std::uncaught_exceptions() == 0)
            tarvo::detail::trap("a result was not looked at");
    }
};

/// A result that its receiver must look at: one that goes, or is assigned to, without having been read calls
/// `Policy::OnUnchecked()`. Moving passes the duty on with the value.
template <class T, class Policy = CkCheckReturnPolicyAssert>
class [[nodiscard]] CkCheckReturn
{
public:
    CkCheckReturn(T value) : m_value(std::move(value)) {}

    CkCheckReturn(CkCheckReturn&& other) noexcept(std::is_nothrow_move_constructible_v<T>)
        : m_value(std::move(other.m_value)), m_checked(std::exchange(other.m_checked, true))
    {
    }

    CkCheckReturn& operator=(CkCheckReturn&& other) noexcept(std::is_nothrow_move_assignable_v<T>)
    {
        if (this == &other)
            return *this;
        complainUnlessChecked();
        m_value = std::move(other.m_value);
        m_checked = std::exchange(other.m_checked, true);
        return *this;
    }

    ~CkCheckReturn() { complainUnlessChecked(); }

    // All of them fulfil the duty.

    operator T() const& { return GetValue(); }
    operator T() && { return std::move(*this).GetValue(); }

    T GetValue() const&
    {
        m_checked = true;
        return m_value;
    }

    T GetValue() &&
    {
        m_checked = true;
        return std::move(m_value);
    }

private:
    void complainUnlessChecked() const noexcept
    {
        if (!m_checked)
            Policy::OnUnchecked();
    }

    T m_value;
    mutable bool m_checked = false;
};
