#pragma once

#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>

namespace tarvo::kernel
{
/// The system's name for people to read, with its version and width; empty when the system does not tell. Failure: as
/// allocation.
CString operatingSystemName();

/// The logical processors, at least 1; on Linux those that the calling thread may run on.
DWORD processorCount() noexcept;
} // namespace tarvo::kernel
