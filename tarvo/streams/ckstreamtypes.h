#pragma once

#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>

#include <concepts>
#include <type_traits>

namespace tarvo::detail
{
/// Stands for C++'s own long where that has not the interface's 32 bits; there is no value of it.
template <class Int>
class NoLong
{
public:
    NoLong() = delete;
    operator Int() const noexcept;
};

using Long32 = std::conditional_t<sizeof(long) == 4, long, NoLong<int>>;
using ULong32 = std::conditional_t<sizeof(long) == 4, unsigned long, NoLong<unsigned int>>;

template <class T>
concept Long64 = (std::same_as<T, long> || std::same_as<T, unsigned long>)&&sizeof(T) == 8;

/// Characters other than the two that a stream takes, `char` and `WCHAR`.
template <class T>
concept OtherCharacter = !std::same_as<T, WCHAR> && (std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
                                                     std::same_as<T, char16_t> || std::same_as<T, char32_t>);

template <class T>
concept TextUnit = std::same_as<T, WCHAR> || std::same_as<T, unsigned short>;

/// Pointers that would silently turn into a truth value: all but those to wide text.
template <class T>
concept PointerButNotText = std::is_null_pointer_v<T> || std::is_member_pointer_v<T> ||
                            (std::is_pointer_v<T> && !TextUnit<std::remove_const_t<std::remove_pointer_t<T>>>);

/// Objects that turn into a pointer, and that into a truth value. What is itself true or false is also a number.
template <class T>
concept ConvertsToPointer = std::is_class_v<T> && std::convertible_to<const T&, bool> &&
                            !std::convertible_to<const T&, double> && !std::convertible_to<const T&, CString>;
} // namespace tarvo::detail
