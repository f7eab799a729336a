#include <tarvo/system/detail/processormodel.h>

#include <algorithm>
#include <iterator>

namespace tarvo::detail
{
namespace
{
using Machine = CkMachineCapabilities;

constexpr Machine::ECPUVendor intel = Machine::eCPUVendorIntel;
constexpr Machine::ECPUVendor amd = Machine::eCPUVendorAMD;
constexpr Machine::ECPUVendor cyrix = Machine::eCPUVendorCyrix;
constexpr Machine::ECPUVendor centaur = Machine::eCPUVendorCentaur;
constexpr Machine::ECPUVendor nexGen = Machine::eCPUVendorNexGen;
constexpr Machine::ECPUVendor transmeta = Machine::eCPUVendorTransmeta;
constexpr Machine::ECPUVendor rise = Machine::eCPUVendorRise;
constexpr Machine::ECPUVendor umc = Machine::eCPUVendorUMC;
constexpr Machine::ECPUVendor sis = Machine::eCPUVendorSiS;
constexpr Machine::ECPUVendor nsc = Machine::eCPUVendorNationalSemiconductor;

constexpr int any = -1;

/// A family of models that share a name.
struct Row
{
    Machine::ECPUVendor vendor;
    int family;
    int extendedFamily;
    int extendedModel;
    int model;
    const WCHAR* name;
    int firstStepping = 0;
    int lastStepping = 15;
};

constexpr Row rows[] = {
    {intel, 0, 2, any, 0, CK_T("Itanium 2 DC (IA-64 Montecito, 0.09\u00B5m)")},
    {intel, 4, any, any, 0, CK_T("i80486 DX-25/33")},
    {intel, 4, any, any, 1, CK_T("i80486 DX-50")},
    {intel, 4, any, any, 2, CK_T("i80486 SX")},
    {intel, 4, any, any, 3, CK_T("i80486 DX2")},
    {intel, 4, any, any, 4, CK_T("i80486 SL")},
    {intel, 4, any, any, 5, CK_T("i80486 SX2")},
    {intel, 4, any, any, 7, CK_T("i80486 DX2WB")},
    {intel, 4, any, any, 8, CK_T("i80486 DX4")},
    {intel, 4, any, any, 9, CK_T("i80486 DX4WB")},
    {intel, 5, any, any, 0, CK_T("P5 A-step (60/66)")},
    {intel, 5, any, any, 1, CK_T("P5 (60/66)")},
    {intel, 5, any, any, 2, CK_T("P54C (75-200)")},
    {intel, 5, any, any, 3, CK_T("P24T Overdrive")},
    {intel, 5, any, any, 4, CK_T("P55C (Pentium MMX)")},
    {intel, 5, any, any, 7, CK_T("P54C (Mobile Pentium 75-200)")},
    {intel, 5, any, any, 8, CK_T("P55C (Mobile Pentium MMX, 0.25\u00B5m)")},
    {intel, 6, any, 1, 6, CK_T("Core 2 SC with 1 MB on-die L2 (65nm)")},
    {intel, 6, any, 1, 7, CK_T("Core 2 DC with 6 MB on-die L2 (45nm)")},
    {intel, 6, any, 0, 1, CK_T("P6 A-step (Pentium Pro)")},
    {intel, 6, any, 0, 2, CK_T("P6 (Pentium Pro)")},
    {intel, 6, any, 0, 3, CK_T("P2 (Pentium II Klamath, 0.28\u00B5m)")},
    {intel, 6, any, 0, 5, CK_T("P2 (Pentium II Deschutes, 0.25\u00B5m)")},
    {intel, 6, any, 0, 6, CK_T("P2 with on-die L2 cache (Celeron Mendocino)")},
    {intel, 6, any, 0, 7, CK_T("P3 (Pentium III Katmai, 0.25\u00B5m)")},
    {intel, 6, any, 0, 8, CK_T("P3 with 256 KB on-die L2 (Pentium III Coppermine, 0.18\u00B5m)")},
    {intel, 6, any, 0, 9, CK_T("PM with 1 MB on-die L2 (Mobile Pentium III, 0.13\u00B5m)")},
    {intel, 6, any, 0, 10, CK_T("P3 with 2 MB on-die L2 (Pentium III, 0.18\u00B5m)")},
    {intel, 6, any, 0, 11, CK_T("P3 with 512 KB on-die L2 (Pentium III, 0.13\u00B5m)")},
    {intel, 6, any, 0, 13, CK_T("PM with 2 MB on-die L2 (Mobile Pentium, 0.09\u00B5m)")},
    {intel, 6, any, 0, 14, CK_T("PM CD with 2 MB on-die L2 (Mobile Pentium, 65nm)")},
    {intel, 6, any, 0, 15, CK_T("Core 2 DC with 4 MB on-die L2 (65nm)")},
    {intel, 7, any, any, 0, CK_T("Itanium (IA-64 Merced, 0.18\u00B5m)")},
    {intel, 15, 0, any, 0, CK_T("P4 (0.18\u00B5m)")},
    {intel, 15, 0, any, 1, CK_T("P4 (0.18\u00B5m)")},
    {intel, 15, 0, any, 2, CK_T("P4 (0.13\u00B5m)")},
    {intel, 15, 0, any, 3, CK_T("P4 (0.09\u00B5m)")},
    {intel, 15, 0, any, 4, CK_T("P4 (0.09\u00B5m)")},
    {intel, 15, 0, any, 6, CK_T("P4 (65nm)")},
    {intel, 15, 1, any, 0, CK_T("Itanium 2 (IA-64 McKinley, 0.18\u00B5m)")},
    {intel, 15, 1, any, 1, CK_T("Itanium 2 (IA-64 Madison / Deerfield, 0.13\u00B5m)")},
    {intel, 15, 1, any, 2, CK_T("Itanium 2 (IA-64 Madison, 0.13\u00B5m)")},

    {amd, 4, any, any, 3, CK_T("80486 DX2")},
    {amd, 4, any, any, 7, CK_T("80486 DX2WB")},
    {amd, 4, any, any, 8, CK_T("80486 DX4")},
    {amd, 4, any, any, 9, CK_T("80486 DX4WB")},
    {amd, 4, any, any, 10, CK_T("Elan SC400")},
    {amd, 4, any, any, 14, CK_T("5x86 ")},
    {amd, 4, any, any, 15, CK_T("5x86 WB")},
    {amd, 5, any, any, 0, CK_T("K5 SSA5 (PR75,PR90,PR100)")},
    {amd, 5, any, any, 1, CK_T("K5 5k86 (PR120,PR133)")},
    {amd, 5, any, any, 2, CK_T("K5 5k86 (PR166)")},
    {amd, 5, any, any, 3, CK_T("K5 5k86 (PR200)")},
    {amd, 5, any, any, 6, CK_T("K6 (0.30\u00B5m)")},
    {amd, 5, any, any, 7, CK_T("K6 (0.25\u00B5m)")},
    {amd, 5, any, any, 8, CK_T("K6-2")},
    {amd, 5, any, any, 9, CK_T("K6-III")},
    {amd, 5, any, any, 13, CK_T("K6-2+ (0.18\u00B5m)")},
    {amd, 5, any, any, 14, CK_T("K6-III")},
    {amd, 5, any, any, 15, CK_T("K6-III+")},
    {amd, 6, any, any, 1, CK_T("Athlon (0.25\u00B5m)")},
    {amd, 6, any, any, 2, CK_T("Athlon (0.18\u00B5m)")},
    {amd, 6, any, any, 3, CK_T("Duron SF")},
    {amd, 6, any, any, 4, CK_T("Athlon Thunderbird")},
    {amd, 6, any, any, 6, CK_T("Athlon Palamino")},
    {amd, 6, any, any, 7, CK_T("Duron Morgan")},
    {amd, 6, any, any, 8, CK_T("Athlon Thoroughbred")},
    {amd, 6, any, any, 10, CK_T("Athlon Barton")},
    {amd, 15, 1, any, 0, CK_T("K8L Rev A")},
    {amd, 15, 1, any, 2, CK_T("K8L Rev B")},

    {cyrix, 4, any, any, 9, CK_T("5x86")},
    {cyrix, 5, any, any, 2, CK_T("M1 6x86")},
    {cyrix, 5, any, any, 4, CK_T("Media GX,GXm")},
    {cyrix, 6, any, any, 0, CK_T("M2 6x86MX")},
    {cyrix, 6, any, any, 5, CK_T("M2 Core")},
    {cyrix, 6, any, any, 6, CK_T("C3 WinChip C5A core")},
    {cyrix, 6, any, any, 7, CK_T("C3 WinChip C5B core"), 0, 7},
    {cyrix, 6, any, any, 7, CK_T("C3 WinChip C5C core"), 8, 15},
    {cyrix, 6, any, any, 8, CK_T("C3 WinChip C5N core")},
    {cyrix, 6, any, any, 9, CK_T("C3 WinChip C5XL core"), 0, 7},
    {cyrix, 6, any, any, 9, CK_T("C3 WinChip C5P core"), 8, 15},

    {centaur, 5, any, any, 4, CK_T("C6")},
    {centaur, 5, any, any, 8, CK_T("C2")},
    {centaur, 5, any, any, 9, CK_T("C3")},
    {centaur, 6, any, any, 6, CK_T("III - Samuel")},
    {nexGen, 5, any, any, 0, CK_T("Nx586 or Nx586FPU")},
    {transmeta, 5, any, any, 4, CK_T("Crusoe TM3x00 or TM5x00")},
    {transmeta, 15, any, any, any, CK_T("Efficeon")},
    {rise, 5, any, any, 0, CK_T("mP6 (0.25\u00B5m)")},
    {rise, 5, any, any, 2, CK_T("mP6 (0.18\u00B5m)")},
    {umc, 4, any, any, 1, CK_T("U5D")},
    {umc, 4, any, any, 2, CK_T("U5S")},
    {sis, 5, any, any, 0, CK_T("55x")},
    {nsc, 5, any, any, 4, CK_T("Geode GX1, GXLV, GXm")},
    {nsc, 5, any, any, 5, CK_T("Geode GX2")},
    {nsc, 5, any, any, 10, CK_T("Geode LX")},
};

/// The fields of a signature.
struct Signature
{
    explicit constexpr Signature(DWORD eax) noexcept
        : stepping(field(eax, 0, 4)), model(field(eax, 4, 4)), family(field(eax, 8, 4)),
          extendedModel(field(eax, 16, 4)), extendedFamily(field(eax, 20, 8))
    {
    }

