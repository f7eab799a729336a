#include <tarvo/platform/kernel/linux/objects.h>

using tarvo::kernel::ObjectKind;
using tarvo::kernel::ObjectRef;
using tarvo::kernel::SignalResult;

HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES*, LONG initialCount, LONG maximumCount, LPCWSTR name) noexcept
{
    if (initialCount < 0 || maximumCount < 1 || initialCount > maximumCount || name != nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const HANDLE handle = tarvo::kernel::openObject(ObjectKind::semaphore, static_cast<std::uint32_t>(initialCount),
                                                    static_cast<std::uint32_t>(maximumCount));
    SetLastError(handle != nullptr ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
    return handle;
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG* previousCount) noexcept
{
    if (count < 1)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const ObjectRef ref = tarvo::kernel::requireObject(semaphore, ObjectKind::semaphore, ObjectKind::semaphore);
    if (!ref)
        return FALSE;
    std::uint32_t previous = 0;
    const SignalResult result = tarvo::kernel::signalObject(ref, static_cast<std::uint32_t>(count), previous);
    if (result != SignalResult::done)
    {
        SetLastError(result == SignalResult::tooMany ? ERROR_TOO_MANY_POSTS : ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (previousCount != nullptr)
        *previousCount = static_cast<LONG>(previous);
    return TRUE;
}
