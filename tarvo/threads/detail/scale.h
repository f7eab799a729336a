#pragma once

#include <limits>

namespace tarvo::detail
{
__extension__ using WideProduct = unsigned __int128;

/// `value` * `numerator` / `denominator`, truncated; the largest number where 64 bits cannot hold it. The denominator
/// is not 0. A product that fits 64 bits is not divided in more.
constexpr unsigned long long scale(unsigned long long value, unsigned long long numerator,
                                   unsigned long long denominator) noexcept
{
    constexpr unsigned long long most = std::numeric_limits<unsigned long long>::max();
    const WideProduct product = static_cast<WideProduct>(value) * numerator;
    if (product <= most)
        return static_cast<unsigned long long>(product) / denominator;
    const WideProduct quotient = product / denominator;
    return quotient <= most ? static_cast<unsigned long long>(quotient) : most;
}
} // namespace tarvo::detail
