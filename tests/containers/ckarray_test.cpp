#include <tarvo/containers/ckarray.h>
#include <tarvo/core/ckexception.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <support/arraymodel.h>
#include <support/memorystreams.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <ranges>
#include <span>
#include <vector>

namespace
{
template <class T, int N = 0>
using Array = CkArray<T, N, CkArrayPolicyConstructDefault>;

using ByteArray = Array<unsigned char>;
using IntArray = Array<int>;

static_assert(std::ranges::contiguous_range<IntArray> && std::ranges::contiguous_range<const IntArray>);
static_assert(!std::convertible_to<unsigned int, IntArray>);

template <class A>
std::vector<typename A::value_type> contentOf(const A& array)
{
    return std::vector<typename A::value_type>(array.begin(), array.end());
}

/// Reaches the storage that an array shares with others.
class SharingArray : public IntArray
{
public:
    using IntArray::IntArray;
    using IntArray::operator=;

    void Share(const IntArray& other) { setMemoryBlock(other.GetMemoryBlock()); }
};

/// Elements so large that no heap has room for many.
struct Huge
{
    unsigned char bytes[1u << 16];
};

template <class Exception>
void expectRaised(const std::function<void()>& call, const WCHAR* source = CK_T("tarvo\\containers\\ckarray"))
{
    try
    {
        call();
        ADD_FAILURE() << "nothing was raised";
    }
    catch (const Exception& exception)
    {
        EXPECT_TRUE(exception.Is(Exception::RTTI)) << exception.GetClassNameW().ToUtf8();
        EXPECT_EQ(exception.GetFilename(), source);
    }
}

template <class A>
Bytes storedFormOf(const A& array)
{
    MemoryWriter writer;
    array.Serialize(writer);
    return writer.bytes;
}

const Bytes prefix = {0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0};
} // namespace

TEST(Array, storage_grows_by_doubling_or_by_the_step_and_says_when)
{
    struct Row
    {
        unsigned int step;
        std::vector<unsigned int> sizes; ///< After the 1st, 2nd, … change.
    };
    for (const Row& row : {Row{0, {1, 2, 4, 8, 16, 32}}, Row{10, {10, 20, 30}}})
    {
        IntArray array;
        array.SetGrowLinearly(row.step);
        std::vector<unsigned int> sizes;
        for (int i = 0; i < 25; ++i)
        {
            const unsigned int before = array.GetMemoryElementCount();
            const bool says = (i % 2 != 0 ? array.AddTail(i) : array.Grow()) != 0;
            EXPECT_EQ(says, array.GetMemoryElementCount() != before);
            if (says)
                sizes.push_back(array.GetMemoryElementCount());
        }
        EXPECT_EQ(sizes, row.sizes);
    }
}

// Every operation, with values that are elements of the array itself, against the same on a vector.
TEST(Array, does_what_a_vector_does)
{
    std::mt19937 random(1);
    const auto below = [&random](std::size_t limit) { return static_cast<ULONG>(random() % limit); };
    for (unsigned int step : {0u, 3u})
    {
        IntArray array;
        array.SetGrowLinearly(step);
        std::vector<int> model;
        for (int i = 0; i < 20000; ++i)
        {
            if (model.empty())
            {
                EXPECT_EQ(array.InsertAfter(0, i, 0), 0);
                EXPECT_EQ(array.GetCount(), 0u);
                array.InsertAfter(0, i, 1);
                model.push_back(i);
            }
            const auto operation = below(operationsOfBoth);
            const ULONG at = below(model.size());
            changeBoth(array, model, operation, at, below(model.size()));
            ASSERT_EQ(contentOf(array), model) << operation;
            ASSERT_GE(array.GetMemoryElementCount(), array.GetCount());
        }
    }
}

