#pragma once

#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/system/ckmachinecapabilities.h>

#include <optional>

// What the numbers mean that CPUID gives.

namespace tarvo::detail
{
/// The vendor whose processors give this text in leaf 0: the units of EBX, EDX and ECX. No value when there is no
/// memory for looking it up, so that nothing is raised where locks are held.
TARVO_API std::optional<CkMachineCapabilities::ECPUVendor> processorVendor(const CString& text);

TARVO_API const WCHAR* processorVendorName(CkMachineCapabilities::ECPUVendor vendor) noexcept;

/// A set of `CkMachineCapabilities::ECPUFeatures` from the registers of leaf 1.
TARVO_API unsigned int processorFeatures(DWORD ecx, DWORD edx) noexcept;
} // namespace tarvo::detail
