#include <tarvo/platform/kernel/threadlibrary.h>

void* tarvo::kernel::keepLibrary() noexcept
{
    HMODULE library = nullptr;
    const auto inside = reinterpret_cast<LPCWSTR>(&keepLibrary);
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, inside, &library) ? library : nullptr;
}

void tarvo::kernel::releaseLibrary(void* library) noexcept
{
    if (library != nullptr)
        FreeLibrary(static_cast<HMODULE>(library));
}

DWORD tarvo::kernel::leaveThread(void* library, DWORD result) noexcept
{
    if (library != nullptr)
        FreeLibraryAndExitThread(static_cast<HMODULE>(library), result);
    return result;
}
