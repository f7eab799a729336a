#pragma once

#include <tarvo/platform/kernel/kernel.h>

#include <concepts>
#include <type_traits>

namespace tarvo::detail
{
/// C++'s own long types where they are as wide as the interface's, and where they are not.
template <class T>
concept PlainLong = std::same_as<T, long> || std::same_as<T, unsigned long>;

template <class T>
concept Long32 = PlainLong<T> && sizeof(T) == 4;

template <class T>
concept Long64 = PlainLong<T> && sizeof(T) == 8;

/// Pointers that would silently turn into a truth value: all but those to wide text.
template <class T>
concept PointerButNotText = std::is_null_pointer_v<T> || std::is_member_pointer_v<T> ||
                            (std::is_pointer_v<T> && !std::same_as<std::remove_cv_t<std::remove_pointer_t<T>>, WCHAR> &&
                             !std::same_as<std::remove_cv_t<std::remove_pointer_t<T>>, unsigned short>);

/// The 32-bit type of the streams that stands for a long type.
template <PlainLong T>
using LongAsInt = std::conditional_t<std::is_signed_v<T>, int, unsigned int>;
} // namespace tarvo::detail