TEST(Array, copies_are_deep_and_moves_leave_an_array_that_can_be_used)
{
    IntArray original(4, 1, 2, 3, 4);
    original.SetGrowLinearly(5);
    original.RemoveTail();
    IntArray copy(original);
    copy[0] = 9;
    EXPECT_EQ(original[0], 1);
    EXPECT_EQ(copy.GetMemoryElementCount(), 3u);
    copy.SetMemoryElementCount(100, 1);
    copy.SetGrowExponentially();
    copy = original;
    EXPECT_TRUE(copy == original);
    EXPECT_EQ(copy.GetMemoryElementCount(), 3u) << "storage for just these";
    copy = static_cast<const IntArray&>(copy);
    EXPECT_EQ(contentOf(copy), (std::vector{1, 2, 3}));
    copy.SetMemoryElementCount(3, 1);
    copy.AddTail(4);
    EXPECT_EQ(copy.GetMemoryElementCount(), 8u) << "the way of growing is copied";

    IntArray target(std::move(original));
    for (IntArray* const left : {&original, &target})
    {
        EXPECT_EQ(left->GetCount(), left == &target ? 3u : 0u);
        EXPECT_EQ(left->GetMemoryElementCount(), left->GetCount());
        EXPECT_EQ(left->HasMemoryBlock(), left == &target);
        left->AddTail(5);
        EXPECT_EQ(left->GetTail(), 5);
    }
    copy = std::move(target);
    EXPECT_EQ(contentOf(copy), (std::vector{1, 2, 3, 5}));
    EXPECT_TRUE(target.GetData() == nullptr && !target.HasMemoryBlock());
}

TEST(Array, storage_that_others_hold_is_never_changed_in_place)
{
    struct Row
    {
        const char* what;
        std::function<void(SharingArray&, const IntArray&)> change;
        std::vector<int> expected;
        bool stillShares = false;
    };
    const Row rows[] = {
        {"grows", [](SharingArray& a, const IntArray&) { a.AddTail(a[0]); }, {1, 2, 3, 1}},
        {"keeps", [](SharingArray& a, const IntArray&) { a.SetMemoryElementCount(50, 1); }, {1, 2, 3}},
        {"does not keep", [](SharingArray& a, const IntArray&) { a.SetMemoryElementCount(50, 0); }, {1, 2, 3}},
        {"shrinks", [](SharingArray& a, const IntArray&) { a.SetMemoryElementCount(2, 0); }, {1, 2}},
        {"is assigned what it shares",
         [](SharingArray& a, const IntArray& b) { a.IntArray::operator=(b); },
         {1, 2, 3},
         true},
        {"gives up", [](SharingArray& a, const IntArray&) { a.SetMemoryElementCount(0, 0); }, {}},
    };
    for (const Row& row : rows)
    {
        const IntArray owner(3, 1, 2, 3);
        SharingArray sharing(3);
        sharing.Share(owner);
        ASSERT_EQ(sharing.GetData(), owner.GetData());
        const int* const before = owner.GetData();
        row.change(sharing, owner);
        EXPECT_EQ(contentOf(sharing), row.expected) << row.what;
        EXPECT_EQ(sharing.GetData() == before, row.stillShares) << row.what;
        EXPECT_EQ(owner.GetData(), before);
        EXPECT_EQ(contentOf(owner), (std::vector{1, 2, 3})) << row.what;
    }
}

TEST(Array, counts_that_do_not_fit_and_memory_that_is_not_there_leave_it_as_it_was)
{
    IntArray linear(1, 7);
    linear.SetGrowLinearly(0xFFFFFFFF);
    expectRaised<CkExceptionOutOfMemory>([&] { linear.AddTail(8); });
    expectRaised<CkExceptionOutOfMemory>([&] { linear.InsertBefore(0, 8, 1); });
    EXPECT_EQ(contentOf(linear), std::vector{7});

    // Never written to, so the system gives it as long as it has the addresses.
    ByteArray half;
    half.SetCount(0x80000000, 0);
    for (const auto& grow :
         {std::function<void()>([&] { half.AddTail(1); }), std::function<void()>([&] { half.Grow(); }),
          std::function<void()>([&] { half.AddTail(half); })})
    {
        expectRaised<CkExceptionOutOfMemory>(grow);
        EXPECT_TRUE(half.GetCount() == 0x80000000 && half.GetMemoryElementCount() == 0x80000000);
    }

    Array<Huge> huge(1);
    huge[0].bytes[5] = 42;
    const Huge* const storage = huge.GetData();
    expectRaised<CkExceptionOutOfMemory>([&] { huge.SetCount(0xFFFFFFFF, 0); });
    expectRaised<CkExceptionOutOfMemory>([&] { huge.SetCount(0xFFFFFFFF, 1); });
    expectRaised<CkExceptionOutOfMemory>([&] { huge.SetMemoryElementCount(0xFFFFFFFF, 0); });
    huge.SetGrowLinearly(0xFFFFFFF0);
    expectRaised<CkExceptionOutOfMemory>([&] { huge.AddTail(huge[0]); });
    expectRaised<CkExceptionOutOfMemory>([] { Array<Huge>(0xFFFFFFFF); });
    EXPECT_TRUE(huge.GetData() == storage && huge.GetCount() == 1 && huge.GetMemoryElementCount() == 1);
    EXPECT_EQ(huge[0].bytes[5], 42);
}

