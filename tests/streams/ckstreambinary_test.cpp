#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <support/memorystreams.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <new>

struct CkStreamWriteBinaryPeer
{
    static void WriteStringLength(CkStreamWriteBinary& stream, unsigned __int64 length)
    {
        stream.writeStringLength(length);
    }
    static CkStreamWriteBinary* CreateChunkStream(const CkStreamWriteBinary& stream)
    {
        return stream.createChunkStream();
    }
    static unsigned __int64 GetChunkSize(const CkStreamWriteBinary& stream, const CkStreamWriteBinary& chunk)
    {
        return stream.getChunkSize(chunk);
    }
};

struct CkStreamReadBinaryPeer
{
    static unsigned __int64 ReadStringLength(CkStreamReadBinary& stream) { return stream.readStringLength(); }
};

namespace
{
template <class Stream, class T>
concept Writes = requires(Stream& stream, T value) { stream << value; };

template <class Stream, class T>
concept Reads = requires(Stream& stream, T& value) { stream >> value; };

const Bytes wideTag = {0xFF, 0xFE, 0xFF};

Bytes bytesOf(const std::function<void(CkStreamWrite&)>& write)
{
    MemoryWriter writer;
    write(writer);
    return writer.bytes;
}

/// What was written and read back, as one value.
template <class T>
T roundTrip(T value)
{
    MemoryReader reader(bytesOf([&](CkStreamWrite& stream) { stream << value; }));
    T read{};
    static_cast<CkStreamRead&>(reader) >> read;
    EXPECT_EQ(reader.Rest(), 0u);
    return read;
}

CString textOf(int length)
{
    return CString(CK_T('x'), length);
}
} // namespace

