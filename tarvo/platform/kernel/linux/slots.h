#pragma once

#include <tarvo/platform/kernel/linux/objects.h>

#include <cstddef>

// The table of kernel objects and handles.

namespace tarvo::kernel
{
inline constexpr std::uint32_t slotCount = 1u << 22;

/// All slots of the process. Pages that are never touched take no memory (unless the process locks all it has), and
/// unloading the library takes the table along, so it needs neither growth nor tear-down. Zero bytes, and not objects
/// that a constructor made one by one.
extern TARVO_HIDDEN std::byte g_slots[slotCount * sizeof(KernelObject)];

inline KernelObject& slotAt(std::uint32_t index) noexcept
{
    return reinterpret_cast<KernelObject*>(g_slots)[index];
}

inline std::uint32_t indexOf(const KernelObject& slot) noexcept
{
    return static_cast<std::uint32_t>(&slot - &slotAt(0));
}

inline std::uint64_t generationOf(HANDLE handle) noexcept
{
    return reinterpret_cast<std::uintptr_t>(handle) & KernelObject::generationMask;
}

// A handle is the number of its slot plus 1, times 4; the slot's generation, where the word has it; and in between, for
// an event's own handle, the kind of event. So most calls know beforehand which word they will find.
inline constexpr std::uint64_t manualEventBit = std::uint64_t{1} << 32;
inline constexpr std::uint64_t autoEventBit = std::uint64_t{1} << 33;

inline bool hasHandleBit(HANDLE handle, std::uint64_t bit) noexcept
{
    return (reinterpret_cast<std::uintptr_t>(handle) & bit) != 0;
}

/// The slot that a handle names, if there can be one.
inline KernelObject* slotOf(HANDLE handle) noexcept
{
    const std::uint64_t low = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
    return low % 4 == 0 && low - 1 < std::uint64_t{slotCount} * 4 ? &slotAt(static_cast<std::uint32_t>(low / 4 - 1))
                                                                  : nullptr;
}

/// The slot that an event's own handle names, if it is one; else some slot. Without a branch: whoever changes the word
/// of the slot from what an open handle must find there needs no other check.
inline KernelObject& likelySlotOf(HANDLE handle) noexcept
{
    const auto low = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
    return slotAt((low / 4 - 1) % slotCount);
}

inline bool isOpenFor(HANDLE handle, std::uint64_t word) noexcept
{
    return (word & (KernelObject::generationMask | KernelObject::openBit)) ==
           (generationOf(handle) | KernelObject::openBit);
}

/// A slot that is not in use; null when all are.
KernelObject* takeSlot() noexcept;

/// Takes back a slot that nobody can reach any more.
void giveSlot(KernelObject& slot) noexcept;

/// The running thread keeps no slots any more.
void emptySlotCache() noexcept;

/// Makes a slot that is not in use an open handle.
HANDLE openSlot(KernelObject& slot, ObjectKind kind, std::uint32_t signals) noexcept;
} // namespace tarvo::kernel
