#pragma once

#include <tarvo/core/ckinttotype.h>

#include <atomic>
#include <concepts>

/// A 32-bit number that threads count on together.
///
/// Threads: every operation may be called from any thread. `++`, `--`, `+=` and `ExchangeValue` are one interlocked
/// operation each, fully ordered, and wrap around; their result is the operation's own, not a second look. Loads,
/// stores and comparisons are single accesses without order.
template <class T>
    requires std::same_as<T, int> || std::same_as<T, unsigned int>
class CkAtomicCounter
{
public:
    constexpr CkAtomicCounter() noexcept = default;
    constexpr CkAtomicCounter(T value) noexcept : m_value(value) {}
    CkAtomicCounter(const CkAtomicCounter& other) noexcept : m_value(other.GetValue()) {}

    CkAtomicCounter& operator=(const CkAtomicCounter& other) noexcept { return *this = other.GetValue(); }

    CkAtomicCounter& operator=(T value) noexcept
    {
        m_value.store(value, std::memory_order_relaxed);
        return *this;
    }

    T GetValue() const noexcept { return m_value.load(std::memory_order_relaxed); }

    /// The three return the value after the operation.
    T operator++() noexcept { return increment(Width()); }
    T operator--() noexcept { return decrement(Width()); }
    T operator+=(T value) noexcept { return add(value, Width()); }

    /// Returns the value before.
    T ExchangeValue(T value) noexcept { return set(value, Width()); }

    bool operator<(T value) const noexcept { return GetValue() < value; }
    bool operator<=(T value) const noexcept { return GetValue() <= value; }
    bool operator>(T value) const noexcept { return GetValue() > value; }
    bool operator>=(T value) const noexcept { return GetValue() >= value; }
    bool operator==(T value) const noexcept { return GetValue() == value; }
    bool operator!() const noexcept { return GetValue() == 0; }

private:
    using Width = CkIntToType<static_cast<int>(sizeof(T))>;

    // In unsigned arithmetic, where a wrap is defined.
    T add(T value, CkIntToType<4>) noexcept
    {
        const auto step = static_cast<unsigned int>(value);
        return static_cast<T>(static_cast<unsigned int>(m_value.fetch_add(value, std::memory_order_seq_cst)) + step);
    }

    T increment(CkIntToType<4> width) noexcept { return add(T{1}, width); }
    T decrement(CkIntToType<4> width) noexcept { return add(static_cast<T>(-1), width); }
    T set(T value, CkIntToType<4>) noexcept { return m_value.exchange(value, std::memory_order_seq_cst); }

    std::atomic<T> m_value{0};
};
