#include <tarvo/platform/framework/format.h>
#include <tarvo/platform/framework/numbertext.h>

#include <support/locale.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

using tarvo::framework::NumberText;

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

template <typename... Arguments>
CString formatted(const WCHAR* format, Arguments... arguments)
{
    CString text;
    text.Format(format, arguments...);
    return text;
}

/// Compares with the C library, which formats the same arguments.
template <typename... Arguments>
void expectLikeC(const std::string& format, Arguments... arguments)
{
    char expected[2048];
    std::snprintf(expected, sizeof(expected), format.c_str(), arguments...);
    ASSERT_EQ(formatted(CString::FromUtf8(format), arguments...).ToUtf8(), expected) << format;
}

CString textOf(const NumberText& number)
{
    return CString(number.Text(), number.Length());
}

bool throwsMemoryException(const WCHAR* format, int first, double second)
{
    CString text;
    try
    {
        text.Format(format, first, second);
    }
    catch (CMemoryException* exception)
    {
        exception->Delete();
        return true;
    }
    return false;
}

/// Every kind of double with the same likelihood for each exponent; no infinities.
double randomReal(std::mt19937_64& random)
{
    double value = 0;
    do
    {
        value = std::bit_cast<double>(random());
    } while (!std::isfinite(value));
    return value;
}

const char* const fields[] = {"", "1", "12", "25", ".", ".0", ".1", ".3", ".20", "12.0", "12.3", "3.12", "30.20"};
} // namespace

TEST(Format, integers_agree_with_c_for_every_flag_width_and_precision)
{
    for (const char* flags : {"", "-", "+", " ", "0", "+ ", "-0", "+0", " 0", "-+", "- 0"})
    {
        for (const char* field : fields)
        {
            const std::string start = std::string("[%") + flags + field;
            for (const int value : {0, 1, -1, 42, 255, -32769, 70000, INT_MAX, INT_MIN})
            {
                for (const char* conversion : {"d]", "i]", "hd]", "hhi]"})
                    expectLikeC(start + conversion, value);
                expectLikeC(start + "lld]", value * 0xFFFFFFFFLL);
            }
        }
    }
    for (const char* flags : {"", "-", "0", "#", "-#", "#0", "-#0"})
    {
        for (const char* field : fields)
        {
            const std::string start = std::string("[%") + flags + field;
            for (const unsigned int value : {1u, 8u, 0xABu, 0x12345u, 0xFFFFFFFFu})
            {
                for (const char* conversion : {"o]", "x]", "X]", "hx]", "hhX]"})
                    expectLikeC(start + conversion, value);
                expectLikeC(start + "llX]", value * 0x100000001ULL);
            }
        }
    }
    expectLikeC("%u %5u %-5u| %05u %.3u %llu", 1u, 2u, 3u, 4u, 5u, ULLONG_MAX);
}

TEST(Format, reals_agree_with_c_for_every_flag_width_and_precision)
{
    const double values[] = {0.0,  -0.0,      1.5,        0.5,     2.5,    9.5,     0.1, -0.1,
                             1e-4, 9.9999e-5, 9.99999e-5, 1e5,     999999, 9999995, 1e6, 123456789,
                             1e20, -1e100,    DBL_MAX,    DBL_MIN, 5e-324, 1e-300,  100, 1234.5678};
    for (const char* flags : {"", "-", "+", " ", "0", "#", "-0", "+0", "#0", "-#+"})
    {
        for (const char* field : fields)
        {
            for (const char* conversion : {"f]", "F]", "e]", "E]", "g]", "G]", "lf]"})
            {
                for (const double value : values)
                    expectLikeC(std::string("[%") + flags + field + conversion, value);
            }
        }
    }
}

TEST(Format, random_reals_agree_with_c)
{
    std::mt19937_64 random(20240229);
    for (int round = 0; round < 20000; ++round)
    {
        const double value = randomReal(random);
        const int precision = static_cast<int>(random() % 24);
        expectLikeC("%.*f|%.*e|%.*g|%#.*g", precision, value, precision, value, precision, value, precision, value);
    }
}

TEST(Format, six_decimals_are_rounded_exactly)
{
    std::mt19937_64 random(7);
    char expected[400];
    const auto check = [&](double value)
    {
        std::snprintf(expected, sizeof(expected), "%f", value);
        const NumberText number(value);
        ASSERT_TRUE(std::equal(number.Text(), number.Text() + number.Length(), expected, std::strchr(expected, 0)))
            << expected;
    };
    for (int round = 0; round < 1'000'000; ++round)
    {
        // From far below a millionth to above the values that are rounded in integers.
        const double value = std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 90) - 90);
        check((random() & 1) != 0 ? value : -value);
    }
    for (int odd = 1; odd < 20000; odd += 2)
        check(odd / 128.0); // exactly between two sixth decimals
    for (const double value :
         {0.0, -0.0, 5e-324, 5e-7, std::nextafter(5e-7, 0), 0x1p43, std::nextafter(0x1p43, 0), 1e20})
        check(value);
}

