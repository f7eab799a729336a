#include <tarvo/platform/kernel/linux/slots.h>

using tarvo::kernel::ObjectKind;
using tarvo::kernel::ObjectRef;

namespace
{
ObjectRef requireEvent(HANDLE event) noexcept
{
    return tarvo::kernel::requireObject(event, ObjectKind::manualEvent, ObjectKind::autoEvent);
}

/// Changes the signals of an event from `before` to `after` through its own handle while nothing else refers to it:
/// what most calls find. False when it is otherwise, and nothing is done.
inline bool changeAtOnce(HANDLE event, std::uint64_t before, std::uint64_t after, std::memory_order order) noexcept
{
    using namespace tarvo::kernel;
    const std::uint64_t unset = generationOf(event) | KernelObject::openBit;
    std::uint64_t word = unset | before;
    return hasHandleBit(event, manualEventBit | autoEventBit) &&
           likelySlotOf(event).word.compare_exchange_strong(word, unset | after, order, std::memory_order_relaxed);
}

/// Whether an event, with nobody waiting for it, is not set.
inline bool isNotSet(HANDLE event) noexcept
{
    using namespace tarvo::kernel;
    return hasHandleBit(event, manualEventBit | autoEventBit) &&
           likelySlotOf(event).word.load(std::memory_order_acquire) == (generationOf(event) | KernelObject::openBit);
}

[[gnu::noinline]] BOOL setEventOtherwise(HANDLE event) noexcept
{
    const ObjectRef ref = requireEvent(event);
    if (!ref)
        return FALSE;
    std::uint32_t previous = 0;
    if (tarvo::kernel::signalObject(ref, 1, previous) == tarvo::kernel::SignalResult::done)
        return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

BOOL resetEvent(HANDLE event, bool pulse) noexcept
{
    if (isNotSet(event) || changeAtOnce(event, 1, 0, std::memory_order_acq_rel))
        return TRUE;
    const ObjectRef ref = requireEvent(event);
    if (!ref)
        return FALSE;
    if (tarvo::kernel::resetObject(ref, pulse))
        return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}
} // namespace

HANDLE CreateEventW(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initiallySet, LPCWSTR name) noexcept
{
    if (name != nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const HANDLE handle =
        tarvo::kernel::openObject(manualReset ? ObjectKind::manualEvent : ObjectKind::autoEvent, initiallySet ? 1 : 0);
    SetLastError(handle != nullptr ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
    return handle;
}

BOOL SetEvent(HANDLE event) noexcept
{
    return changeAtOnce(event, 0, 1, std::memory_order_release) ? TRUE : setEventOtherwise(event);
}

BOOL ResetEvent(HANDLE event) noexcept
{
    return resetEvent(event, false);
}

BOOL PulseEvent(HANDLE event) noexcept
{
    return resetEvent(event, true);
}
