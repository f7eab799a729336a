#include <tarvo/system/detail/processoridentity.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <iterator>

using Machine = CkMachineCapabilities;

TEST(ProcessorIdentity, knows_vendors_by_their_texts)
{
    struct Row
    {
        const WCHAR* text;
        int vendor;
        const WCHAR* name;
    };
    const Row rows[] = {
        {CK_T(""), 0, CK_T("")},
        {CK_T("genuineintel"), 0, CK_T("")},
        {CK_T("UMC UMC UMC"), 0, CK_T("")},
        {CK_T("GenuineIntel"), 1, CK_T("Intel")},
        {CK_T("AuthenticAMD"), 2, CK_T("AMD")},
        {CK_T("AMD ISBETTER"), 2, CK_T("AMD")},
        {CK_T("CyrixInstead"), 3, CK_T("Cyrix")},
        {CK_T("CentaurHauls"), 4, CK_T("Centaur")},
        {CK_T("NexGenDriven"), 5, CK_T("NexGen")},
        {CK_T("GenuineTMx86"), 6, CK_T("Transmeta")},
        {CK_T("TransmetaCPU"), 6, CK_T("Transmeta")},
        {CK_T("RiseRiseRise"), 7, CK_T("Rise")},
        {CK_T("UMC UMC UMC "), 8, CK_T("UMC")},
        {CK_T("SiS SiS SiS "), 9, CK_T("SiS")},
        {CK_T("Geode by NSC"), 10, CK_T("National Semiconductor")},
    };
    for (const Row& row : rows)
    {
        const auto vendor = tarvo::detail::processorVendor(row.text);
        ASSERT_TRUE(vendor.has_value());
        EXPECT_EQ(static_cast<int>(*vendor), row.vendor) << CString(row.text).ToUtf8();
        EXPECT_EQ(CString(tarvo::detail::processorVendorName(*vendor)), row.name);
    }
}

TEST(ProcessorIdentity, reads_each_feature_from_its_bit)
{
    struct Row
    {
        bool inEcx;
        unsigned int bit;
        unsigned int feature;
    };
    const Row rows[] = {
        {false, 0, 0x1},  {false, 23, 0x2}, {false, 25, 0x4},   {false, 26, 0x8},  {true, 0, 0x10},
        {true, 19, 0x20}, {true, 20, 0x40}, {false, 28, 0x100}, {false, 4, 0x200}, {false, 18, 0x400},
    };
    for (const bool inEcx : {false, true})
    {
        for (unsigned int bit = 0; bit < 32; ++bit)
        {
            unsigned int expected = 0;
            for (const Row& row : rows)
                expected |= row.inEcx == inEcx && row.bit == bit ? row.feature : 0;
            const DWORD value = DWORD{1} << bit;
            EXPECT_EQ(tarvo::detail::processorFeatures(inEcx ? value : 0, inEcx ? 0 : value), expected) << bit;
        }
    }
    EXPECT_EQ(tarvo::detail::processorFeatures(~DWORD{0}, ~DWORD{0}), 0x77Fu);
}