TEST(Format, fixed_strings)
{
    const WCHAR unterminated[] = {CK_T('a'), CK_T('b'), CK_T('c')};
    const char narrowUnterminated[] = {'x', 'y'};
    const WCHAR* const none = nullptr;
    const char* const narrowNone = nullptr;
    const void* const address = reinterpret_cast<const void*>(std::uintptr_t{0xABCDEF0123456789});
    struct Row
    {
        CString text;
        const WCHAR* expected;
    };
    const Row rows[] = {
        {formatted(CK_T("%03x %03x.%03x"), 0x9C2, 0xF4B, 1), CK_T("9c2 f4b.001")},
        {formatted(CK_T("%#.0o|%.0x|%#.0x|%#x|%#o|%.0u|%#o|%#.3o"), 0, 0, 0, 0, 0, 0, 8, 8), CK_T("0|||0|0||010|010")},
        {formatted(CK_T("%ld %lu %lx"), LONG{-1}, ULONG{0xFFFFFFFF}, ULONG{0xFFFFFFFF}),
         CK_T("-1 4294967295 ffffffff")},
        {formatted(CK_T("%I64i %I64u %I32d %I32u"), LLONG_MIN, ULLONG_MAX, -1, ~0u),
         CK_T("-9223372036854775808 18446744073709551615 -1 4294967295")},
        {formatted(CK_T("%Id %zu %jd %td %Lu"), LLONG_MIN, ULLONG_MAX, -1LL, 1LL << 40, 7ULL),
         CK_T("-9223372036854775808 18446744073709551615 -1 1099511627776 7")},
        {formatted(CK_T("[%s|%5s|%-5s|%.2s|%5.1s|%ls]"), CK_T("ab"), CK_T("ab"), CK_T("ab"), CK_T("abc"), CK_T("ab"),
                   CK_T("\u20AC")),
         CK_T("[ab|   ab|ab   |ab|    a|\u20AC]")},
        {formatted(CK_T("[%S|%hs|%5hs|%.1S|%lS]"), "ab", "ab", "ab", "ab", CK_T("wide")), CK_T("[ab|ab|   ab|a|wide]")},
        {formatted(CK_T("%.3s%.2hs"), unterminated, narrowUnterminated), CK_T("abcxy")},
        {formatted(CK_T("[%s|%hs|%8s|%.3s]"), none, narrowNone, none, none), CK_T("[(null)|(null)|  (null)|(nu]")},
        {formatted(CK_T("[%c|%3c|%-3c|%lc|%hc]"), 'a', 'b', 'c', 0x20AC, 'd'), CK_T("[a|  b|c  |\u20AC|d]")},
        {formatted(CK_T("0x%p|%20p|%-18p|"), nullptr, address, address),
         CK_T("0x0000000000000000|    ABCDEF0123456789|ABCDEF0123456789  |")},
        {formatted(CK_T("[%*d|%*d|%.*d|%.*d]"), 4, 1, -4, 2, 3, 3, -3, 0), CK_T("[   1|2   |003|0]")},
        {formatted(CK_T("%f %F %e %G %g"), infinity, -infinity, -notANumber, notANumber, notANumber),
         CK_T("inf -INF -nan NAN nan")},
        {formatted(CK_T("[%06f|%-6f|%+f|% .0f|%08G]"), -infinity, infinity, infinity, infinity, notANumber),
         CK_T("[  -inf|inf   |+inf| inf|     NAN]")},
        // Rounding moves these to the other notation, where some C libraries lose the zeros that `#` keeps.
        {formatted(CK_T("%g %#g %.2g %#.3g"), 999999.5, 999999.5, 99.5, 999.9),
         CK_T("1e+06 1.00000e+06 1e+02 1.00e+03")},
        {formatted(CK_T("100%% %5% %y %-7.3q %")), CK_T("100% % %y %-7.3q %")},
        {formatted(CK_T("%d %n%d %"), 1, 2), CK_T("1 %n2 %")},
        {formatted(CK_T("%-5")), CK_T("%-5")},
        {formatted(CK_T("%h")), CK_T("%h")},
        {formatted(CK_T("")), CK_T("")},
        {formatted(nullptr), CK_T("")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.text, row.expected);
}

TEST(Format, a_zero_unit_belongs_to_the_text)
{
    EXPECT_EQ(formatted(CK_T("a%cb"), 0), CString(CK_T("a\0b"), 3));
}

TEST(Format, many_arguments_of_both_kinds_are_taken_in_turn)
{
    EXPECT_EQ(formatted(CK_T("%d %.1f %s %d %.1f %lld %hs %.1f %.1f %.1f %.1f %.1f %.1f %.1f %x %.1f"), 1, 2.0,
                        CK_T("3"), 4, 5.0, 6LL, "7", 8.0, 9.0, 10.0, 11.0, 12.0, 13.0, 14.0, 15, 16.0),
              CK_T("1 2.0 3 4 5.0 6 7 8.0 9.0 10.0 11.0 12.0 13.0 14.0 f 16.0"));
}

TEST(Format, digits_that_no_double_has_are_zeros)
{
    const CString tiny = formatted(CK_T("%.3000f"), 5e-324);
    EXPECT_EQ(tiny.GetLength(), 3002);
    EXPECT_EQ(tiny.Mid(1070, 12), CK_T("265625000000")); // 5 is the last of 1074 decimals
    EXPECT_EQ(formatted(CK_T("%.2000e"), 1.0), CK_T("1.") + CString(CK_T('0'), 2000) + CK_T("e+00"));
    EXPECT_EQ(formatted(CK_T("%#.2000g"), 0.5), CK_T("0.5") + CString(CK_T('0'), 1999));
    EXPECT_EQ(formatted(CK_T("%.2147483647g"), 0.5), CK_T("0.5"));
    EXPECT_EQ(formatted(CK_T("%.2147483647s"), CK_T("ab")), CK_T("ab"));
    EXPECT_EQ(formatted(CK_T("%.2000d"), -7), CK_T("-") + CString(CK_T('0'), 1999) + CK_T("7"));
    EXPECT_EQ(formatted(CK_T("%02000d"), -7), CK_T("-") + CString(CK_T('0'), 1998) + CK_T("7"));
    EXPECT_EQ(formatted(CK_T("%f"), -DBL_MAX).GetLength(), 317);
}

TEST(Format, what_exceeds_the_longest_text_throws_before_it_is_built)
{
    for (const WCHAR* format : {CK_T("%2147483647d"), CK_T("%-2147483647d"), CK_T("%.2147483647d"), CK_T("%*d"),
                                CK_T("%99999999999999999999d"), CK_T("%.99999999999999999999d"), CK_T("%2147483647c"),
                                CK_T("%2147483647p"), CK_T("%2147483647x%f")})
        EXPECT_TRUE(throwsMemoryException(format, INT_MIN, 1.0)) << CString(format).ToUtf8();
    for (const WCHAR* format : {CK_T("%d%2147483647f"), CK_T("%d%.2147483646f"), CK_T("%d%.2147483647e"),
                                CK_T("%d%#.2147483647g"), CK_T("%d%.4294967302f")})
        EXPECT_TRUE(throwsMemoryException(format, 1, 1.0)) << CString(format).ToUtf8();
}

TEST(Format, arguments_may_point_into_the_text_they_replace)
{
    CString text(CK_T("a text that does not fit without the heap"));
    text.Format(CK_T("<%s|%s>"), text.GetString(), text.GetString() + 37);
    EXPECT_EQ(text, CK_T("<a text that does not fit without the heap|heap>"));
    text.AppendFormat(CK_T("%.2s"), text.GetString());
    EXPECT_EQ(text.Right(4), CK_T("p><a"));
    text.Format(text);
    EXPECT_EQ(text.GetLength(), 50);
}

TEST(Format, result_is_the_same_in_every_locale)
{
    const CommaLocale locale;
    ASSERT_TRUE(locale.IsSet()) << "there is no locale with a decimal comma";
    EXPECT_EQ(formatted(CK_T("%f %.1e %g %d"), 1234567.5, 0.25, 0.5, 1234567),
              CK_T("1234567.500000 2.5e-01 0.5 1234567"));
    EXPECT_EQ(textOf(NumberText(0.5)), CK_T("0.500000"));
    EXPECT_EQ(textOf(NumberText(1e20)), CK_T("100000000000000000000.000000"));
    EXPECT_EQ(CString(CK_T("\u00C4I\u0130")).MakeLower(), CK_T("\u00E4ii"));
}

TEST(Format, an_unknown_conversion_shifts_no_argument_that_it_may_have)
{
    EXPECT_EQ(formatted(CK_T("%a|%y|%d"), 1.0, 7), CK_T("%a|%y|7"));
}

TEST(NumberText, is_what_the_format_of_the_same_type_gives)
{
    for (const int value : {0, -1, 200, INT_MAX, INT_MIN})
    {
        const auto wide = value * 0xFFFFFFFFLL;
        EXPECT_EQ(textOf(NumberText(value)), formatted(CK_T("%i"), value));
        EXPECT_EQ(textOf(NumberText(static_cast<unsigned int>(value))), formatted(CK_T("%u"), value));
        EXPECT_EQ(textOf(NumberText(wide)), formatted(CK_T("%I64i"), wide));
        EXPECT_EQ(textOf(NumberText(static_cast<unsigned long long>(wide))), formatted(CK_T("%I64u"), wide));
        EXPECT_EQ(textOf(NumberText(reinterpret_cast<const void*>(wide))), formatted(CK_T("%p"), wide));
    }
    for (const double value : {0.1, 1e20, -DBL_MAX, infinity, -infinity, notANumber, -notANumber})
        EXPECT_EQ(textOf(NumberText(value)), formatted(CK_T("%f"), value));
}
