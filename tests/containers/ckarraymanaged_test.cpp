#include <tarvo/containers/ckarraymanaged.h>
#include <tarvo/core/ckexception.h>
#include <tarvo/threads/ckevent.h>

#include <support/arraymodel.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace
{
/// A value with a handle of its own, which must be given back exactly once, from wherever the bytes were moved to.
class Holder
{
public:
    /// The `countdown`-th construction or assignment from now on throws; 0: none does.
    static void ThrowAt(int countdown) { s_countdown = countdown; }
    static const std::set<int>& OpenHandles() { return s_open; }

    Holder(int newValue = -1) : value(newValue), handle(open()) {}
    Holder(const Holder& other) : Holder(other.value) {}

    Holder& operator=(const Holder& other)
    {
        const int replacement = open();
        close();
        handle = replacement;
        value = other.value;
        return *this;
    }

    ~Holder() { close(); }

    bool operator==(const Holder& other) const { return value == other.value; }

    int value;
    int handle;

private:
    static int open()
    {
        if (s_countdown > 0 && --s_countdown == 0)
            throw std::runtime_error("no handle");
        s_open.insert(++s_last);
        return s_last;
    }

    void close() const { EXPECT_EQ(s_open.erase(handle), 1u) << "closed twice, or never opened"; }

    static inline int s_countdown = 0;
    static inline int s_last = 0;
    static inline std::set<int> s_open;
};

using Array = CkArrayManaged<Holder, 0>;
using PlainArray = CkArray<Holder, 0, CkArrayPolicyConstructDefault>;
using Values = std::vector<int>;

// Whoever treats elements as bytes without their array is refused.
static_assert(!std::is_default_constructible_v<PlainArray> && !std::is_constructible_v<PlainArray, unsigned int> &&
              !std::is_constructible_v<PlainArray, unsigned int, Holder>);
static_assert(!std::is_copy_constructible_v<PlainArray> && !std::is_constructible_v<PlainArray, Array&&>);
template <class A, class Stream>
concept IsStored = requires(A& array, Stream& stream) { array.Serialize(stream); };
static_assert(!IsStored<Array, CkStreamWriteBinary> && !IsStored<Array, CkStreamReadBinary>);
static_assert(IsStored<CkArrayManaged<int, 0>, CkStreamReadBinary>);

/// Takes its calls through what the base knows of it, as clients may.
PlainArray& plain(Array& array)
{
    return array;
}

Array makeArray(const Values& values)
{
    Array array;
    for (int value : values)
        array.AddTail(Holder(value));
    return array;
}

Values valuesOf(const Array& array)
{
    Values values;
    for (const Holder& element : array)
        values.push_back(element.value);
    return values;
}

std::vector<int> handlesOf(const Array& array)
{
    std::vector<int> handles;
    for (const Holder& element : array)
        handles.push_back(element.handle);
    return handles;
}

/// Whether what is open is what the elements of the arrays have, each for itself.
void expectOpen(const std::vector<const Array*>& arrays)
{
    std::multiset<int> handles;
    for (const Array* array : arrays)
    {
        for (int handle : handlesOf(*array))
            handles.insert(handle);
    }
    ASSERT_TRUE(std::ranges::equal(handles, Holder::OpenHandles()));
}

class ArrayManaged : public testing::Test
{
protected:
    void TearDown() override { EXPECT_TRUE(Holder::OpenHandles().empty()) << "leaked"; }
};

/// Those of `changeBoth` and what only arrays of such elements have: new elements are default ones.
constexpr unsigned int operationsOfManaged = operationsOfBoth + 7;

void changeManaged(Array& array, Values& model, unsigned int operation, ULONG at, ULONG from)
{
    const auto place = model.begin() + static_cast<std::ptrdiff_t>(at);
    const ULONG resized = from + 3;
    switch (operation)
    {
    case operationsOfBoth:
        array.InsertBefore(at, 1);
        model.insert(place, -1);
        break;
    case operationsOfBoth + 1:
        array.InsertAfter(at, 0);
        if (at + 2 < model.size())
        {
            model.insert(place + 1, -1);
            model.pop_back();
        }
        break;
    case operationsOfBoth + 2:
        model.resize(std::min<std::size_t>(model.size(), resized));
        if (array.SetMemoryElementCount(resized, 0) != 0)
            std::ranges::fill(model, -1);
        EXPECT_EQ(array.GetMemoryElementCount(), resized);
        break;
    case operationsOfBoth + 3:
        plain(array).SetCount(resized, 1);
        model.resize(resized, -1);
        break;
    case operationsOfBoth + 4:
        array.Grow();
        model.push_back(-1);
        break;
    case operationsOfBoth + 5: array = Array(array); break;
    case operationsOfBoth + 6:
        array.SetCountManaged(at, 0);
        model.resize(at);
        break;
    default: changeBoth(array, model, operation, at, from);
    }
}
} // namespace

