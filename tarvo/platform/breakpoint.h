#pragma once

#if !defined(__x86_64__)
#    include <csignal>
#endif

namespace tarvo::platform
{
/// Stops in the debugger, at the caller and not in a function of the system.
inline void breakHere()
{
#if defined(__x86_64__)
    asm volatile("int3");
#else
    std::raise(SIGTRAP);
#endif
}
} // namespace tarvo::platform
