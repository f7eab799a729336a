#pragma once

#include <tarvo/platform/kernel/kernel.h>

// What the loader of the platform has to do with the library. Its calls come in where tarvo/library/libraryentry.h
// says.

namespace tarvo::kernel
{
/// The module that the library is.
HMODULE getLibraryModule() noexcept;

/// Says, while the static objects are constructed, that the library cannot be used. Windows lets the load fail then.
/// Elsewhere no library can refuse, so that the process ends with a message, as it does when one is missing.
void refuseLoad() noexcept;

/// A value of the running thread; null before it is set. Can be asked for at the end of threads as well, and then makes
/// nothing that would have to be freed. False when the system cannot keep it.
void* getThreadValue() noexcept;
bool setThreadValue(void* value) noexcept;
} // namespace tarvo::kernel
