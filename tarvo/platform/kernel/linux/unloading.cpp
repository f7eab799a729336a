#include <tarvo/platform/kernel/unloading.h>

#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <unwind.h>

namespace
{
/// Ends the walk over the callers at a call of dlclose.
_Unwind_Reason_Code findUnloading(_Unwind_Context* caller, void* found) noexcept
{
    // The address of a call, not of what follows it: that may be another function.
    auto* const call = reinterpret_cast<void*>(static_cast<std::uintptr_t>(_Unwind_GetIP(caller)) - 1);
    Dl_info function;
    if (dladdr(call, &function) == 0 || function.dli_sname == nullptr ||
        std::strcmp(function.dli_sname, "dlclose") != 0)
        return _URC_NO_REASON;
    *static_cast<bool*>(found) = true;
    return _URC_END_OF_STACK;
}

bool g_unloading = false;

/// Runs before the static objects of a library that is unloaded are destroyed, as termination functions run in the
/// reverse order of their linking, and the one that destroys them is linked first.
///
/// The C library tells nowhere why it ends a library. It does so in the same way when the process ends, if the program
/// was linked to the library; if it was loaded later, `exit` destroys the static objects before any termination
/// function runs. But what only unloading has is a call of dlclose.
__attribute__((destructor)) void noteUnloading() noexcept
{
    _Unwind_Backtrace(&findUnloading, &g_unloading);
}
} // namespace

bool tarvo::kernel::isProcessEnding() noexcept
{
    return !g_unloading;
}

/// Threads run on until the process has ended.
bool tarvo::kernel::areOtherThreadsGone() noexcept
{
    return false;
}
