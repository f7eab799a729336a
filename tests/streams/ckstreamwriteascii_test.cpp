#include <tarvo/core/ckformat.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace
{
/// Keeps the pieces.
class PieceStream : public CkStreamWriteASCII
{
public:
    std::vector<CString> pieces;

protected:
    CkStreamWrite& write(const CString& text) override
    {
        pieces.push_back(text);
        return *this;
    }
};
} // namespace

TEST(TextStream, text_of_every_type_is_fixed)
{
    struct Row
    {
        std::function<void(CkStreamWrite&)> write;
        const WCHAR* text;
    };
    const unsigned short shorts[] = {'a', 'b', 0};
    const Row rows[] = {
        {[](CkStreamWrite& s) { s << true; }, CK_T("true")},
        {[](CkStreamWrite& s) { s << false; }, CK_T("false")},
        {[](CkStreamWrite& s) { s << static_cast<unsigned char>(200); }, CK_T("200")},
        {[](CkStreamWrite& s) { s << static_cast<signed char>(-56); }, CK_T("-56")},
        {[](CkStreamWrite& s) { s << char(-1); }, CK_T("255")},
        {[](CkStreamWrite& s) { s << CK_T('A'); }, CK_T("65")},
        {[](CkStreamWrite& s) { s << short{-32768}; }, CK_T("-32768")},
        {[](CkStreamWrite& s) { s << static_cast<unsigned short>(65535); }, CK_T("65535")},
        {[](CkStreamWrite& s) { s << INT_MIN; }, CK_T("-2147483648")},
        {[](CkStreamWrite& s) { s << 0; }, CK_T("0")},
        {[](CkStreamWrite& s) { s << UINT_MAX; }, CK_T("4294967295")},
        {[](CkStreamWrite& s) { s << LONG{-1}; }, CK_T("-1")},
        {[](CkStreamWrite& s) { s << ULONG{4294967295u}; }, CK_T("4294967295")},
        {[](CkStreamWrite& s) { s << LLONG_MIN; }, CK_T("-9223372036854775808")},
        {[](CkStreamWrite& s) { s << ULLONG_MAX; }, CK_T("18446744073709551615")},
        {[](CkStreamWrite& s) { s << 1.5f; }, CK_T("1.500000")},
        {[](CkStreamWrite& s) { s << 0.1f; }, CK_T("0.100000")},
        {[](CkStreamWrite& s) { s << 0.1; }, CK_T("0.100000")},
        {[](CkStreamWrite& s) { s << 1e20; }, CK_T("100000000000000000000.000000")},
        {[](CkStreamWrite& s) { s << -0.0; }, CK_T("-0.000000")},
        {[](CkStreamWrite& s) { s << 0.0000005; }, CK_T("0.000000")},
        {[](CkStreamWrite& s) { s << 2.5e-6; }, CK_T("0.000003")},
        {[](CkStreamWrite& s) { s << std::numeric_limits<double>::infinity(); }, CK_T("inf")},
        {[](CkStreamWrite& s) { s << -std::numeric_limits<float>::infinity(); }, CK_T("-inf")},
        {[](CkStreamWrite& s) { s << std::numeric_limits<double>::quiet_NaN(); }, CK_T("nan")},
        {[](CkStreamWrite& s) { s << -std::numeric_limits<double>::quiet_NaN(); }, CK_T("-nan")},
        {[](CkStreamWrite& s) { s << CString(CK_T("x y")); }, CK_T("x y")},
        {[](CkStreamWrite& s) { s << CK_T("literal"); }, CK_T("literal")},
        {[&](CkStreamWrite& s) { s << shorts; }, CK_T("ab")},
        {[](CkStreamWrite& s) { s.WriteVersion(12); }, CK_T("12")},
        {[](CkStreamWrite& s) { s << 1 << 2; }, CK_T("12")},
    };
    for (const Row& row : rows)
    {
        CkStreamWriteASCIIString string;
        row.write(string);
        EXPECT_EQ(*string, row.text);
        PieceStream pieces;
        row.write(pieces);
        CString joined;
        for (const CString& piece : pieces.pieces)
            joined += piece;
        EXPECT_EQ(joined, row.text) << "through the hook";
        CkStreamWriteASCIITrace trace;
        CkStreamWriteASCIITraceDiagnostic diagnostic;
        row.write(trace);
        row.write(diagnostic);
    }
    CkStreamWriteASCIIString largest;
    largest << -DBL_MAX;
    EXPECT_EQ(largest.GetLength(), 317u);
}

