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
} // namespace

// The C library tells nowhere why it destroys the objects of a library, and the order of things is the same in both cases
// for one that the program was linked to. But who calls is different.
bool tarvo::kernel::isProcessEnding() noexcept
{
    bool unloading = false;
    _Unwind_Backtrace(&findUnloading, &unloading);
    return !unloading;
}
