#include <tarvo/system/detail/processormodel.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
constexpr int any = -1;

struct Model
{
    int model;
    const WCHAR* name;
    const WCHAR* nameFromStepping8 = nullptr; ///< Null: the same.
};

struct Family
{
    int vendor;
    int family;
    int extendedFamily;
    int extendedModel;
    std::vector<Model> models;
};

const std::vector<Family> families = {
    {1, 0, 2, any, {{0, CK_T("Itanium 2 DC (IA-64 Montecito, 0.09\u00B5m)")}}},
    {1,
     4,
     any,
     any,
     {{0, CK_T("i80486 DX-25/33")},
      {1, CK_T("i80486 DX-50")},
      {2, CK_T("i80486 SX")},
      {3, CK_T("i80486 DX2")},
      {4, CK_T("i80486 SL")},
      {5, CK_T("i80486 SX2")},
      {7, CK_T("i80486 DX2WB")},
      {8, CK_T("i80486 DX4")},
      {9, CK_T("i80486 DX4WB")}}},
    {1,
     5,
     any,
     any,
     {{0, CK_T("P5 A-step (60/66)")},
      {1, CK_T("P5 (60/66)")},
      {2, CK_T("P54C (75-200)")},
      {3, CK_T("P24T Overdrive")},
      {4, CK_T("P55C (Pentium MMX)")},
      {7, CK_T("P54C (Mobile Pentium 75-200)")},
      {8, CK_T("P55C (Mobile Pentium MMX, 0.25\u00B5m)")}}},
    {1,
     6,
     any,
     1,
     {{6, CK_T("Core 2 SC with 1 MB on-die L2 (65nm)")}, {7, CK_T("Core 2 DC with 6 MB on-die L2 (45nm)")}}},
    {1,
     6,
     any,
     0,
     {{1, CK_T("P6 A-step (Pentium Pro)")},
      {2, CK_T("P6 (Pentium Pro)")},
      {3, CK_T("P2 (Pentium II Klamath, 0.28\u00B5m)")},
      {5, CK_T("P2 (Pentium II Deschutes, 0.25\u00B5m)")},
      {6, CK_T("P2 with on-die L2 cache (Celeron Mendocino)")},
      {7, CK_T("P3 (Pentium III Katmai, 0.25\u00B5m)")},
      {8, CK_T("P3 with 256 KB on-die L2 (Pentium III Coppermine, 0.18\u00B5m)")},
      {9, CK_T("PM with 1 MB on-die L2 (Mobile Pentium III, 0.13\u00B5m)")},
      {10, CK_T("P3 with 2 MB on-die L2 (Pentium III, 0.18\u00B5m)")},
      {11, CK_T("P3 with 512 KB on-die L2 (Pentium III, 0.13\u00B5m)")},
      {13, CK_T("PM with 2 MB on-die L2 (Mobile Pentium, 0.09\u00B5m)")},
      {14, CK_T("PM CD with 2 MB on-die L2 (Mobile Pentium, 65nm)")},
      {15, CK_T("Core 2 DC with 4 MB on-die L2 (65nm)")}}},
    {1, 7, any, any, {{0, CK_T("Itanium (IA-64 Merced, 0.18\u00B5m)")}}},
    {1,
     15,
     0,
     any,
     {{0, CK_T("P4 (0.18\u00B5m)")},
      {1, CK_T("P4 (0.18\u00B5m)")},
      {2, CK_T("P4 (0.13\u00B5m)")},
      {3, CK_T("P4 (0.09\u00B5m)")},
      {4, CK_T("P4 (0.09\u00B5m)")},
      {6, CK_T("P4 (65nm)")}}},
    {1,
     15,
     1,
     any,
     {{0, CK_T("Itanium 2 (IA-64 McKinley, 0.18\u00B5m)")},
      {1, CK_T("Itanium 2 (IA-64 Madison / Deerfield, 0.13\u00B5m)")},
      {2, CK_T("Itanium 2 (IA-64 Madison, 0.13\u00B5m)")}}},
    {2,
     4,
     any,
     any,
     {{3, CK_T("80486 DX2")},
      {7, CK_T("80486 DX2WB")},
      {8, CK_T("80486 DX4")},
      {9, CK_T("80486 DX4WB")},
      {10, CK_T("Elan SC400")},
      {14, CK_T("5x86 ")},
      {15, CK_T("5x86 WB")}}},
    {2,
     5,
     any,
     any,
     {{0, CK_T("K5 SSA5 (PR75,PR90,PR100)")},
      {1, CK_T("K5 5k86 (PR120,PR133)")},
      {2, CK_T("K5 5k86 (PR166)")},
      {3, CK_T("K5 5k86 (PR200)")},
      {6, CK_T("K6 (0.30\u00B5m)")},
      {7, CK_T("K6 (0.25\u00B5m)")},
      {8, CK_T("K6-2")},
      {9, CK_T("K6-III")},
      {14, CK_T("K6-III")},
      {13, CK_T("K6-2+ (0.18\u00B5m)")},
      {15, CK_T("K6-III+")}}},
    {2,
     6,
     any,
     any,
     {{1, CK_T("Athlon (0.25\u00B5m)")},
      {2, CK_T("Athlon (0.18\u00B5m)")},
      {3, CK_T("Duron SF")},
      {4, CK_T("Athlon Thunderbird")},
      {6, CK_T("Athlon Palamino")},
      {7, CK_T("Duron Morgan")},
      {8, CK_T("Athlon Thoroughbred")},
      {10, CK_T("Athlon Barton")}}},
    {2, 15, 1, any, {{0, CK_T("K8L Rev A")}, {2, CK_T("K8L Rev B")}}},
    {3, 4, any, any, {{9, CK_T("5x86")}}},
    {3, 5, any, any, {{2, CK_T("M1 6x86")}, {4, CK_T("Media GX,GXm")}}},
    {3,
     6,
     any,
     any,
     {{0, CK_T("M2 6x86MX")},
      {5, CK_T("M2 Core")},
      {6, CK_T("C3 WinChip C5A core")},
      {7, CK_T("C3 WinChip C5B core"), CK_T("C3 WinChip C5C core")},
      {8, CK_T("C3 WinChip C5N core")},
      {9, CK_T("C3 WinChip C5XL core"), CK_T("C3 WinChip C5P core")}}},
    {4, 5, any, any, {{4, CK_T("C6")}, {8, CK_T("C2")}, {9, CK_T("C3")}}},
    {4, 6, any, any, {{6, CK_T("III - Samuel")}}},
    {5, 5, any, any, {{0, CK_T("Nx586 or Nx586FPU")}}},
    {6, 5, any, any, {{4, CK_T("Crusoe TM3x00 or TM5x00")}}},
    {6, 15, any, any, {{any, CK_T("Efficeon")}}},
    {7, 5, any, any, {{0, CK_T("mP6 (0.25\u00B5m)")}, {2, CK_T("mP6 (0.18\u00B5m)")}}},
    {8, 4, any, any, {{1, CK_T("U5D")}, {2, CK_T("U5S")}}},
    {9, 5, any, any, {{0, CK_T("55x")}}},
    {10, 5, any, any, {{4, CK_T("Geode GX1, GXLV, GXm")}, {5, CK_T("Geode GX2")}, {10, CK_T("Geode LX")}}},
};