TEST(Array, values_given_must_be_as_many_as_the_count_says)
{
    EXPECT_EQ(contentOf(ByteArray(3, 1, 255, static_cast<unsigned char>(7))), (std::vector<unsigned char>{1, 255, 7}));
    EXPECT_EQ(contentOf(Array<float>(2, 0.5f, 2)), (std::vector{0.5f, 2.0f}));
    EXPECT_EQ(contentOf(Array<bool>(2, true, false)), (std::vector{true, false}));
    expectRaised<CkExceptionPreconditionViolation>([] { IntArray(3, 1, 2); });
    expectRaised<CkExceptionPreconditionViolation>([] { IntArray(0, 1); });
}

TEST(Array, shows_its_elements_in_every_way)
{
    IntArray array(3, 1, 2, 3);
    for (int& value : std::span<int>(array))
        value *= 2;
    const CkContainer<int>& container = array;
    EXPECT_EQ(std::vector<int>(container.begin(), container.end()), (std::vector{2, 4, 6}));
    EXPECT_TRUE(array.Exists(4) && !array.Exists(5));
    EXPECT_TRUE(array.GetHead() == 2 && array.GetTail() == 6);
    EXPECT_EQ(array.GetMemoryUsage(), 76u + 3 * 4);
    EXPECT_FALSE(array == IntArray(2, 2, 4));
    EXPECT_FALSE(array == IntArray(3, 2, 4, 7));

    CkStreamWriteASCIIString text;
    array.Dump(text);
    EXPECT_EQ(CString(text), CK_T("2,4,6"));
    array.Reset();
    EXPECT_EQ(contentOf(array), (std::vector{0, 0, 0}));
    array.Reset(array[1] = 5);
    EXPECT_EQ(contentOf(array), (std::vector{5, 5, 5}));

    array.RemoveAll();
    EXPECT_TRUE(array.GetMemoryElementCount() == 3 && array.HasMemoryBlock() && array.GetData() == nullptr);
    CkStreamWriteASCIIString nothing;
    array.Dump(nothing);
    EXPECT_EQ(CString(nothing), CK_T(""));
    EXPECT_TRUE(array == IntArray() && container.begin() == container.end());
    array.RemoveHead();
    array.RemoveTail();
    array.Reverse();
    EXPECT_EQ(array.GetCount(), 0u);
}

TEST(Array, equality_and_storage_go_by_bytes_or_by_elements)
{
    const Array<double, 0> bytes(2, 0.0, 1.0);
    const Array<double, 1> elements(2, 0.0, 1.0);
    EXPECT_FALSE(bytes == (Array<double, 0>(2, -0.0, 1.0)));
    EXPECT_TRUE(elements == (Array<double, 1>(2, -0.0, 1.0)));
    EXPECT_EQ(storedFormOf(bytes), storedFormOf(elements));
    MemoryWriter atOnce;
    bytes.Serialize(atOnce);
    EXPECT_EQ(atOnce.calls, (std::vector<unsigned __int64>{4, 4, 4, 4, 16}));
    MemoryWriter oneByOne;
    elements.Serialize(oneByOne);
    EXPECT_EQ(oneByOne.calls, (std::vector<unsigned __int64>{4, 4, 4, 4, 8, 8}));
}

