#include <tarvo/platform/kernel/linux/handles.h>

#include <atomic>
#include <mutex>

namespace tarvo::kernel
{
namespace
{
constexpr std::uint32_t slotCount = 1u << 22;
constexpr std::uint32_t noSlot = 0xFFFFFFFFu;

/// The word of a slot: the generation that makes an old handle different from a new one in the upper half, then the
/// mark that the handle is open, then the number of calls that use the object at this moment.
constexpr std::uint64_t generationStep = std::uint64_t{1} << 32;
constexpr std::uint64_t openBit = std::uint64_t{1} << 31;
constexpr std::uint64_t pinsMask = openBit - 1;

/// One handle. The object stays while the handle is open or a call uses it; whoever ends the later of the two retires
/// the slot.
struct Slot
{
    std::uint64_t word;
    union
    {
        KernelObject* object;   ///< Written before the word opens the slot, read after pinning it.
        std::uint32_t nextFree; ///< Of a retired slot: the index of the next one, plus 1.
    };

    std::atomic_ref<std::uint64_t> Word() noexcept { return std::atomic_ref(word); }
};

/// All handles of the process. Pages that are never touched take no memory (unless the process locks all it has), and
/// unloading the library takes the table along, so it needs neither growth nor tear-down.
Slot g_slots[slotCount];

constinit FutexLock g_freeLock;
std::uint32_t g_firstFree = 0; ///< The index of the first retired slot, plus 1. Guarded by the lock, as the next one.
std::uint32_t g_used = 0;      ///< Slots that were ever in use.

/// A handle as the other side sees it: not null, and a multiple of four.
HANDLE makeHandle(std::uint32_t index, std::uint64_t word) noexcept
{
    return reinterpret_cast<HANDLE>((word & ~(generationStep - 1)) | (std::uint64_t{index} + 1) << 2);
}

/// The slot that a handle names, if there can be one.
std::uint32_t indexOf(HANDLE handle) noexcept
{
    const auto low = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
    return low % 4 == 0 && low != 0 && low / 4 <= slotCount ? low / 4 - 1 : noSlot;
}

bool isOpenFor(HANDLE handle, std::uint64_t word) noexcept
{
    return ((word ^ reinterpret_cast<std::uintptr_t>(handle)) & ~(generationStep - 1)) == 0 && (word & openBit) != 0;
}

/// Takes a slot out of use; noSlot when all are open.
std::uint32_t takeSlot() noexcept
{
    const std::lock_guard guard(g_freeLock);
    if (g_firstFree == 0)
        return g_used < slotCount ? g_used++ : noSlot;
    const std::uint32_t index = g_firstFree - 1;
    g_firstFree = g_slots[index].nextFree;
    return index;
}

/// Ends a slot that is closed and unused: nobody can reach it any more.
void retire(std::uint32_t index) noexcept
{
    g_slots[index].object->Release();
    const std::lock_guard guard(g_freeLock);
    g_slots[index].nextFree = g_firstFree;
    g_firstFree = index + 1;
}

/// Changes the word of the handle's slot, as long as the handle is open, and returns the word before; 0, which no open
/// slot has, and nothing done when the handle is not open.
template <class Change>
std::uint64_t changeOpenSlot(HANDLE handle, Change change) noexcept
{
    const std::uint32_t index = indexOf(handle);
    if (index == noSlot)
        return 0;
    const auto slot = g_slots[index].Word();
    std::uint64_t word = slot.load(std::memory_order_acquire);
    while (isOpenFor(handle, word))
    {
        if (slot.compare_exchange_weak(word, change(word), std::memory_order_acq_rel, std::memory_order_acquire))
            return word;
    }
    return 0;
}
} // namespace

HANDLE openHandle(KernelObject* object) noexcept
{
    const std::uint32_t index = takeSlot();
    if (index == noSlot)
        return nullptr;
    g_slots[index].object = object;
    const auto slot = g_slots[index].Word();
    const std::uint64_t generation = slot.load(std::memory_order_relaxed) & ~(generationStep - 1);
    const std::uint64_t word = (generation + generationStep) | openBit;
    slot.store(word, std::memory_order_release);
    return makeHandle(index, word);
}

bool closeHandle(HANDLE handle) noexcept
{
    const std::uint64_t before = changeOpenSlot(handle, [](std::uint64_t word) { return word & ~openBit; });
    if (before == 0)
        return false;
    if ((before & pinsMask) == 0)
        retire(indexOf(handle));
    return true;
}

HandlePin::HandlePin(HANDLE handle) noexcept
{
    if (changeOpenSlot(handle, [](std::uint64_t word) { return word + 1; }) == 0)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return;
    }
    m_slot = indexOf(handle);
    m_object = g_slots[m_slot].object;
}

HandlePin::~HandlePin()
{
    if (m_object == nullptr)
        return;
    const std::uint64_t before = g_slots[m_slot].Word().fetch_sub(1, std::memory_order_acq_rel);
    if ((before & (openBit | pinsMask)) == 1)
        retire(m_slot);
}
} // namespace tarvo::kernel

BOOL CloseHandle(HANDLE object) noexcept
{
    if (tarvo::kernel::closeHandle(object))
        return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}
