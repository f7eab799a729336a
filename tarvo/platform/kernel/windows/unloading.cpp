#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/platform/kernel/unloading.h>

extern "C" __declspec(dllimport) BOOLEAN __stdcall RtlDllShutdownInProgress();

bool tarvo::kernel::isProcessEnding() noexcept
{
    return areOtherThreadsGone();
}

bool tarvo::kernel::areOtherThreadsGone() noexcept
{
    return RtlDllShutdownInProgress() != FALSE;
}