struct Signature
{
    int vendor;
    int family;
    int extendedFamily;
    int extendedModel;
    int model;
    int stepping;
};

bool fits(int wanted, int value)
{
    return wanted == any || wanted == value;
}

CString expectedName(const Signature& signature)
{
    for (const Family& family : families)
    {
        if (family.vendor != signature.vendor || family.family != signature.family ||
            !fits(family.extendedFamily, signature.extendedFamily) ||
            !fits(family.extendedModel, signature.extendedModel))
            continue;
        for (const Model& model : family.models)
        {
            if (fits(model.model, signature.model))
                return signature.stepping >= 8 && model.nameFromStepping8 ? model.nameFromStepping8 : model.name;
        }
    }
    return CK_T("unknown");
}

CString nameOf(const Signature& signature)
{
    // The bits between the fields mean something else.
    const int eax = signature.stepping | signature.model << 4 | signature.family << 8 | 0xF000 |
                    signature.extendedModel << 16 | signature.extendedFamily << 20;
    return tarvo::detail::processorModel(static_cast<CkMachineCapabilities::ECPUVendor>(signature.vendor),
                                         static_cast<DWORD>(eax) | 0xF0000000);
}

/// Every processor of a vendor in the extended families that mean something and one beyond.
template <class Action>
void forEachSignature(int vendor, Action action)
{
    for (const int extendedFamily : {0, 1, 2, 3, 16})
    {
        for (const int extendedModel : {0, 1, 2, 8})
        {
            for (int familyAndModel = 0; familyAndModel < 256; ++familyAndModel)
            {
                for (const int stepping : {0, 7, 8, 15})
                    action({vendor, familyAndModel / 16, extendedFamily, extendedModel, familyAndModel % 16, stepping});
            }
        }
    }
}
} // namespace

