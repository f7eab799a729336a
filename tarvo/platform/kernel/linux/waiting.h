#pragma once

#include <tarvo/platform/kernel/linux/objects.h>

namespace tarvo::kernel
{
struct Waiter;

/// A waiter's place in the queue of one object. On the stack of the thread that waits; its links belong to the lock of
/// the object.
struct WaitNode
{
    Waiter* waiter = nullptr;
    ObjectRef ref;
    WaitNode* previous = nullptr;
    WaitNode* next = nullptr;
    bool linked = false;
};

/// A thread that waits for one of some objects, or for all of them. One with a single object looks at nothing any more
/// once it was served; one with several takes the lock of each to leave the queues.
struct Waiter
{
    static constexpr std::uint32_t waiting = 0;
    static constexpr std::uint32_t timedOut = 0xFFFFFFFFu;

    std::atomic<std::uint32_t> state{waiting}; ///< Otherwise the index of the object that ended the wait, plus 1.
    bool forAll = false;
    std::uint32_t count = 0; ///< Nodes that may be linked.
    WaitNode* nodes = nullptr;

    /// Ends the wait in the name of the object at `index`, unless it has ended.
    bool Claim(std::uint32_t index) noexcept
    {
        std::uint32_t expected = waiting;
        return state.compare_exchange_strong(expected, index + 1, std::memory_order_acq_rel, std::memory_order_relaxed);
    }

    std::uint32_t IndexOf(const WaitNode& node) const noexcept { return static_cast<std::uint32_t>(&node - nodes); }
};
} // namespace tarvo::kernel