// Every operation, with values that are elements of the array itself, against the same on a vector.
TEST_F(ArrayManaged, does_what_a_vector_does_and_every_element_lives_once)
{
    std::mt19937 random(1);
    const auto below = [&random](std::size_t limit) { return static_cast<ULONG>(random() % limit); };
    for (unsigned int step : {0u, 3u})
    {
        Array array;
        array.SetGrowLinearly(step);
        Values model;
        for (int i = 0; i < 20000; ++i)
        {
            if (model.empty())
            {
                EXPECT_EQ(array.InsertAfter(0, i, 0), 0);
                array.InsertAfter(0, i, 1);
                model.push_back(i);
            }
            const ULONG operation = below(operationsOfManaged);
            const ULONG at = below(model.size());
            changeManaged(array, model, operation, at, below(model.size()));
            ASSERT_EQ(valuesOf(array), model) << operation;
            ASSERT_GE(array.GetMemoryElementCount(), array.GetCount());
            ASSERT_NO_FATAL_FAILURE(expectOpen({&array}));
        }
    }
}

TEST_F(ArrayManaged, moves_elements_without_making_them_anew)
{
    Array array = makeArray({0, 1, 2, 3, 4});
    array.SetMemoryElementCount(10, 1);
    const std::vector<int> all = handlesOf(array);
    array.Remove(1);
    EXPECT_EQ(handlesOf(array), (std::vector{all[0], all[2], all[3], all[4]}));
    array.InsertBefore(1, 1);
    EXPECT_EQ(array[1].value, -1);
    array.Remove(1);
    array.Rotate(1);
    EXPECT_EQ(handlesOf(array), (std::vector{all[4], all[0], all[2], all[3]}));
    array.Rotate(-4);
    plain(array).Reverse();
    const std::vector<int> reversed = {all[3], all[2], all[0], all[4]};
    EXPECT_EQ(handlesOf(array), reversed);

    Array moved(std::move(array));
    EXPECT_EQ(handlesOf(moved), reversed);
    EXPECT_TRUE(array.GetCount() == 0 && !array.HasMemoryBlock());
    array.AddTail(Holder(7));
    array = std::move(moved);
    EXPECT_EQ(handlesOf(array), reversed);
    plain(moved) = std::move(plain(array));
    EXPECT_EQ(handlesOf(moved), reversed);
    std::swap(moved, array);
    EXPECT_EQ(handlesOf(array), reversed);
    expectOpen({&array, &moved});
}

TEST_F(ArrayManaged, copies_are_deep_whichever_way_they_are_assigned)
{
    Array original = makeArray({1, 2, 3});
    original.SetGrowLinearly(5);
    const std::vector<int> handles = handlesOf(original);
    const std::function<void(Array&)> ways[] = {
        [&](Array& array) { array = original; },
        [&](Array& array) { plain(array) = original; },
        [&](Array& array) { plain(array) = plain(original); },
        [&](Array& array)
        {
            array.~Array();
            new (&array) Array(original);
        },
    };
    for (const auto& assign : ways)
    {
        Array copy = makeArray({7, 8, 9, 10, 11});
        assign(copy);
        EXPECT_TRUE(copy == original && plain(copy) == plain(original));
        EXPECT_EQ(copy.GetMemoryElementCount(), 3u) << "storage for just these";
        ASSERT_NO_FATAL_FAILURE(expectOpen({&original, &copy}));
        copy.AddTail();
        EXPECT_EQ(copy.GetMemoryElementCount(), 8u) << "the way of growing is copied";
        EXPECT_TRUE(copy.Exists(2) && !copy.Exists(9) && !(copy == original));
    }
    original = static_cast<const Array&>(original);
    plain(original) = static_cast<const PlainArray&>(original);
    EXPECT_EQ(handlesOf(original), handles);
}

