#include <tarvo/platform/framework/cstring.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <string_view>
#include <unordered_set>

using namespace std::string_view_literals;

namespace
{
constexpr WCHAR highSurrogate = 0xD83D;
constexpr WCHAR lowSurrogate = 0xDE00;

/// Whether `action` throws the framework's out-of-memory exception; the exception is ended.
template <typename Action>
bool throwsMemoryException(Action action)
{
    try
    {
        action();
    }
    catch (CException* exception)
    {
        const bool memory = dynamic_cast<CMemoryException*>(exception) != nullptr;
        exception->Delete();
        return memory;
    }
    return false;
}

CString replacements(int count)
{
    return CString(WCHAR{0xFFFD}, count);
}

class CountedException : public CException
{
public:
    CountedException(int& destroyed, bool autoDelete) noexcept : CException(autoDelete), m_destroyed(destroyed) {}
    ~CountedException() override { ++m_destroyed; }

private:
    int& m_destroyed;
};
} // namespace

TEST(CException, delete_frees_only_what_is_on_the_heap)
{
    int destroyed = 0;
    (new CountedException(destroyed, true))->Delete();
    EXPECT_EQ(destroyed, 1);
    {
        CountedException local(destroyed, false);
        local.Delete();
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(CException, memory_exception_survives_its_deletion_and_is_thrown_again)
{
    for (int round = 0; round < 3; ++round)
        EXPECT_TRUE(throwsMemoryException(AfxThrowMemoryException));
}

TEST(CString, null_pointers_are_empty_text)
{
    const CString texts[] = {CString(),
                             CString(nullptr),
                             CString(static_cast<const WCHAR*>(nullptr)),
                             CString(static_cast<const char*>(nullptr)),
                             CString(static_cast<const unsigned short*>(nullptr)),
                             CString(static_cast<const WCHAR*>(nullptr), 3),
                             CString(CK_T("abc"), -1),
                             CString(CK_T('x'), -5),
                             CString(CK_T("ab")).Mid(2),
                             nullptr + CString()};
    for (const CString& text : texts)
    {
        EXPECT_TRUE(text.IsEmpty());
        EXPECT_EQ(text, CString());
        EXPECT_EQ(text, static_cast<const WCHAR*>(nullptr));
        EXPECT_EQ(*text.GetString(), 0);
    }
    EXPECT_EQ(CString(CK_T("a")).Find(static_cast<const WCHAR*>(nullptr)), -1);
}

TEST(CString, every_source_gives_the_same_text)
{
    const unsigned short shorts[] = {'a', 0x20AC, 'b', 0};
    const CString expected(CK_T("a\u20ACb"));
    CString assigned(CK_T("a text that is longer than what fits without the heap"));
    EXPECT_EQ(CString(shorts), expected);
    EXPECT_EQ(assigned = shorts, expected);
    EXPECT_EQ(assigned = CK_T("a\u20ACb"), expected);
    EXPECT_EQ(CString(CK_T("a\u20ACbcd"), 3), expected);
    EXPECT_EQ(CString::FromUtf8("a\xE2\x82\xAC"
                                "b"),
              expected);
    EXPECT_EQ(assigned = "plain", CString(CK_T("plain")));
    EXPECT_EQ(assigned = CK_T('x'), CString(CK_T("x")));
    static_assert(!std::is_constructible_v<CString, int> && !std::is_constructible_v<CString, char> &&
                  !std::is_assignable_v<CString&, int> && !std::is_assignable_v<CString&, double>);
}

TEST(CString, indexes_of_any_type_read_units_up_to_the_zero)
{
    CString text(CK_T("abc"));
    const short two = 2;
    EXPECT_EQ(text[0], CK_T('a'));
    EXPECT_EQ(text[1u], CK_T('b'));
    EXPECT_EQ(text[two], CK_T('c'));
    EXPECT_EQ(text[std::size_t{2}], CK_T('c'));
    EXPECT_EQ(text[3LL], 0);
    text.SetAt(1, CK_T('x'));
    EXPECT_EQ(text, CK_T("axc"));
    EXPECT_EQ(std::basic_string<WCHAR>(text.begin(), text.end()), CK_T("axc"));
}

TEST(CString, ill_formed_utf8_becomes_one_replacement_for_every_maximal_part)
{
    struct Row
    {
        const char* what;
        std::string_view bytes;
        CString expected;
    };
    const Row rows[] = {
        {"overlong forms", "\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", replacements(8) + CK_T("A")},
        {"surrogates", "\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", replacements(8) + CK_T("A")},
        {"too large", "\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42",
         replacements(5) + CK_T("A") + replacements(2) + CK_T("B")},
        {"cut short inside", "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", replacements(4) + CK_T("A")},
        {"cut short at the end", "a\xF0\x9F\x98", CK_T("a") + replacements(1)},
        {"lead byte at the end", "\xC2", replacements(1)},
        {"lead byte above all", "\xF5\x80", replacements(2)},
        {"five-byte lead", "\xF8\x88\x80\x80\x80", replacements(5)},
        {"embedded zero", "a\0b"sv, CString(CK_T("a\0b"), 3)},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CString::FromUtf8(row.bytes), row.expected) << row.what;
}

TEST(CString, utf8_and_back_keeps_every_code_point)
{
    CString all;
    for (unsigned int point = 0; point < 0xFFFF; ++point)
    {
        if (point < 0xD800 || point > 0xDFFF)
            all.AppendChar(static_cast<WCHAR>(point));
    }
    for (unsigned int high = 0xD800; high < 0xDC00; ++high)
    {
        for (unsigned int low = 0xDC00; low < 0xE000; ++low)
        {
            all += static_cast<WCHAR>(high);
            all += static_cast<WCHAR>(low);
        }
    }
    EXPECT_TRUE(CString::FromUtf8(all.ToUtf8()) == all);

    const WCHAR boundaries[] = {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0xD800, 0xDC00, 0xDBFF, 0xDFFF, 0};
    EXPECT_EQ(CString(boundaries).ToUtf8(),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(CString, lone_surrogates_are_kept_as_units_and_replaced_in_utf8)
{
    const WCHAR units[] = {lowSurrogate, CK_T('a'), highSurrogate, CK_T('b'), lowSurrogate, highSurrogate, 0};
    const CString text(units);
    EXPECT_EQ(text.GetLength(), 6);
    EXPECT_EQ(text.ToUtf8(), "\xEF\xBF\xBD"
                             "a\xEF\xBF\xBD"
                             "b\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CString, narrow_text_never_fails_and_keeps_the_last_error)
{
    SetLastError(5);
    const CString text("a\xFFz");
    EXPECT_EQ(GetLastError(), 5u);
    EXPECT_EQ(text.GetLength(), 3);
    EXPECT_EQ(text.Left(1) + text.Right(1), CK_T("az"));
    for (int byte = 1; byte < 256; ++byte)
    {
        const char bytes[] = {static_cast<char>(byte), 0};
        EXPECT_EQ(CString(bytes).GetLength(), 1) << byte;
    }
}

TEST(CString, appends_parts_of_itself)
{
    for (const int length : {3, 100})
    {
        const CString original = CString(CK_T('x'), length - 1) + CK_T('y');
        CString text = original;
        text += text;
        text.Append(text.GetString() + length - 1, 2);
        text += text[0];
        text += text.GetString() + 2 * length;
        EXPECT_EQ(text, original + original + CK_T("yxxyxx")) << length;
        text = text.GetString() + 2 * length + 3;
        EXPECT_EQ(text, CK_T("yxx")) << length;
    }
}

TEST(CString, concatenation_takes_units_pointers_and_embedded_zeros)
{
    const CString a(CK_T("a"));
    const CString zero(CK_T("\0z"), 2);
    EXPECT_EQ(a + CK_T("bc") + CK_T('d') + a, CK_T("abcda"));
    EXPECT_EQ(CK_T('d') + a + (CK_T("e") + a), CK_T("daea"));
    EXPECT_EQ(a + "narrow", CK_T("anarrow"));
    EXPECT_EQ((a + zero).GetLength(), 3);
    EXPECT_EQ(a, CK_T("a"));
}

TEST(CString, parts_are_clamped_to_the_text)
{
    const CString text(CK_T("abcdef"));
    struct Row
    {
        CString part;
        const WCHAR* expected;
    };
    const Row rows[] = {
        {text.Mid(2), CK_T("cdef")},        {text.Mid(-3), CK_T("abcdef")},     {text.Mid(6), CK_T("")},
        {text.Mid(INT_MAX), CK_T("")},      {text.Mid(INT_MIN, 2), CK_T("ab")}, {text.Mid(1, 3), CK_T("bcd")},
        {text.Mid(4, INT_MAX), CK_T("ef")}, {text.Mid(1, -1), CK_T("")},        {text.Left(2), CK_T("ab")},
        {text.Left(99), CK_T("abcdef")},    {text.Left(-1), CK_T("")},          {text.Right(2), CK_T("ef")},
        {text.Right(99), CK_T("abcdef")},   {text.Right(INT_MIN), CK_T("")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.part, row.expected);
}

TEST(CString, searches_report_positions_or_minus_one)
{
    const CString text(CK_T("lib\\queue\\queue"));
    EXPECT_EQ(text.Find(CK_T('\\')), 3);
    EXPECT_EQ(text.Find(CK_T('\\'), 4), 9);
    EXPECT_EQ(text.Find(CK_T('\\'), 10), -1);
    EXPECT_EQ(text.Find(CK_T("queue")), 4);
    EXPECT_EQ(text.Find(CK_T("queue"), 5), 10);
    EXPECT_EQ(text.Find(CK_T("queues")), -1);
    EXPECT_EQ(text.Find(CK_T("lib"), -7), 0);
    EXPECT_EQ(text.Find(CK_T('l'), INT_MAX), -1);
    EXPECT_EQ(text.Find(CK_T(""), 15), 15);
    EXPECT_EQ(text.Find(CK_T(""), 16), -1);
    EXPECT_EQ(text.ReverseFind(CK_T('\\')), 9);
    EXPECT_EQ(text.ReverseFind(CK_T('/')), -1);
    EXPECT_EQ(CString().ReverseFind(CK_T('/')), -1);
}

TEST(CString, order_is_that_of_unsigned_units)
{
    const WCHAR ascending[][3] = {{0}, {1}, {'A'}, {'A', 'A'}, {'A', 'a'}, {'a'}, {0x7FFF}, {0x8000}, {0xFFFF}};
    for (int left = 0; left < 9; ++left)
    {
        for (int right = 0; right < 9; ++right)
        {
            const CString a(ascending[left]);
            const CString b(ascending[right]);
            EXPECT_EQ(a.Compare(b), (left > right) - (left < right));
            EXPECT_EQ(a == b, left == right);
            EXPECT_EQ(a != ascending[right], left != right);
            EXPECT_EQ(ascending[left] == b, left == right);
            EXPECT_EQ(a < b, left < right);
            EXPECT_EQ(a <= ascending[right], left <= right);
            EXPECT_EQ(ascending[left] > b, left > right);
            EXPECT_EQ(a >= b, left >= right);
        }
    }
}

TEST(CString, equality_and_hash_see_behind_embedded_zeros)
{
    const CString one(CK_T("a\0b"), 3);
    const CString other(CK_T("a\0c"), 3);
    EXPECT_NE(one, other);
    EXPECT_NE(one, CK_T("a"));
    EXPECT_EQ((std::unordered_set<CString>{one, other, one, CString(CK_T("a"))}.size()), 3u);
}

TEST(CString, lower_case_follows_unicode_unit_by_unit)
{
    struct Row
    {
        const WCHAR* text;
        const WCHAR* expected;
    };
    const Row rows[] = {
        {CK_T("D:\\Work\\LIB[@`{]09Z"), CK_T("d:\\work\\lib[@`{]09z")},
        {CK_T("\u00C0\u00D6\u00D7\u00D8\u00DE\u00DF\u00FF\u00B5"),
         CK_T("\u00E0\u00F6\u00D7\u00F8\u00FE\u00DF\u00FF\u00B5")},
        {CK_T("\u0100\u0101\u012E\u0130\u0131\u0178\u0179\u017F"),
         CK_T("\u0101\u0101\u012F\u0069\u0131\u00FF\u017A\u017F")},
        {CK_T("\u01C4\u01C5\u01C6\u0391\u03A3\u03C2\u0386\u03A2"),
         CK_T("\u01C6\u01C6\u01C6\u03B1\u03C3\u03C2\u03AC\u03A2")},
        {CK_T("\u0400\u0410\u042F\u0430\u0460\u04C0\u0531"), CK_T("\u0450\u0430\u044F\u0430\u0461\u04CF\u0561")},
        {CK_T("\u1E9E\u2126\u212A\u212B\u24B6\uA64A\uA7AA"), CK_T("\u00DF\u03C9\u006B\u00E5\u24D0\uA64B\u0266")},
        {CK_T("\uFF21\uFF3A\uFF3B\uFFFF\u4E00\uE000"), CK_T("\uFF41\uFF5A\uFF3B\uFFFF\u4E00\uE000")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CString(row.text).MakeLower(), row.expected);
}

TEST(CString, lower_case_of_every_unit_is_final_and_leaves_surrogates_alone)
{
    int changed = 0;
    for (unsigned int value = 0; value <= 0xFFFF; ++value)
    {
        const CString unit(static_cast<WCHAR>(value));
        const CString lower = CString(unit).MakeLower();
        EXPECT_EQ(CString(lower).MakeLower(), lower) << value;
        EXPECT_TRUE(lower == unit || value < 0xD800 || value > 0xDFFF) << value;
        changed += lower != unit;
    }
    EXPECT_EQ(changed, 1173); // the upper-case and title-case units of Unicode 14.0
}

TEST(CString, trim_takes_all_white_space_and_nothing_else)
{
    const CString space(CK_T("\t\n\v\f\r \u0085\u00A0\u1680\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u2007\u2008"
                             "\u2009\u200A\u2028\u2029\u202F\u205F\u3000"));
    const CString kept(CK_T("\u200B a \uFEFF"));
    EXPECT_EQ((space + kept + space).Trim(), kept);
    EXPECT_EQ((space + kept + space).TrimLeft(), kept + space);
    EXPECT_EQ((space + kept + space).TrimRight(), space + kept);
    EXPECT_EQ(CString(space).Trim(), CString());
    const WCHAR others[] = {0x00, 0x08, 0x0E, 0x1C, 0x1F, 0x84, 0x180E, 0x200B, 0x202E, 0x2060, 0x3001, 0xFEFF};
    for (const WCHAR unit : others)
        EXPECT_EQ(CString(unit).Trim().GetLength(), 1) << std::hex << int{unit};
}

TEST(CString, growing_beyond_the_limit_throws_and_changes_nothing)
{
    CString text(CK_T("kept"));
    EXPECT_TRUE(throwsMemoryException([&] { text.Append(text, INT_MAX); }));
    EXPECT_TRUE(throwsMemoryException([&] { text.Append(text, 0x7FFFFFFE - 3); }));
    EXPECT_TRUE(throwsMemoryException([&] { text.Format(CK_T("%2147483647d"), 1); }));
    EXPECT_TRUE(throwsMemoryException([&] { text.AppendFormat(CK_T("%*d"), INT_MAX, 1); }));
    EXPECT_TRUE(throwsMemoryException([&] { text = CString(CK_T('x'), INT_MAX); }));
    EXPECT_TRUE(throwsMemoryException([&] { text = CString(text, INT_MAX); }));
    EXPECT_EQ(text, CK_T("kept"));
}

TEST(CString, moved_and_swapped_text_is_not_copied)
{
    CString source(CK_T('x'), 1000);
    const WCHAR* const units = source;
    CString target(std::move(source));
    EXPECT_EQ(target.GetString(), units);
    swap(source, target);
    EXPECT_EQ(source.GetString(), units);
    EXPECT_EQ((std::move(source) + CString()).GetString(), units);
}
