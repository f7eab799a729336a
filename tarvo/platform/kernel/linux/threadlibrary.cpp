#include <tarvo/platform/kernel/threadlibrary.h>

// The threads of this layer do it by themselves.

void* tarvo::kernel::keepLibrary() noexcept
{
    return nullptr;
}

void tarvo::kernel::releaseLibrary(void*) noexcept {}

DWORD tarvo::kernel::leaveThread(void*, DWORD result) noexcept
{
    return result;
}