TEST_F(ArrayManaged, has_elements_wherever_its_count_says)
{
    Array array(2);
    EXPECT_EQ(array.GetMemoryElementCount(), 2u);
    const std::vector<int> first = handlesOf(array);
    array[1].value = 5;
    array.SetCountManaged(5, 1);
    EXPECT_EQ(valuesOf(array), (Values{-1, 5, -1, -1, -1}));
    EXPECT_EQ(array.GetMemoryElementCount(), 5u);
    array.SetCountManaged(6, 0);
    EXPECT_EQ(valuesOf(array), Values(6, -1));
    plain(array).Reset(array[3] = 8);
    EXPECT_EQ(valuesOf(array), Values(6, 8));
    plain(array).Reset();
    EXPECT_EQ(valuesOf(array), Values(6, -1));
    ASSERT_NO_FATAL_FAILURE(expectOpen({&array}));
    array.InsertBefore(5, 0);
    array.SetMemoryElementCount(3, 0);
    EXPECT_EQ(array.GetCount(), 3u);
    ASSERT_NO_FATAL_FAILURE(expectOpen({&array}));

    // Who still holds the block keeps bytes, not elements.
    const auto block = array.GetMemoryBlock();
    plain(array).RemoveAll();
    EXPECT_TRUE(Holder::OpenHandles().empty() && array.GetMemoryElementCount() == 3 && array.GetData() == nullptr);
    EXPECT_EQ(block->GetReferenceCount(), 2);
    array.AddTail();
    EXPECT_EQ(array.AddTail(makeArray({4, 5, 6})), 1);
    EXPECT_EQ(block->GetReferenceCount(), 1);
    EXPECT_EQ(valuesOf(array), (Values{-1, 4, 5, 6}));
    array.SetMemoryElementCount(0, 0);
    EXPECT_TRUE(!array.HasMemoryBlock() && array.GetCount() == 0);
    array.SetCountManaged(0, 1);
    EXPECT_EQ(array.AddTail(array), 0);
}

TEST_F(ArrayManaged, elements_that_cannot_be_made_leave_it_as_it_was)
{
    struct Row
    {
        const char* what;
        std::function<void(Array&)> change;
    };
    const Array other = makeArray({8, 9});
    const Row rows[] = {
        {"append a default", [](Array& array) { array.AddTail(); }},
        {"append itself", [](Array& array) { array.AddTail(array); }},
        {"append its own element", [](Array& array) { array.AddTail(array[1]); }},
        {"insert", [](Array& array) { array.InsertBefore(0, array[2], 1); }},
        {"insert without growing", [](Array& array) { array.InsertAfter(0, array[2], 0); }},
        {"more memory", [](Array& array) { array.SetMemoryElementCount(9, 1); }},
        {"more memory, not kept", [](Array& array) { array.SetMemoryElementCount(9, 0); }},
        {"less memory, not kept", [](Array& array) { array.SetMemoryElementCount(1, 0); }},
        {"more elements", [](Array& array) { array.SetCountManaged(7, 1); }},
        {"more elements, not kept", [](Array& array) { array.SetCountManaged(7, 0); }},
        {"assign", [&other](Array& array) { array = other; }},
        {"assign to the base", [&other](Array& array) { plain(array) = other; }},
        {"construct", [](Array&) { Array made(4); }},
        {"copy", [](Array& array) { Array copy(array); }},
    };
    for (const Row& row : rows)
    {
        for (unsigned int room : {3u, 20u})
        {
            bool threw = true;
            for (int countdown = 1; threw; ++countdown)
            {
                ASSERT_LT(countdown, 50) << row.what;
                Array array = makeArray({1, 2, 3});
                array.SetMemoryElementCount(room, 1);
                const std::vector<int> handles = handlesOf(array);
                const Holder* const storage = array.GetData();
                Holder::ThrowAt(countdown);
                try
                {
                    row.change(array);
                    threw = false;
                    EXPECT_GT(countdown, 1) << row.what;
                }
                catch (const std::runtime_error&)
                {
                    EXPECT_EQ(handlesOf(array), handles) << row.what << countdown;
                    EXPECT_TRUE(array.GetData() == storage && array.GetMemoryElementCount() == room) << row.what;
                }
                Holder::ThrowAt(0);
                ASSERT_NO_FATAL_FAILURE(expectOpen({&array, &other})) << row.what << countdown;
            }
        }
    }
    Array array = makeArray({1, 2, 3});
    Holder::ThrowAt(2);
    EXPECT_THROW(array.Reset(), std::runtime_error);
    EXPECT_EQ(valuesOf(array), (Values{-1, 2, 3}));
    Holder::ThrowAt(0);
    expectOpen({&array, &other});
}

