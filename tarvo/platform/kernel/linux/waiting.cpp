#include <tarvo/platform/kernel/linux/handles.h>

DWORD WaitForSingleObject(HANDLE object, DWORD timeoutMs) noexcept
{
    const tarvo::kernel::HandlePin pin(object);
    if (pin.Object() == nullptr)
        return WAIT_FAILED;
    return pin.Object()->Wait(timeoutMs) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}