TEST(ProcessorModel, has_a_name_where_it_is_listed)
{
    for (int vendor = 0; vendor <= 11; ++vendor)
    {
        forEachSignature(vendor,
                         [](const Signature& signature)
                         {
                             const bool isK8 =
                                 signature.vendor == 2 && signature.family == 15 && signature.extendedFamily == 0;
                             if (!isK8 && nameOf(signature) != expectedName(signature))
                             {
                                 EXPECT_EQ(nameOf(signature), expectedName(signature))
                                     << "vendor " << signature.vendor << ", family " << signature.family << " + "
                                     << signature.extendedFamily << ", model " << signature.model << " + "
                                     << signature.extendedModel << ", stepping " << signature.stepping;
                             }
                         });
    }
}

TEST(ProcessorModel, of_a_k8_is_put_together)
{
    struct Part
    {
        int value;
        const WCHAR* text;
    };
    // By the model, in which the core stands above the socket, and by the extended model.
    const Part models[] = {
        {0, CK_T(" JH (CD 1024 KB)*, Socket 754 / S1")},
        {1, CK_T(" JH (CD 1024 KB)*, Socekt 940 / F1207")},
        {2, CK_T(" JH (CD 1024 KB)*")},
        {3, CK_T(" JH (CD 1024 KB)*, Socket 939 / AM2")},
        {4, CK_T(" SH (SC 1024 KB)*, Socket 754 / S1")},
        {9, CK_T(" CH (SC 256 KB)*, Socekt 940 / F1207")},
        {11, CK_T(" CH (SC 256 KB)*, Socket 939 / AM2")},
        {14, CK_T(" DH (SC 512 KB)*")},
        {15, CK_T(" DH (SC 512 KB)*, Socket 939 / AM2")},
    };
    const Part revisions[] = {
        {0, CK_T(" 130nm Rev C")},
        {1, CK_T(" 90nm Rev D")},
        {2, CK_T(" 90nm Rev E")},
        {3, CK_T("")},
        {4, CK_T(" 90nm Rev F")},
        {5, CK_T(" 90nm Rev F")},
        {6, CK_T(" 65nm Rev G")},
        {7, CK_T(" 65nm Rev G")},
        {8, CK_T("")},
        {15, CK_T("")},
    };
    for (const Part& model : models)
    {
        for (const Part& revision : revisions)
        {
            const CString parts = model.text;
            const int place = parts.Find(CK_T('*'));
            const CString expected = CK_T("K8") + parts.Left(place) + revision.text + parts.Mid(place + 1);
            EXPECT_EQ(nameOf({2, 15, 0, revision.value, model.value, 5}), expected);
        }
    }
}
