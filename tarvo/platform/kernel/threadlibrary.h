#pragma once

#include <tarvo/platform/kernel/kernel.h>

// How a thread keeps the library loaded whose code it runs.

namespace tarvo::kernel
{
/// One more reason for the library to stay loaded; what `releaseLibrary` or `leaveThread` takes to end it.
void* keepLibrary() noexcept;
void releaseLibrary(void* library) noexcept;

/// Called as the last thing in a thread's procedure: the result to return from that, unless the thread ends here.
DWORD leaveThread(void* library, DWORD result) noexcept;
} // namespace tarvo::kernel