TEST_F(ArrayManaged, counts_that_do_not_fit_and_memory_that_is_not_there_leave_it_as_it_was)
{
    struct Huge : Holder
    {
        unsigned char bytes[60000];
    };
    CkArrayManaged<Huge, 1> array(1);
    const Huge* const storage = array.GetData();
    array.SetGrowLinearly(0xFFFFFFFE);
    const std::function<void()> calls[] = {
        [&] { array.AddTail(); },
        [&] { array.InsertBefore(0, array[0], 1); },
        [&] { array.SetCountManaged(0xFFFFFFFF, 1); },
        [&] { array.SetMemoryElementCount(0xFFFFFFFF, 0); },
        [&]
        {
            array.SetGrowLinearly(0xFFFFFFFF);
            array.AddTail(array[0]);
        },
    };
    for (const auto& call : calls)
    {
        EXPECT_THROW(call(), CkExceptionOutOfMemory);
        EXPECT_TRUE(array.GetData() == storage && array.GetCount() == 1 && array.GetMemoryElementCount() == 1);
    }
    EXPECT_EQ(Holder::OpenHandles().size(), 1u);
}

TEST(ArrayManagedOfEvents, has_open_handles_in_a_row_which_elements_keep_when_they_move)
{
    CkArrayManaged<CkEvent, 0> events(3);
    events.SetMemoryElementCount(10, 1);
    const auto handles = [&events]
    {
        const auto* const first = reinterpret_cast<const HANDLE*>(events.GetData());
        return std::vector<HANDLE>(first, first + events.GetCount());
    };
    const std::vector<HANDLE> all = handles();
    events.Remove(1);
    EXPECT_EQ(handles(), (std::vector{all[0], all[2]}));
    EXPECT_FALSE(SetEvent(all[1])) << "closed";
    EXPECT_TRUE(SetEvent(all[2]));
    EXPECT_TRUE(events[1].IsSet() && events[1].IsSet()) << "manual reset";
    events.InsertBefore(0, events[1], 1);
    events.AddTail();
    EXPECT_EQ(handles()[2], all[2]);
    EXPECT_TRUE(events[0].IsSet() && !events[1].IsSet() && events[2].IsSet() && !events[3].IsSet());
    events[2].Reset();
    EXPECT_FALSE(events[0].IsSet()) << "a copy shares the flag";

    CkArrayManaged<CkEvent, 0> copies;
    copies = events;
    events.Rotate(1);
    copies[3].Set();
    EXPECT_TRUE(events[0].IsSet());
    CkEvent::SetAll();
    const auto isSet = [](const CkEvent& event) { return event.IsSet(); };
    EXPECT_TRUE(std::ranges::all_of(events, isSet)) << "moved, but registered";

    const std::vector<HANDLE> last = handles();
    events.RemoveAll();
    for (HANDLE handle : last)
        EXPECT_FALSE(SetEvent(handle)) << "closed";
    EXPECT_TRUE(std::ranges::all_of(copies, isSet)) << "copies live on";
}