    static constexpr int field(DWORD eax, unsigned int firstBit, unsigned int bits) noexcept
    {
        return static_cast<int>(eax >> firstBit & ((1u << bits) - 1u));
    }

    int stepping;
    int model;
    int family;
    int extendedModel;
    int extendedFamily;
};

bool matches(int wanted, int value)
{
    return wanted == any || wanted == value;
}

bool matches(const Row& row, Machine::ECPUVendor vendor, const Signature& signature)
{
    return row.vendor == vendor && row.family == signature.family &&
           matches(row.extendedFamily, signature.extendedFamily) &&
           matches(row.extendedModel, signature.extendedModel) && matches(row.model, signature.model) &&
           row.firstStepping <= signature.stepping && signature.stepping <= row.lastStepping;
}

bool isK8(Machine::ECPUVendor vendor, const Signature& signature)
{
    return vendor == amd && signature.family == 15 && signature.extendedFamily == 0;
}

/// The K8 says in parts of its model what it consists of.
CString k8Model(const Signature& signature)
{
    static constexpr const WCHAR* cores[] = {CK_T(" JH (CD 1024 KB)"), CK_T(" SH (SC 1024 KB)"),
                                             CK_T(" CH (SC 256 KB)"), CK_T(" DH (SC 512 KB)")};
    static constexpr const WCHAR* revisions[] = {
        CK_T(" 130nm Rev C"), CK_T(" 90nm Rev D"), CK_T(" 90nm Rev E"), CK_T(""),
        CK_T(" 90nm Rev F"),  CK_T(" 90nm Rev F"), CK_T(" 65nm Rev G"), CK_T(" 65nm Rev G")};
    // "Socekt": misspelled, but known by that name.
    static constexpr const WCHAR* sockets[] = {CK_T(", Socket 754 / S1"), CK_T(", Socekt 940 / F1207"), CK_T(""),
                                               CK_T(", Socket 939 / AM2")};

    CString name = CK_T("K8");
    name += cores[signature.model / 4 % 4];
    if (signature.extendedModel < 8)
        name += revisions[signature.extendedModel];
    return name + sockets[signature.model % 4];
}
} // namespace

CString processorModel(CkMachineCapabilities::ECPUVendor vendor, DWORD eax)
{
    const Signature signature(eax);
    if (isK8(vendor, signature))
        return k8Model(signature);
    const Row* const row =
        std::find_if(std::begin(rows), std::end(rows),
                     [vendor, &signature](const Row& candidate) { return matches(candidate, vendor, signature); });
    return row != std::end(rows) ? row->name : CK_T("unknown");
}
} // namespace tarvo::detail