TEST(BinaryStream, bytes_of_every_type_are_fixed)
{
    struct Row
    {
        const char* what;
        std::function<void(CkStreamWrite&)> write;
        Bytes bytes;
    };
    const unsigned short shorts[] = {'a', 'b', 'c', 0};
    const Row rows[] = {
        {"true", [](CkStreamWrite& s) { s << true; }, {1}},
        {"false", [](CkStreamWrite& s) { s << false; }, {0}},
        {"char", [](CkStreamWrite& s) { s << char(-1); }, {0xFF}},
        {"signed char", [](CkStreamWrite& s) { s << static_cast<signed char>(-56); }, {0xC8}},
        {"unsigned char", [](CkStreamWrite& s) { s << static_cast<unsigned char>(200); }, {0xC8}},
        {"WCHAR", [](CkStreamWrite& s) { s << CK_T('\u0102'); }, {2, 1}},
        {"short", [](CkStreamWrite& s) { s << short{258}; }, {2, 1}},
        {"unsigned short", [](CkStreamWrite& s) { s << static_cast<unsigned short>(0xFFFE); }, {0xFE, 0xFF}},
        {"int", [](CkStreamWrite& s) { s << -2; }, {0xFE, 0xFF, 0xFF, 0xFF}},
        {"unsigned int", [](CkStreamWrite& s) { s << 0x01020304u; }, {4, 3, 2, 1}},
        {"LONG", [](CkStreamWrite& s) { s << LONG{-1}; }, {0xFF, 0xFF, 0xFF, 0xFF}},
        {"ULONG", [](CkStreamWrite& s) { s << ULONG{1}; }, {1, 0, 0, 0}},
        {"__int64",
         [](CkStreamWrite& s) { s << static_cast<__int64>(-2); },
         {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {"unsigned __int64", [](CkStreamWrite& s) { s << 0x0102030405060708ull; }, {8, 7, 6, 5, 4, 3, 2, 1}},
        {"float", [](CkStreamWrite& s) { s << 1.0f; }, {0, 0, 0x80, 0x3F}},
        {"double", [](CkStreamWrite& s) { s << 1.0; }, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
        {"version", [](CkStreamWrite& s) { s.WriteVersion(3); }, {3, 0, 0, 0}},
        {"empty text", [](CkStreamWrite& s) { s << CString(); }, wideTag + Bytes{0}},
        {"text", [](CkStreamWrite& s) { s << CString(CK_T("abc")); }, wideTag + Bytes{3, 0x61, 0, 0x62, 0, 0x63, 0}},
        {"literal", [](CkStreamWrite& s) { s << CK_T("abc"); }, wideTag + Bytes{3, 0x61, 0, 0x62, 0, 0x63, 0}},
        {"units", [&](CkStreamWrite& s) { s << shorts; }, wideTag + Bytes{3, 0x61, 0, 0x62, 0, 0x63, 0}},
        {"text stream", [](CkStreamWrite& s) { CkStreamWriteASCIIString(CK_T("abc")).Serialize(s); },
         wideTag + Bytes{3, 0x61, 0, 0x62, 0, 0x63, 0}},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(bytesOf(row.write), row.bytes) << row.what;
        CkStreamWriteBinaryByteCount count;
        row.write(count);
        EXPECT_EQ(count.GetByteCount(), row.bytes.size()) << row.what;
    }
}

TEST(BinaryStream, derived_streams_write_every_type_at_its_own_width)
{
    MemoryWriter writer;
    writer << 'A';
    writer << true << short{1};
    writer.WriteBuffer("xy", 2);
    EXPECT_EQ(writer.calls, (std::vector<unsigned __int64>{1, 1, 2, 2}));
    static_assert(!Writes<MemoryWriter, const void*> && !Writes<MemoryWriter, int*> &&
                  !Writes<MemoryWriter, const char*> && !Writes<MemoryWriter, std::nullptr_t> &&
                  !Writes<MemoryWriter, void (*)()> && !Writes<MemoryWriter, int MemoryReader::*>);
    static_assert(Writes<MemoryWriter, WCHAR*> && Writes<MemoryWriter, unsigned short*>);
    const auto lambda = [] {};
    struct TextLike
    {
        operator const char*() const { return ""; }
    };
    struct NumberLike
    {
        operator LONG() const { return 5; }
    };
    enum Enumeration : LONG
    {
    };
    static_assert(!Writes<MemoryWriter, volatile WCHAR*> && !Writes<MemoryWriter, decltype(lambda)> &&
                  !Writes<MemoryWriter, TextLike> && !Writes<MemoryWriter, char32_t> && !Writes<MemoryWriter, char8_t>);
    static_assert(Writes<MemoryWriter, NumberLike> && Writes<MemoryWriter, std::atomic<ULONG>&> &&
                  Writes<MemoryWriter, Enumeration> && Writes<MemoryWriter, CkStreamWriteASCIIString&>);
    static_assert(Writes<MemoryWriter, long> == (sizeof(long) == 4));
    static_assert(Reads<MemoryReader, unsigned long> == (sizeof(long) == 4));
}

TEST(BinaryStream, values_come_back_as_they_went)
{
    for (const bool value : {false, true})
        EXPECT_EQ(roundTrip(value), value);
    EXPECT_EQ(roundTrip(std::numeric_limits<signed char>::min()), std::numeric_limits<signed char>::min());
    EXPECT_EQ(roundTrip(static_cast<unsigned char>(200)), 200);
    EXPECT_EQ(roundTrip(char(-1)), char(-1));
    EXPECT_EQ(roundTrip(CK_T('\uFFFE')), CK_T('\uFFFE'));
    EXPECT_EQ(roundTrip(std::numeric_limits<short>::min()), std::numeric_limits<short>::min());
    EXPECT_EQ(roundTrip(static_cast<unsigned short>(0xFFFF)), 0xFFFF);
    EXPECT_EQ(roundTrip(std::numeric_limits<int>::min()), std::numeric_limits<int>::min());
    EXPECT_EQ(roundTrip(0xFFFFFFFFu), 0xFFFFFFFFu);
    EXPECT_EQ(roundTrip(LONG{-5}), LONG{-5});
    EXPECT_EQ(roundTrip(ULONG{0xFFFFFFFF}), ULONG{0xFFFFFFFF});
    EXPECT_EQ(roundTrip(std::numeric_limits<__int64>::min()), std::numeric_limits<__int64>::min());
    EXPECT_EQ(roundTrip(~0ull), ~0ull);
    EXPECT_EQ(roundTrip(-0.1f), -0.1f);
    EXPECT_EQ(roundTrip(-std::numeric_limits<double>::infinity()), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(roundTrip(std::nan(""))));
    EXPECT_EQ(roundTrip(CString(CK_T("\u00E4\xD800"))), CString(CK_T("\u00E4\xD800")));
    for (const int length : {0, 1, 254, 255, 256, 257, 65533, 65534, 100000})
        EXPECT_EQ(roundTrip(textOf(length)), textOf(length)) << length;
    bool any = false;
    MemoryReader(Bytes{2}) >> any;
    EXPECT_TRUE(any);
}

TEST(BinaryStream, a_text_costs_its_headers_pieces_and_one_call)
{
    MemoryWriter writer;
    writer << textOf(300);
    EXPECT_EQ(writer.calls, (std::vector<unsigned __int64>{1, 2, 1, 2, 600}));
    MemoryReader reader(writer.bytes);
    CString text;
    reader >> text;
    EXPECT_EQ(reader.calls, writer.calls);
}

TEST(BinaryStream, length_headers_have_the_width_that_the_length_needs)
{
    struct Row
    {
        unsigned __int64 length;
        Bytes header;
    };
    const Row rows[] = {
        {0, {0}},
        {254, {254}},
        {255, {0xFF, 0xFF, 0x00}},
        {65533, {0xFF, 0xFD, 0xFF}},
        {65534, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0, 0}},
        {65535, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0}},
        {0xFFFFFFFE, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF}},
        {0xFFFFFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}},
        {~0ull, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    for (const Row& row : rows)
    {
        MemoryWriter writer;
        CkStreamWriteBinaryPeer::WriteStringLength(writer, row.length);
        EXPECT_EQ(writer.bytes, wideTag + row.header) << row.length;
        MemoryReader reader(writer.bytes);
        EXPECT_EQ(CkStreamReadBinaryPeer::ReadStringLength(reader), row.length);
        EXPECT_EQ(reader.Rest(), 0u);
    }
    // 65534 has a 16-bit form too, which this writer does not use and the reader takes.
    MemoryReader reader(wideTag + Bytes{0xFF, 0xFE, 0xFF});
    EXPECT_EQ(CkStreamReadBinaryPeer::ReadStringLength(reader), 65534u);
}

namespace
{
template <class T>
void readNumber(CkStreamRead& stream)
{
    T value = 0;
    stream >> value;
}

void readTruthValue(CkStreamRead& stream)
{
    bool value = false;
    try
    {
        stream >> value;
    }
    catch (...)
    {
        EXPECT_FALSE(value);
        throw;
    }
}

void readText(CkStreamRead& stream)
{
    CString value(CK_T("before"));
    try
    {
        stream >> value;
    }
    catch (const CkExceptionStream& exception)
    {
        EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\streams\\ckstreamreadbinary"));
        EXPECT_EQ(value, CK_T("before"));
        throw;
    }
}
} // namespace

TEST(BinaryStream, every_truncation_raises_and_leaves_texts_and_truth_values_alone)
{
    struct Row
    {
        Bytes bytes;
        std::function<void(CkStreamRead&)> read;
    };
    const Row rows[] = {
        {{1}, readTruthValue},
        {{1, 2}, readNumber<short>},
        {{1, 2, 3, 4}, readNumber<LONG>},
        {{1, 2, 3, 4}, [](CkStreamRead& s) { s.ReadAndCompareVersion(0xFFFFFFFF); }},
        {{1, 2, 3, 4, 5, 6, 7, 8}, readNumber<double>},
        {bytesOf([](CkStreamWrite& s) { s << textOf(300); }), readText},
    };
    for (const Row& row : rows)
    {
        for (std::size_t length = 0; length < row.bytes.size(); ++length)
        {
            MemoryReader reader(Bytes(row.bytes.begin(), row.bytes.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_THROW(row.read(reader), CkExceptionStream) << length << " of " << row.bytes.size();
            EXPECT_EQ(reader.Rest(), 0u);
        }
        MemoryReader whole(row.bytes);
        EXPECT_NO_THROW(row.read(whole));
    }
}

TEST(BinaryStream, hostile_headers_are_refused_without_touching_the_target)
{
    struct Row
    {
        const char* what;
        Bytes header;
        bool charactersTried;
    };
    const Row rows[] = {
        {"an 8-bit text", {3, 'a', 'b', 'c'}, false},
        {"tag bytes exchanged", {0xFF, 0xFF, 0xFE, 3, 'a', 0}, false},
        {"more than the data", wideTag + Bytes{6}, true},
        {"the longest that a text can be", wideTag + Bytes{0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0x7F}, true},
        {"one more", wideTag + Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, false},
        {"just below 2^32", wideTag + Bytes{0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF}, false},
        {"in bytes it wraps to 2", wideTag + Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 0, 0x80},
         false},
        {"2^64 - 1",
         wideTag + Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         false},
    };
    for (const Row& row : rows)
    {
        MemoryReader reader(row.header + Bytes(10, 'x'));
        CString text(CK_T("before"));
        EXPECT_THROW(reader >> text, CkExceptionStream) << row.what;
        EXPECT_EQ(text, CK_T("before")) << row.what;
        // Memory for the longest may be refused before the hook is asked.
        if (!row.charactersTried)
        {
            EXPECT_LE(reader.calls.back(), sizeof(__int64)) << row.what;
        }
    }
}

TEST(BinaryStream, a_stored_zero_ends_the_text_and_the_stream_goes_on_behind_it)
{
    MemoryReader reader(wideTag + Bytes{4, 'a', 0, 'b', 0, 0, 0, 'd', 0, 7});
    CString text;
    unsigned char next = 0;
    reader >> text >> next;
    EXPECT_EQ(text, CK_T("ab"));
    EXPECT_EQ(next, 7);
}

TEST(BinaryStream, what_the_hook_raises_within_characters_becomes_a_stream_exception)
{
    const std::function<void()> failures[] = {[] { throw 42; }, [] { throw std::bad_alloc(); },
                                              [] { AfxThrowMemoryException(); }};
    for (const auto& fail : failures)
    {
        MemoryReader reader(bytesOf([](CkStreamWrite& s) { s << CK_T("abc"); }));
        reader.onRead = [&]
        {
            if (reader.calls.size() == 4)
                fail();
        };
        CString text;
        EXPECT_THROW(reader >> text, CkExceptionStream);
    }
    MemoryReader reader(Bytes{1});
    reader.onRead = [] { throw 42; };
    bool value = false;
    EXPECT_THROW(reader >> value, int) << "a number's hook speaks for itself";
}

TEST(BinaryStream, raw_bytes_are_given_as_far_as_they_go)
{
    MemoryReader reader(Bytes{1, 2, 3});
    Bytes buffer(8);
    EXPECT_EQ(reader.ReadBuffer(buffer.data(), 2), 2u);
    EXPECT_EQ(reader.ReadBuffer(buffer.data(), 8), 1u);
    EXPECT_EQ(buffer[0], 3);
    EXPECT_EQ(reader.ReadBuffer(buffer.data(), 8), 0u);
}

TEST(BinaryByteCount, measures_what_a_serialisation_writes)
{
    CkStreamWriteBinaryByteCount count;
    EXPECT_EQ(count.GetByteCount(), 0u);
    count << true << 1.0;
    EXPECT_EQ(count.GetByteCount(), 9u);
    CkStreamWriteBinaryByteCount copy = count;
    copy.WriteBuffer(nullptr, 1ull << 40);
    EXPECT_EQ(copy.GetByteCount(), 9u + (1ull << 40));
    EXPECT_EQ(count.GetByteCount(), 9u);

    const MemoryWriter writer;
    const std::unique_ptr<CkStreamWriteBinary> chunk(CkStreamWriteBinaryPeer::CreateChunkStream(writer));
    *chunk << CK_T("abc");
    EXPECT_EQ(CkStreamWriteBinaryPeer::GetChunkSize(writer, *chunk), 10u);
    EXPECT_TRUE(chunk->Is(CkStreamWriteBinaryByteCount::RTTI));
}

TEST(StreamVersion, older_records_are_accepted_and_newer_ones_refused)
{
    struct Row
    {
        unsigned int stored;
        unsigned int current;
        bool accepted;
    };
    for (const Row& row : {Row{3, 3, true}, Row{0, 3, true}, Row{4, 3, false}, Row{0xFFFFFFFF, 0xFFFFFFFF, true},
                           Row{0x80000000, 0x7FFFFFFF, false}})
    {
        MemoryReader reader(bytesOf(
            [&](CkStreamWrite& s)
            {
                s.WriteVersion(row.stored);
                s << true;
            }));
        if (row.accepted)
        {
            EXPECT_EQ(reader.ReadAndCompareVersion(row.current), row.stored);
        }
        else
        {
            try
            {
                reader.ReadAndCompareVersion(row.current);
                ADD_FAILURE();
            }
            catch (const CkExceptionWrongFileVersion& exception)
            {
                EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\streams\\ckstreamread"));
                EXPECT_EQ(exception.GetCodeLine(), 43u);
            }
        }
        EXPECT_EQ(reader.Rest(), 1u);
    }
}
