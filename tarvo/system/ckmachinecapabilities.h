#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>

/// What the machine is and can do.
///
/// Threads: every operation may be called from any thread, under any of the library's locks.
/// Blocking: the first query of the speed takes at least 50 ms where the processor has a time-stamp counter. Queries
/// that come while the first one finds the answers wait for it; every later one is a read.
/// Lifetime: the answers never change; they are destroyed when the library is unloaded.
/// Failure: what cannot be found out keeps the value that stands below. The first query may raise
/// `CkExceptionOutOfMemory`, or fail as allocation does; the next one tries again.
class TARVO_API CkMachineCapabilities
{
public:
    /// Who made the processor.
    enum ECPUVendor : int
    {
        eCPUVendorUnknown = 0,
        eCPUVendorIntel = 1,
        eCPUVendorAMD = 2,
        eCPUVendorCyrix = 3,
        eCPUVendorCentaur = 4,
        eCPUVendorNexGen = 5,
        eCPUVendorTransmeta = 6,
        eCPUVendorRise = 7,
        eCPUVendorUMC = 8,
        eCPUVendorSiS = 9,
        eCPUVendorNationalSemiconductor = 10
    };

    /// Bits, to be combined.
    enum ECPUFeatures : unsigned int
    {
        eCPUFeatureFPU = 0x1, ///< x87 floating-point unit
        eCPUFeatureMMX = 0x2,
        eCPUFeatureSSE = 0x4,
        eCPUFeatureSSE2 = 0x8,
        eCPUFeatureSSE3 = 0x10,
        eCPUFeatureSSE41 = 0x20,
        eCPUFeatureSSE42 = 0x40,
        eCPUFeatureHTT = 0x100, ///< hyper-threading
        eCPUFeatureTSC = 0x200, ///< time-stamp counter
        eCPUFeaturePSN = 0x400  ///< processor serial number
    };

    /// Empty when unknown.
    static const CString& GetMachineName();
    static const CString& GetOperatingSystemName();

    /// Whether the processor names a vendor from the list above.
    static bool HasCPUID();
    static ECPUVendor GetCPUVendor();
    /// Empty when unknown.
    static CString GetCPUVendorName();
    /// "unknown" when it is.
    static const CString& GetCPUModelName();
    /// MHz; 0 when unknown.
    static unsigned int GetCPUSpeed();
    /// Whether the processor has any of `features`; false when unknown.
    static bool HasCPUFeature(ECPUFeatures features);
    /// Logical processors, at least 1; on Linux those that the thread of the first query was allowed to use.
    static unsigned int GetCPUCount();

    /// Bytes; 0 when unknown.
    static unsigned __int64 GetTotalPhysicalMemory();
    static unsigned __int64 GetTotalVirtualMemory();
};
