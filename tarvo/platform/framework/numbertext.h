#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/kernel.h>

// Numbers as text in the form that a text stream gives them, fast: UTF-16 from the start, and without an allocation.

namespace tarvo::framework
{
/// A number as text, made on the stack.
class TARVO_API NumberText
{
public:
    explicit NumberText(int value) noexcept;
    explicit NumberText(unsigned int value) noexcept;
    explicit NumberText(long long value) noexcept;
    explicit NumberText(unsigned long long value) noexcept;

    /// As `%f`: fixed notation with six decimals; "inf" and "nan", negative ones with a sign.
    explicit NumberText(double value) noexcept;

    /// As `%p`: 16 upper-case hexadecimal digits.
    explicit NumberText(const void* address) noexcept;

    NumberText(const NumberText&) = delete;
    NumberText& operator=(const NumberText&) = delete;

    /// Not terminated.
    const WCHAR* Text() const noexcept { return m_text; }
    int Length() const noexcept { return m_length; }

private:
    /// Sign, 309 digits of the largest double, point, six decimals.
    static constexpr int maxLength = 1 + 309 + 1 + 6;

    int writeLong(double value) noexcept;

    WCHAR m_text[maxLength];
    int m_length;
};
} // namespace tarvo::framework