TEST(TextStream, each_value_is_one_piece_in_order)
{
    PieceStream stream;
    stream << 'A';
    stream << 1 << CK_T("") << CkFormat(CK_T("%d%%"), 5) << true;
    stream << CkStreamWriteASCIIString(CK_T("xy"));
    stream.WriteAddress(nullptr);
    stream.WriteAddress(reinterpret_cast<const void*>(0xABCDEF0123ll));
    EXPECT_EQ(stream.pieces,
              (std::vector<CString>{CK_T("65"), CK_T("1"), CK_T(""), CK_T("5%"), CK_T("true"), CK_T("xy"),
                                    CK_T("0x0000000000000000"), CK_T("0x000000ABCDEF0123")}));
}

TEST(StringStream, integers_of_every_length_are_appended_whole)
{
    CkStreamWriteASCIIString stream;
    const auto check = [&stream](auto value)
    {
        stream.Empty();
        stream << CK_T("x") << value;
        ASSERT_EQ(stream->ToUtf8(), "x" + std::to_string(value));
    };
    for (unsigned __int64 power = 1, digits = 0; digits < 20; power *= 10, ++digits)
    {
        for (const unsigned __int64 value : {power - 1, power, power + 1, power / 3 * 2, power * 10 - 1})
        {
            check(value);
            check(static_cast<__int64>(value));
            check(-static_cast<__int64>(value >> 1));
            check(static_cast<unsigned int>(value));
            check(static_cast<int>(value));
        }
    }
}

TEST(StringStream, a_derived_class_sees_every_piece)
{
    class Shouting : public CkStreamWriteASCIIString
    {
    protected:
        CkStreamWrite& write(const CString& text) override { return CkStreamWriteASCIIString::write(text + CK_T("!")); }
    };
    Shouting stream;
    stream << 1 << 2.5 << true << CK_T("x");
    EXPECT_EQ(*stream, CK_T("1!2.500000!true!x!"));
}

TEST(StringStream, collects_empties_and_doubles_its_text)
{
    CkStreamWriteASCIIString stream;
    stream << CK_T("ab") << 12;
    EXPECT_EQ(stream.GetLength(), 4u);
    EXPECT_EQ(stream->GetLength(), 4);
    const CString& text = stream;
    EXPECT_EQ(text, CK_T("ab12"));

    stream << stream;
    EXPECT_EQ(*stream, CK_T("ab12ab12"));
    stream.Serialize(stream);
    EXPECT_EQ(*stream, CK_T("ab12ab12ab12ab12"));

    CkStreamWriteASCIIString copy(stream);
    copy << 1;
    stream.Empty();
    EXPECT_EQ(stream.GetLength(), 0u);
    EXPECT_EQ(copy.GetLength(), 17u);
    stream = copy;
    EXPECT_EQ(*stream, *copy);
    CkStreamWriteASCIIString other(CString(CK_T("x")));
    copy.Empty();
    other.Serialize(copy);
    EXPECT_EQ(*copy, CK_T("x"));
}

TEST(TextStream, answers_for_its_own_class)
{
    CkStreamWriteASCIIString string;
    const CkStreamWrite& stream = string;
    EXPECT_FALSE(stream.Is(CkStreamWriteASCII::RTTI));
    EXPECT_TRUE(stream.IsKindOf(CkStreamWriteASCII::RTTI) && stream.IsKindOf(CkStreamWrite::RTTI));
    EXPECT_EQ(stream.GetClassNameW(), CK_T("CkStreamWriteASCIIString"));
    EXPECT_FALSE(CkStreamWriteASCIITraceDiagnostic().IsKindOf(CkStreamWriteASCIITrace::RTTI));
    EXPECT_TRUE(CkStreamWriteASCIITrace().Is(CkStreamWriteASCIITrace::RTTI));
    EXPECT_TRUE(PieceStream().Is(CkStreamWriteASCII::RTTI)) << "a client's stream without a record is its base";
}
