#pragma once

#include <tarvo/config.h>

namespace tarvo::detail
{
/// The locks of the library under which others are entered, or that are entered under others: the outermost first. Each
/// is one section in the process.
enum class LockRank : unsigned int
{
    singleton,
    threadPool,
    logListenerManager,
    eventRegistry
};

/// Traps, in checked builds, where a thread that holds one of these locks enters one that is further out. If another
/// thread does the same in the right order, each may wait for the other's lock for ever; as that takes a rare moment,
/// the order is looked at even where nobody waits.
///
/// Threads: each has its own note of what it holds.
class LockOrder
{
public:
    LockOrder() = delete;

    /// Before a lock is waited for; one that is only tried need not ask. A lock that the thread holds may be entered
    /// again.
    static void Check(LockRank rank) noexcept
    {
        if (TARVO_CHECKED)
            check(rank);
    }

    static void Entered(LockRank rank) noexcept
    {
        if (TARVO_CHECKED)
            count(rank, 1);
    }

    static void Left(LockRank rank) noexcept
    {
        if (TARVO_CHECKED)
            count(rank, -1);
    }

private:
    static void check(LockRank rank) noexcept;
    static void count(LockRank rank, int change) noexcept;
};

/// Stands before the guard of a ranked lock, for the same scope.
class [[nodiscard]] LockOrderAuto
{
public:
    explicit LockOrderAuto(LockRank rank) noexcept : m_rank(rank)
    {
        LockOrder::Check(rank);
        LockOrder::Entered(rank);
    }

    LockOrderAuto(const LockOrderAuto&) = delete;
    LockOrderAuto& operator=(const LockOrderAuto&) = delete;
    ~LockOrderAuto() { LockOrder::Left(m_rank); }

private:
    const LockRank m_rank;
};
} // namespace tarvo::detail
