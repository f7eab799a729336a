#include <tarvo/platform/kernel/linux/handles.h>

#include <memory>
#include <new>

using tarvo::kernel::HandlePin;
using tarvo::kernel::Semaphore;

HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES*, LONG initialCount, LONG maximumCount, LPCWSTR name) noexcept
{
    if (initialCount < 0 || maximumCount < 1 || initialCount > maximumCount || name != nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::unique_ptr<Semaphore> semaphore(new (std::nothrow) Semaphore(static_cast<std::uint32_t>(initialCount),
                                                                      static_cast<std::uint32_t>(maximumCount)));
    const HANDLE handle = semaphore ? tarvo::kernel::openHandle(semaphore.get()) : nullptr;
    SetLastError(handle != nullptr ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
    if (handle != nullptr)
        semaphore.release();
    return handle;
}

BOOL ReleaseSemaphore(HANDLE handle, LONG count, LONG* previousCount) noexcept
{
    if (count < 1)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const HandlePin pin(handle);
    Semaphore* const semaphore = pin.As<Semaphore>();
    if (semaphore == nullptr)
        return FALSE;
    std::uint32_t previous = 0;
    if (!semaphore->Post(static_cast<std::uint32_t>(count), previous))
    {
        SetLastError(ERROR_TOO_MANY_POSTS);
        return FALSE;
    }
    if (previousCount != nullptr)
        *previousCount = static_cast<LONG>(previous);
    return TRUE;
}
