#include <tarvo/system/ckmachinecapabilities.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <thread>

using Machine = CkMachineCapabilities;

TEST(CkMachineCapabilities, describe_this_machine)
{
    EXPECT_FALSE(Machine::GetMachineName().IsEmpty());
    EXPECT_FALSE(Machine::GetOperatingSystemName().IsEmpty());
    EXPECT_EQ(Machine::GetOperatingSystemName().Right(7), CK_T(" 64-Bit"));
    EXPECT_FALSE(Machine::GetCPUModelName().IsEmpty());
    EXPECT_GE(Machine::GetCPUCount(), 1u);
    EXPECT_LE(Machine::GetCPUCount(), std::thread::hardware_concurrency());
    EXPECT_GT(Machine::GetTotalPhysicalMemory(), 0x1000000u);
    EXPECT_GT(Machine::GetTotalVirtualMemory(), 0x100000000u);
    EXPECT_EQ(Machine::HasCPUID(), Machine::GetCPUVendor() != Machine::eCPUVendorUnknown);
    EXPECT_EQ(Machine::HasCPUID(), !Machine::GetCPUVendorName().IsEmpty());
}

TEST(CkMachineCapabilities, speed_comes_from_the_time_stamp_counter)
{
    const bool measured = Machine::HasCPUFeature(Machine::eCPUFeatureTSC);
    EXPECT_EQ(Machine::GetCPUSpeed() > 100, measured);
    EXPECT_LT(Machine::GetCPUSpeed(), 20000u);
}

TEST(CkMachineCapabilities, have_a_feature_of_a_set_that_shares_one)
{
    // Every processor with 64 bits that has CPUID at all has these.
    constexpr unsigned int common = Machine::eCPUFeatureFPU | Machine::eCPUFeatureSSE2 | Machine::eCPUFeatureTSC;
    EXPECT_FALSE(Machine::HasCPUFeature(static_cast<Machine::ECPUFeatures>(0)));
    EXPECT_FALSE(Machine::HasCPUFeature(static_cast<Machine::ECPUFeatures>(0x80)));
    EXPECT_EQ(Machine::HasCPUFeature(static_cast<Machine::ECPUFeatures>(common | 0x80)), Machine::HasCPUID());
    EXPECT_EQ(Machine::HasCPUFeature(Machine::eCPUFeatureSSE2), Machine::HasCPUID());
}
