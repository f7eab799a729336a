#include <tarvo/platform/kernel/linux/localmemory.h>

#include <algorithm>
#include <cstdlib>

HLOCAL LocalAlloc(unsigned int, SIZE_T size) noexcept
{
    void* const memory = std::malloc(std::max<SIZE_T>(size, 1));
    if (memory == nullptr)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}
