#include <tarvo/system/detail/processoridentity.h>

#include <tarvo/containers/ckmap.h>

#include <cstddef>
#include <iterator>

using Machine = CkMachineCapabilities;

namespace
{
struct VendorText
{
    const WCHAR* text;
    Machine::ECPUVendor vendor;
};

constexpr VendorText vendorTexts[] = {
    {CK_T("GenuineIntel"), Machine::eCPUVendorIntel},
    {CK_T("AuthenticAMD"), Machine::eCPUVendorAMD},
    {CK_T("AMD ISBETTER"), Machine::eCPUVendorAMD},
    {CK_T("CyrixInstead"), Machine::eCPUVendorCyrix},
    {CK_T("CentaurHauls"), Machine::eCPUVendorCentaur},
    {CK_T("NexGenDriven"), Machine::eCPUVendorNexGen},
    {CK_T("GenuineTMx86"), Machine::eCPUVendorTransmeta},
    {CK_T("TransmetaCPU"), Machine::eCPUVendorTransmeta},
    {CK_T("RiseRiseRise"), Machine::eCPUVendorRise},
    {CK_T("UMC UMC UMC "), Machine::eCPUVendorUMC},
    {CK_T("SiS SiS SiS "), Machine::eCPUVendorSiS},
    {CK_T("Geode by NSC"), Machine::eCPUVendorNationalSemiconductor},
};

/// By value of the vendor.
constexpr const WCHAR* vendorNames[] = {
    CK_T(""),
    CK_T("Intel"),
    CK_T("AMD"),
    CK_T("Cyrix"),
    CK_T("Centaur"),
    CK_T("NexGen"),
    CK_T("Transmeta"),
    CK_T("Rise"),
    CK_T("UMC"),
    CK_T("SiS"),
    CK_T("National Semiconductor"),
};

struct FeatureBit
{
    Machine::ECPUFeatures feature;
    unsigned int bit;
};

constexpr FeatureBit featuresOfEcx[] = {
    {Machine::eCPUFeatureSSE3, 0},
    {Machine::eCPUFeatureSSE41, 19},
    {Machine::eCPUFeatureSSE42, 20},
};

constexpr FeatureBit featuresOfEdx[] = {
    {Machine::eCPUFeatureFPU, 0},  {Machine::eCPUFeatureTSC, 4},  {Machine::eCPUFeaturePSN, 18},
    {Machine::eCPUFeatureMMX, 23}, {Machine::eCPUFeatureSSE, 25}, {Machine::eCPUFeatureSSE2, 26},
    {Machine::eCPUFeatureHTT, 28},
};

template <std::size_t N>
unsigned int featuresIn(DWORD value, const FeatureBit (&bits)[N]) noexcept
{
    unsigned int features = 0;
    for (const FeatureBit& bit : bits)
    {
        if ((value >> bit.bit & 1u) != 0)
            features |= bit.feature;
    }
    return features;
}
} // namespace

std::optional<Machine::ECPUVendor> tarvo::detail::processorVendor(const CString& text)
{
    CkMap<CString, CkMachineCapabilities::ECPUVendor, 2, unsigned int, CkHashKey<CString>> vendors(10);
    for (const VendorText& known : vendorTexts)
    {
        Machine::ECPUVendor* const vendor = vendors.TryAdd(known.text);
        if (vendor == nullptr)
            return std::nullopt;
        *vendor = known.vendor;
    }
    const Machine::ECPUVendor* const vendor = vendors.Lookup(text);
    return vendor != nullptr ? *vendor : Machine::eCPUVendorUnknown;
}

const WCHAR* tarvo::detail::processorVendorName(Machine::ECPUVendor vendor) noexcept
{
    const auto index = static_cast<std::size_t>(vendor);
    return index < std::size(vendorNames) ? vendorNames[index] : CK_T("");
}

unsigned int tarvo::detail::processorFeatures(DWORD ecx, DWORD edx) noexcept
{
    return featuresIn(ecx, featuresOfEcx) | featuresIn(edx, featuresOfEdx);
}
