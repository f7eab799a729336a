#include <tarvo/platform/framework/regularexpression.h>

#include <gtest/gtest.h>

#include <locale>
#include <regex>
#include <string>
#include <thread>

namespace
{
using tarvo::framework::RegularExpression;

bool isFound(const CString& pattern, const CString& text)
{
    return RegularExpression(pattern).IsFoundIn(text);
}

/// For messages.
std::string operator/(const char* what, const CString& text)
{
    return what + (" " + text.Left(40).ToUtf8());
}
} // namespace

TEST(RegularExpression, finds_matches_anywhere_in_whatever_way_it_searches)
{
    struct Row
    {
        const WCHAR* pattern;
        const WCHAR* text;
        bool found;
    };
    const Row rows[] = {
        {CK_T("Stream"), CK_T("CkExceptionStream"), true},
        {CK_T("stream"), CK_T("CkExceptionStream"), false},
        {CK_T("Stream"), CK_T(""), false},
        {CK_T("^CkException$"), CK_T("CkException"), true},
        {CK_T("^CkException$"), CK_T("CkExceptionStream"), false},
        {CK_T("^$"), CK_T(""), true},
        {CK_T("^b"), CK_T("a\nb"), false},
        {CK_T("Exc.*m$"), CK_T("CkExceptionStream"), true},
        {CK_T("(Stream|Condition)$"), CK_T("CkExceptionStreams"), false},
        {CK_T("(a|ab)(c|bcd)(d*)$"), CK_T("xabcd"), true},
        {CK_T("[^a-z-]{2,3}"), CK_T("ab12cd"), true},
        {CK_T("[^a-z-]{3}"), CK_T("ab12cd"), false},
        {CK_T("\\bset\\b"), CK_T("to set it"), true},
        {CK_T("\\bset\\b"), CK_T("to reset it"), false},
        {CK_T("a(?=b)"), CK_T("acab"), true},
        {CK_T("a(?!b)"), CK_T("abab"), false},
        {CK_T("(\\w)\\1"), CK_T("abccd"), true},
        {CK_T("(\\w)\\1"), CK_T("abcabc"), false},
        {CK_T("x*?y"), CK_T("xxxy"), true},
        {CK_T("a.c"), CK_T("a\nc"), false},
        {CK_T("(a*)*$"), CK_T("b"), true},
        {CK_T("(|a)+c"), CK_T("aab"), false},
        {CK_T("a{2}{2}"), CK_T("aaa"), false},
        {CK_T("\u00E4+"), CK_T("\u00E4\u00E4"), true},
        {CK_T("\u00E4"), CK_T("\u00C4"), false},
        {CK_T("\\w"), CK_T("\u00E4\u0416"), false},
        {CK_T("\\u0416..$"), CK_T("\u0416\U0001F600"), true},
        {CK_T("^.$"), CK_T("\U0001F600"), false},
        {CK_T("\\."), CK_T("a.b"), true},
    };
    const CString wandering(CK_T('-'), 2000);
    for (const Row& row : rows)
    {
        EXPECT_EQ(isFound(row.pattern, row.text), row.found)
            << "pattern" / CString(row.pattern) << " text" / CString(row.text);
        // The same again, with a part that leads through much text before it proves to be of no use.
        const CString pattern = CK_T("(?:(?:-|r)*s)?(?:") + CString(row.pattern) + CK_T(")");
        if (pattern.Find(CK_T("(?:^")) < 0 && pattern.Find(CK_T("\\1")) < 0)
        {
            EXPECT_EQ(isFound(pattern, wandering + row.text), row.found) << "far pattern" / CString(row.pattern);
        }
    }
}

TEST(RegularExpression, does_not_depend_on_the_locale)
{
    struct AllAreEverything : std::ctype<wchar_t>
    {
        bool do_is(mask, char_type) const override { return true; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new AllAreEverything));
    EXPECT_FALSE(isFound(CK_T("\\d"), CK_T("a")));
    std::locale::global(before);
}

TEST(RegularExpression, patterns_and_texts_end_at_their_first_zero)
{
    EXPECT_TRUE(RegularExpression(CK_T("")).IsEmpty());
    EXPECT_TRUE(RegularExpression(CString(CK_T("\0a"), 2)).IsEmpty());
    EXPECT_TRUE(isFound(CString(CK_T("a\0("), 3), CK_T("xa")));
    for (const WCHAR* const pattern : {CK_T("b"), CK_T("b+")})
        EXPECT_FALSE(isFound(pattern, CString(CK_T("a\0b"), 3)));
    EXPECT_TRUE(isFound(CK_T("a$"), CString(CK_T("a\0b"), 3)));
}

TEST(RegularExpression, long_texts_overflow_no_stack_and_take_no_time_beyond_their_length)
{
    constexpr int length = 300000;
    struct Row
    {
        const WCHAR* pattern;
        WCHAR filler;
        const WCHAR* end;
        bool found;
    };
    const Row rows[] = {
        {CK_T("a.*b"), CK_T('a'), CK_T(""), false},     {CK_T("a.*b"), CK_T('a'), CK_T("b"), true},
        {CK_T("(x|y)+z"), CK_T('x'), CK_T(""), false},  {CK_T("(x|y)+z"), CK_T('x'), CK_T("z"), true},
        {CK_T("(a+)+b"), CK_T('a'), CK_T(""), false},   {CK_T("(a|aa)*b$"), CK_T('a'), CK_T("b"), true},
        {CK_T("^[^]*c$"), CK_T('a'), CK_T("b"), false}, {CK_T("ab"), CK_T('a'), CK_T("b"), true},
        {CK_T("(b)\\1"), CK_T('a'), CK_T("bb"), true},
    };
    // On a thread as applications have them, and not on the larger stack of the first one.
    std::thread(
        [&rows]
        {
            for (const Row& row : rows)
            {
                EXPECT_EQ(isFound(row.pattern, CString(row.filler, length) + row.end), row.found)
                    << "pattern" / CString(row.pattern) << " end" / CString(row.end);
            }
        })
        .join();
}

TEST(RegularExpression, gives_up_back_references_that_would_take_too_much)
{
    EXPECT_FALSE(isFound(CK_T("^(.*)b\\1$"), CString(CK_T('a'), 300000))) << "stack";
    EXPECT_FALSE(isFound(CK_T("(b?)(a+)+\\1c"), CString(CK_T('a'), 60))) << "time";
}

TEST(RegularExpression, takes_no_pattern_that_is_none_or_too_large)
{
    const CString open(CK_T('('), 400000);
    const CString patterns[] = {
        CK_T("("),
        CK_T("a)"),
        CK_T("[a"),
        CK_T("*"),
        CK_T("a)(b"),
        CK_T("a{2,1}"),
        CK_T("\\1"),
        CK_T("(?:|a){20000}"),
        CK_T("((a{9}){99}){99}"),
        CK_T("[a\\]]{30000}"),
        CK_T("(a|b{99}){11}"),
        CK_T("(?:") + CString(CK_T('|'), 900) + CK_T("){8}c"),
        open,
        CString(CK_T('.'), 400000),
    };
    for (const CString& pattern : patterns)
        EXPECT_THROW(RegularExpression{pattern}, std::regex_error) << "pattern" / pattern;
    EXPECT_TRUE(isFound(CString(CK_T('a'), 100000), CString(CK_T('a'), 100001))) << "plain text of any length";
    EXPECT_TRUE(isFound(CK_T("^([0-9a-f]{4}-){3}[0-9]{12}$"), CK_T("0af1-0000-ffff-012345678901")));
}