TEST(ArrayRecord, has_these_bytes_and_no_truncation_of_them_is_read)
{
    const auto check = [](auto array, const Bytes& record, const Bytes& older)
    {
        EXPECT_EQ(storedFormOf(array), record);
        for (const Bytes& bytes : {record, older})
        {
            decltype(array) read(1, 77);
            MemoryReader reader(bytes);
            read.Serialize(reader);
            EXPECT_TRUE(read == array && reader.Rest() == 0);
            const std::size_t header = bytes.size() - array.GetCount() * sizeof(array[0]);
            for (std::size_t length = 0; length < bytes.size(); ++length)
            {
                decltype(array) cut(1, 77);
                MemoryReader shorter(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
                EXPECT_THROW(cut.Serialize(shorter), CkExceptionStream);
                EXPECT_EQ(cut.GetCount(), length < header ? 1u : 0u) << length;
            }
        }
    };
    const Bytes two = {2, 0, 0, 0};
    const Bytes width1 = {1, 0, 0, 0, 7, 8};
    check(ByteArray(2, 7, 8), prefix + two + width1, two + width1);
    const Bytes width2 = {2, 0, 0, 0, 0x34, 0x12, 0xFF, 0xFF};
    check(Array<short, 1>(2, 0x1234, -1), prefix + two + width2, two + width2);
    const Bytes width8 = {8, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0x80};
    check(Array<unsigned long long>(2, 0x0102030405060708, 0x8000000000000000), prefix + two + width8, two + width8);
    EXPECT_EQ(storedFormOf(ByteArray()), prefix + Bytes({0, 0, 0, 0, 1, 0, 0, 0}));
}

TEST(ArrayRecord, of_another_width_version_or_an_impossible_count_leaves_the_array_as_it_was)
{
    const Bytes one = {1, 0, 0, 0};
    const Bytes records[] = {
        prefix + one + Bytes{2, 0, 0, 0, 5, 5},                           // two bytes wide
        prefix + one + Bytes{0, 0, 0, 0, 5},                              // no width
        one + Bytes{1, 1, 0, 0, 5},                                       // 257 bytes wide
        Bytes{0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0} + one + one + Bytes{5}, // newer
        prefix + Bytes{0xFF, 0xFF, 0xFF, 0xFF} + one + Bytes{5},          // the count that is none
    };
    for (const Bytes& record : records)
    {
        ByteArray array(2, 7, 8);
        MemoryReader reader(record);
        EXPECT_THROW(array.Serialize(reader), CkExceptionWrongFileVersion);
        EXPECT_EQ(contentOf(array), (std::vector<unsigned char>{7, 8}));
    }
}

TEST(ArrayRecord, with_a_count_that_the_data_does_not_have_takes_little_memory)
{
    const auto check = [](auto array)
    {
        const Bytes header = prefix + Bytes{0xFE, 0xFF, 0xFF, 0xFF, sizeof(array[0]), 0, 0, 0};
        MemoryReader reader(header + Bytes(1000));
        expectRaised<CkExceptionStream>([&] { array.Serialize(reader); });
        EXPECT_EQ(array.GetCount(), 0u);
        EXPECT_LE(array.GetMemoryElementCount() * sizeof(array[0]), std::size_t{64} << 20);
        array.AddTail(typename decltype(array)::value_type{1});
        EXPECT_EQ(array.GetTail(), 1);
    };
    check(ByteArray(3));
    check(Array<double>());
    check(Array<int, 1>());
}

TEST(ArrayRecord, larger_than_what_is_taken_on_trust_is_read_as_a_whole)
{
    ByteArray array((64u << 20) + 12345);
    for (unsigned int i = 0; i < array.GetCount(); i += 4093)
        array[i] = static_cast<unsigned char>(i);
    MemoryReader reader(storedFormOf(array));
    ByteArray read;
    read.Serialize(reader);
    EXPECT_TRUE(read == array);
    EXPECT_EQ(read.GetMemoryElementCount(), array.GetCount());
}
