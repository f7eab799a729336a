#pragma once

namespace tarvo::kernel
{
/// For destructors of the library's static objects: whether they run because the process ends, and not because the
/// library alone is unloaded.
bool isProcessEnding() noexcept;

/// Whether the end of the process has stopped every thread but this one, wherever they were.
bool areOtherThreadsGone() noexcept;
} // namespace tarvo::kernel
