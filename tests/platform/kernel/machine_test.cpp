#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/platform/kernel/osrelease.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <string>

TEST(KernelMachine, a_name_needs_room_for_itself_and_a_zero)
{
    WCHAR name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
    ASSERT_TRUE(GetComputerNameW(name, &length));
    EXPECT_GT(length, 0u);
    EXPECT_EQ(CString(name).GetLength(), static_cast<int>(length));

    struct Row
    {
        const char* what;
        DWORD room;
        BOOL result;
        DWORD size;
        DWORD lastError;
    };
    const Row rows[] = {
        {"as much as needed", length + 1, TRUE, length, 12345},
        {"no zero", length, FALSE, length + 1, ERROR_BUFFER_OVERFLOW},
        {"nothing", 0, FALSE, length + 1, ERROR_BUFFER_OVERFLOW},
    };
    for (const Row& row : rows)
    {
        WCHAR buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
        DWORD size = row.room;
        SetLastError(12345);
        EXPECT_EQ(GetComputerNameW(buffer, &size), row.result) << row.what;
        EXPECT_EQ(size, row.size) << row.what;
        EXPECT_EQ(buffer[0], row.result ? name[0] : 0) << row.what;
        if (!row.result)
        {
            EXPECT_EQ(GetLastError(), row.lastError) << row.what;
        }
    }
}

TEST(KernelMachine, memory_is_told_to_who_names_the_structure)
{
    struct Row
    {
        DWORD length;
        BOOL result;
    };
    const Row rows[] = {{64, TRUE}, {0, FALSE}, {63, FALSE}};
    for (const Row& row : rows)
    {
        MEMORYSTATUSEX status{};
        status.dwLength = row.length;
        SetLastError(12345);
        EXPECT_EQ(GlobalMemoryStatusEx(&status), row.result) << row.length;
        EXPECT_EQ(status.ullTotalPhys > 0x1000000, row.result != FALSE) << row.length;
        EXPECT_EQ(status.ullTotalVirtual > 0x100000000, row.result != FALSE) << row.length;
        if (!row.result)
        {
            EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << row.length;
        }
    }
}

TEST(KernelMachine, the_performance_counter_never_goes_back)
{
    LARGE_INTEGER frequency{};
    LARGE_INTEGER before{};
    EXPECT_TRUE(QueryPerformanceFrequency(&frequency));
    EXPECT_GE(frequency.QuadPart, 1000);
    EXPECT_TRUE(QueryPerformanceCounter(&before));
    for (LARGE_INTEGER now = before; now.QuadPart < before.QuadPart + frequency.QuadPart / 100;)
    {
        const long long last = now.QuadPart;
        QueryPerformanceCounter(&now);
        ASSERT_GE(now.QuadPart, last);
    }
}

TEST(OsRelease, has_the_name_as_the_shell_would_read_it)
{
    struct Row
    {
        const char* text;
        const WCHAR* name;
    };
    const Row rows[] = {
        {"", CK_T("")},
        {"PRETTY_NAME", CK_T("")},
        {"PRETTY_NAME=", CK_T("")},
        {"NAME=\"Other\"\nPRETTY_NAME=\"Some Linux 12 (word)\"\nID=some\n", CK_T("Some Linux 12 (word)")},
        {"#PRETTY_NAME=\"no\"\nPRETTY_NAME='in \"single\" \\quotes'", CK_T("in \"single\" \\quotes")},
        {"PRETTY_NAME=Plain \nID=x", CK_T("Plain")},
        {"PRETTY_NAME=Plain\r\n", CK_T("Plain")},
        {"PRETTY_NAME=\"\\\"Quoted\\\" \\$5 \\\\\"", CK_T("\"Quoted\" $5 \\")},
        {"PRETTY_NAME=\"first\"\nPRETTY_NAME=\"last\"", CK_T("last")},
        {"PRETTY_NAME=\"not ended", CK_T("not ended")},
        {"PRETTY_NAME=\"Z\xC3\xBCrich \xFF\"", CK_T("Z\u00FCrich \uFFFD")},
        {"PRETTY_NAME=\\", CK_T("\\")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(tarvo::kernel::prettyName(row.text), row.name) << row.text;
}
