#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/kernel.h>

namespace tarvo::kernel
{
/// Shows `text` under `caption` and returns when the user has read it. `style` has the bits of the call `MessageBoxW`,
/// whose result it returns. May be called on any thread.
using MessageBoxFunction = int (*)(const WCHAR* text, const WCHAR* caption, unsigned int style);

/// Lets `function` show the library's message boxes, for applications that have a better way to tell their users, or no
/// user; null brings back the call `MessageBoxW`, which elsewhere than on Windows writes to standard error. Returns the
/// function before, null when there was none. From any thread; a box that is being shown stays. The function must be
/// there until another takes its place.
TARVO_API MessageBoxFunction SetMessageBox(MessageBoxFunction function) noexcept;

/// Shows a message without an owner window, through the application's function if it has set one. Raises what that
/// function raises.
int showMessageBox(const WCHAR* text, const WCHAR* caption, unsigned int style);
} // namespace tarvo::kernel
