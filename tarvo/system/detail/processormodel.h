#pragma once

#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/system/ckmachinecapabilities.h>

namespace tarvo::detail
{
/// The name of the processor that gives this signature in EAX of CPUID leaf 1; "unknown" when it is none that is known.
TARVO_API CString processorModel(CkMachineCapabilities::ECPUVendor vendor, DWORD signature);
} // namespace tarvo::detail
