#pragma once

#include <tarvo/platform/kernel/kernel.h>

#if defined(__x86_64__)
#    include <cpuid.h>
#    include <x86intrin.h>
#endif

namespace tarvo::kernel
{
/// What the instruction CPUID leaves in the registers.
struct CpuId
{
    DWORD eax = 0;
    DWORD ebx = 0;
    DWORD ecx = 0;
    DWORD edx = 0;
};

/// All zero for a leaf that the processor does not have, and where processors have no such instruction.
inline CpuId cpuId(DWORD leaf) noexcept
{
    CpuId result;
#if defined(__x86_64__)
    unsigned int registers[4] = {};
    if (__get_cpuid(leaf, &registers[0], &registers[1], &registers[2], &registers[3]) != 0)
        result = {registers[0], registers[1], registers[2], registers[3]};
#else
    static_cast<void>(leaf);
#endif
    return result;
}

/// For processors whose CPUID says that they have the counter.
inline ULONGLONG timeStampCounter() noexcept
{
#if defined(__x86_64__)
    return __rdtsc();
#else
    return 0;
#endif
}
} // namespace tarvo::kernel
