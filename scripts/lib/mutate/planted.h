// Included before everything else in a build with planted faults. One of them is on: the one whose number stands in the
// environment as TARVO_FAULT. Where TARVO_FAULT_REACHED names a file, it notes which places were reached, a byte each.

#pragma once

#include <type_traits>

extern "C" __attribute__((visibility("default"))) int tarvo_fault_number;
extern "C" __attribute__((visibility("default"))) unsigned char* tarvo_fault_reached;

/// Not for constants: where one is wanted, the build fails, and the fault is taken out.
inline bool tarvo_planted(int number) noexcept
{
    if (tarvo_fault_reached != nullptr)
        tarvo_fault_reached[number] = 1;
    return tarvo_fault_number == number;
}

/// For constexpr functions, which are as they were while the compiler runs them.
constexpr bool tarvo_planted_constant(int number) noexcept
{
    if (__builtin_is_constant_evaluated())
        return false;
    else
        return tarvo_planted(number);
}

/// The next value, or the one before.
template <int Step, class T>
constexpr T tarvo_changed(T value) noexcept
{
    if constexpr (std::is_same_v<T, bool>)
        return !value;
    else
        return static_cast<T>(static_cast<unsigned long long>(value) + static_cast<unsigned long long>(Step));
}
