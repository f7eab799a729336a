#include <tarvo/core/ckformat.h>
#include <tarvo/core/cklatesterror.h>

#include <support/platform.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <vector>

TEST(LatestError, captures_the_number_and_the_systems_words)
{
    SetLastError(0);
    EXPECT_EQ(CkLatestError().IsError(), 0);
    EXPECT_EQ(CkLatestError().GetLatestErrorNumber(), 0u);

    SetLastError(2);
    CkLatestError error;
    EXPECT_EQ(GetLastError(), 2u) << "capturing must not change what it captures";
    EXPECT_EQ(error.IsError(), 1);
    EXPECT_EQ(error.GetLatestErrorNumber(), 2u);
    EXPECT_FALSE(error.GetLatestErrorMessage().IsEmpty());
    EXPECT_EQ(error.GetLatestErrorMessage(), CString(error.GetLatestErrorMessage()).Trim());

    const CkLatestError copy = error;
    SetLastError(5);
    EXPECT_EQ(copy.GetLatestErrorNumber(), 2u);
    error.Update();
    EXPECT_EQ(error.GetLatestErrorNumber(), 5u);
    EXPECT_NE(error.GetLatestErrorMessage(), copy.GetLatestErrorMessage());
}

TEST(LatestError, every_common_code_has_a_text_and_an_unknown_one_has_none)
{
    std::vector<DWORD> codes = {50, 53, 80, 87, 126, 127, 183, 258, 298, 317, 995, 997, 1400};
    for (DWORD code = 1; code <= 33; ++code)
        codes.push_back(code);
    for (const DWORD code : codes)
    {
        // Not every system has these texts.
        if (!ownKernel && (code == WAIT_TIMEOUT || code == ERROR_MR_MID_NOT_FOUND))
            continue;
        SetLastError(code);
        EXPECT_FALSE(CkLatestError().GetLatestErrorMessage().IsEmpty()) << code;
    }
    SetLastError(0x2BADF00D);
    const CkLatestError unknown;
    EXPECT_EQ(unknown.GetLatestErrorNumber(), 0x2BADF00Du);
    EXPECT_TRUE(unknown.GetLatestErrorMessage().IsEmpty());
    EXPECT_EQ(GetLastError(), 0x2BADF00Du);
}

TEST(FormatMessageOfSystem, fails_without_a_text_and_with_inserts_that_nobody_fills)
{
    WCHAR* buffer = nullptr;
    SetLastError(0);
    EXPECT_EQ(FormatMessageW(0x1100, nullptr, 0x2BADF00D, 0x400, reinterpret_cast<WCHAR*>(&buffer), 0, nullptr), 0u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MR_MID_NOT_FOUND});
    EXPECT_EQ(buffer, nullptr);

    const DWORD length = FormatMessageW(0x1100, nullptr, 5, 0x400, reinterpret_cast<WCHAR*>(&buffer), 0, nullptr);
    ASSERT_GT(length, 2u);
    EXPECT_EQ(buffer[length], 0);
    EXPECT_EQ(LocalFree(buffer), nullptr);

    // What was filled in, or nothing at all: never a text with a hole in it.
    SetLastError(193);
    EXPECT_EQ(CkLatestError().GetLatestErrorMessage().Find(CK_T('%')), -1);
}

TEST(Format, is_formatted_text_wherever_a_text_is_expected)
{
    const auto lengthOf = [](const CString& text) { return text.GetLength(); };
    EXPECT_EQ(lengthOf(CkFormat(CK_T("%03x %03x.%03x"), 0x9c2, 0xf4b, 1)), 11);
    const CkFormat format(CK_T("%03x %03x.%03x"), 0x9c2, 0xf4b, 1);
    const CkFormat copy = format;
    EXPECT_EQ(static_cast<const CString&>(copy), CK_T("9c2 f4b.001"));
}
