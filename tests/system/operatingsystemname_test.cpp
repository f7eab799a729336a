#include <tarvo/system/detail/operatingsystemname.h>

#include <support/printers.h>

#include <gtest/gtest.h>

TEST(OperatingSystemName, is_the_one_under_which_a_version_is_sold)
{
    constexpr DWORD nt = 2;
    constexpr DWORD x86 = 0;
    constexpr DWORD x64 = 9;
    struct Row
    {
        tarvo::detail::WindowsVersion version;
        const WCHAR* name;
    };
    // Platform, version, workstation, server R2, suite mask, service pack, architecture.
    const Row rows[] = {
        {{1, 4, 10, true, false, 0, 1, 0, x86}, CK_T("Unbekannt")},
        {{1, 6, 1, true, false, 0, 1, 0, x64}, CK_T("Unbekannt")},
        {{3, 5, 1, true, false, 0, 0, 0, x86}, CK_T("Unbekannt")},
        {{nt, 4, 0, true, false, 0, 6, 0, x86}, CK_T("Unbekannt")},
        {{nt, 6, 0, true, false, 0, 0, 0, x86}, CK_T("Windows Vista 32-Bit")},
        {{nt, 6, 0, false, true, 0x2000, 2, 1, x64}, CK_T("Windows Server 2008 SP2.1 64-Bit")},
        {{nt, 6, 1, true, false, 0, 1, 0, x64}, CK_T("Windows 7 SP1 64-Bit")},
        {{nt, 6, 1, false, false, 0, 0, 5, x64}, CK_T("Windows Server 2008 R2 64-Bit")},
        {{nt, 6, 1, false, false, 0, 0, 0, 6}, CK_T("Windows Server 2008 R2")},
        {{nt, 5, 0, true, true, 0x2000, 4, 0, x86}, CK_T("Windows 2000 SP4")},
        {{nt, 5, 1, true, true, 0x2000, 3, 0, x86}, CK_T("Windows XP SP3")},
        {{nt, 5, 2, true, true, 0x2000, 0, 0, x64}, CK_T("Windows Server 2003 R2")},
        {{nt, 5, 2, true, false, 0x2001, 0, 0, x64}, CK_T("Windows Storage Server 2003")},
        {{nt, 5, 2, true, false, 0x1000, 0, 0, x64}, CK_T("Windows XP Professional x64 Edition")},
        {{nt, 5, 2, true, false, 0, 2, 0, x86}, CK_T("Windows Server 2003 SP2")},
        {{nt, 5, 2, false, false, 0, 0, 0, x64}, CK_T("Windows Server 2003")},
        {{nt, 5, 3, true, false, 0, 1, 0, x64}, CK_T("Windows NT 5.3 SP1")},
        {{nt, 6, 2, true, false, 0, 0, 0, x64}, CK_T("Windows NT 6.2 64-Bit")},
        {{nt, 10, 0, false, false, 0, 1, 2, x86}, CK_T("Windows NT 10.0 SP1.2 32-Bit")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(tarvo::detail::operatingSystemName(row.version), row.name);
}
