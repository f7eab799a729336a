#pragma once

#include <tarvo/config.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tarvo::detail
{
/// Spreads `value` over 32 bits so that any of them serve to choose a place in a table. D. Stafford's "Mix13" (2011),
/// of whose result the upper half is taken.
constexpr std::uint32_t mixForIndex(std::uint64_t value) noexcept
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return static_cast<std::uint32_t>(value >> 32);
}

/// Finds the associations of a large map: an open-addressing table with linear probing, at most half full, of their
/// addresses. The lowest three bits of an address, zero by its alignment, hold three bits of the hash instead, so that
/// few associations other than the one that is looked for are looked at.
class MapIndex
{
public:
    MapIndex() noexcept = default;
    MapIndex(MapIndex&& other) noexcept { swap(other); }
    MapIndex& operator=(MapIndex&&) = delete;
    ~MapIndex() { std::free(m_slots); }

    bool IsActive() const noexcept { return m_slots != nullptr; }

    /// Whether there is room for one more and the table is active. Slots of removed entries are not yet free.
    bool HasRoom() const noexcept { return 2 * (m_used + 1) <= m_capacity; }

    /// The number of slots for `count` entries with room to grow.
    static std::size_t capacityFor(std::size_t count) noexcept { return std::bit_ceil(3 * count); }

    /// An empty table of `capacity` slots, a power of two; false when that cannot be had. The table was not active.
    bool Allocate(std::size_t capacity) noexcept
    {
        if (capacity > maximumCapacity)
            return false;
        m_slots = static_cast<std::uintptr_t*>(std::calloc(capacity, sizeof(std::uintptr_t)));
        if (m_slots == nullptr)
            return false;
        m_capacity = capacity;
        m_shift = 32 - std::countr_zero(capacity);
        return true;
    }

    /// Gives the table back.
    void Discard() noexcept
    {
        if (IsActive())
            MapIndex().swap(*this);
    }

    void swap(MapIndex& other) noexcept
    {
        std::swap(m_slots, other.m_slots);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_used, other.m_used);
        std::swap(m_shift, other.m_shift);
    }

    /// The first entry of this hash that `matches` takes, and its slot; null when there is none. Active only.
    template <class Node, class Matches>
    Node* Find(std::uint32_t hash, std::size_t& slot, Matches matches) const
    {
        for (slot = firstSlot(hash);; slot = nextSlot(slot))
        {
            const std::uintptr_t entry = m_slots[slot];
            if (entry == empty)
                return nullptr;
            if ((entry & tagMask) == tagOf(hash) && entry != removed)
            {
                Node* const node = reinterpret_cast<Node*>(entry & ~tagMask);
                if (matches(*node))
                    return node;
            }
        }
    }

    /// Enters a node that is not in the table, which is active and has room.
    void Insert(void* node, std::uint32_t hash) noexcept
    {
        std::size_t slot = firstSlot(hash);
        while (m_slots[slot] > removed)
            slot = nextSlot(slot);
        m_used += m_slots[slot] == empty ? 1 : 0;
        m_slots[slot] = reinterpret_cast<std::uintptr_t>(node) | tagOf(hash);
    }

    /// Frees a slot, and with it the slots of removed entries that no search has to pass any more.
    void Remove(std::size_t slot) noexcept
    {
        m_slots[slot] = removed;
        if (m_slots[nextSlot(slot)] != empty)
            return;
        for (; m_slots[slot] == removed; slot = (slot - 1) & (m_capacity - 1))
        {
            m_slots[slot] = empty;
            --m_used;
        }
    }

private:
    static constexpr std::uintptr_t empty = 0;
    static constexpr std::uintptr_t removed = 1;
    static constexpr std::uintptr_t tagMask = 7;
    static constexpr std::size_t maximumCapacity = std::size_t{1} << 32; ///< As many as a hash can tell apart.

    static std::uintptr_t tagOf(std::uint32_t hash) noexcept { return hash & tagMask; }
    std::size_t firstSlot(std::uint32_t hash) const noexcept { return hash >> m_shift; }
    std::size_t nextSlot(std::size_t slot) const noexcept { return (slot + 1) & (m_capacity - 1); }

    std::uintptr_t* m_slots = nullptr;
    std::size_t m_capacity = 0; ///< A power of two, or 0 while not active.
    std::size_t m_used = 0;     ///< Slots that are not empty.
    int m_shift = 0;
};
} // namespace tarvo::detail
