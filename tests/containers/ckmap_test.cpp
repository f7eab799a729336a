#include <tarvo/containers/ckmap.h>
#include <tarvo/containers/ckset.h>
#include <tarvo/core/ckexception.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <support/fragile.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <list>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{
template <class K, class V>
using Map = CkMap<K, V, 2, unsigned int>;

CString keyText(int number)
{
    CString text;
    text.Format(CK_T("key %d of many"), number);
    return text;
}

/// What a map is to the outside: 17 chains, the newest entry first.
template <class K>
class Model
{
public:
    int* Find(const K& key)
    {
        for (auto& [entryKey, value] : chainOf(key))
        {
            if (entryKey == key)
                return &value;
        }
        return nullptr;
    }

    int& Get(const K& key)
    {
        if (int* const value = Find(key))
            return *value;
        return chainOf(key).emplace_front(key, 0).second;
    }

    bool Remove(const K& key)
    {
        return std::erase_if(chainOf(key), [&key](const auto& entry) { return entry.first == key; }) != 0;
    }

    std::vector<std::pair<K, int>> Content() const
    {
        std::vector<std::pair<K, int>> content;
        for (const auto& chain : m_chains)
            content.insert(content.end(), chain.begin(), chain.end());
        return content;
    }

private:
    auto& chainOf(const K& key) { return m_chains[CkHashKey<K>()(key) % 17]; }

    std::array<std::list<std::pair<K, int>>, 17> m_chains;
};

template <class M>
auto contentOf(const M& map)
{
    void* position = nullptr;
    map.init(position);
    std::vector<std::pair<std::remove_cvref_t<decltype(map.getKeyAt(position))>, int>> content;
    for (; map.hasMoreElements(position); map.step(position))
        content.emplace_back(map.getKeyAt(position), map.getElementAt(position));
    return content;
}

/// Goes up and down across the sizes at which an index comes, grows, fills with removed entries and shrinks.
template <class M, class K, class MakeKey>
void compareWithModel(M& map, MakeKey makeKey)
{
    std::mt19937 random(3);
    Model<K> model;
    const std::pair<unsigned int, unsigned int> phases[] = {{40, 70}, {400, 80}, {400, 50}, {400, 20}, {60, 10}};
    for (const auto& [keys, percentAdded] : phases)
    {
        for (int i = 0; i < 3000; ++i)
        {
            const K key = makeKey(static_cast<int>(random() % keys));
            if (random() % 100 < percentAdded)
            {
                map[key] = i;
                model.Get(key) = i;
            }
            else
            {
                ASSERT_EQ(map.RemoveKey(key), model.Remove(key));
            }
            const K asked = makeKey(static_cast<int>(random() % keys));
            const int* const found = map.Lookup(asked);
            const int* const expected = model.Find(asked);
            ASSERT_EQ(found != nullptr, expected != nullptr);
            ASSERT_TRUE(found == nullptr || *found == *expected);
            if (i % 100 == 0)
            {
                ASSERT_EQ(contentOf(map), model.Content());
            }
        }
        ASSERT_EQ(contentOf(map), model.Content());
        ASSERT_EQ(map.GetCount(), model.Content().size());
    }
}

/// A key that is no number, so that its hash is all that is known of it; ten of them share one.
struct Name
{
    int number;

    bool operator==(const Name&) const = default;
};

struct NameHash
{
    unsigned int operator()(const Name& name) const noexcept { return static_cast<unsigned int>(name.number) / 10; }
};

/// The number whose place in an index of 256 slots is `slot`.
int numberAt(std::uint32_t slot)
{
    int number = 0;
    while (tarvo::detail::mixForIndex(static_cast<std::uint64_t>(number)) >> 24 != slot)
        ++number;
    return number;
}
} // namespace

TEST(HashKey, is_what_the_order_of_iteration_builds_on)
{
    const std::pair<const WCHAR*, unsigned int> texts[] = {
        {CK_T(""), 0}, {CK_T("A"), 65}, {CK_T("AB"), 2211}, {CK_T("ABCD"), 2410058}, {CK_T("ABCDE"), 79531983},
    };
    for (const auto& [text, hash] : texts)
        EXPECT_EQ(CkHashKey<CString>()(text), hash);
    unsigned int folded = 0;
    for (const WCHAR unit : CString(CK_T("long enough to wrap \xFFFF")))
        folded = folded * 33 + unit;
    EXPECT_EQ(CkHashKey<CString>()(CK_T("long enough to wrap \xFFFF")), folded);

    EXPECT_EQ(CkHashKey<ULONG>()(0x35), 3u);
    EXPECT_EQ(CkHashKey<int>()(-1), 0x0FFFFFFFu);
    EXPECT_EQ(CkHashKey<unsigned int>()(0xFFFFFFFF), 0x0FFFFFFFu);
    EXPECT_EQ(CkHashKey<LONG>()(-1), 0x0FFFFFFFu);
    EXPECT_EQ(CkHashKey<int*>()(reinterpret_cast<int*>(0xFEDCBA9876543210)), 0x87654321u);
}

TEST(Map, keeps_its_order_and_its_entries_at_every_size)
{
    Map<int, int> numbers(10);
    compareWithModel<decltype(numbers), int>(numbers, [](int number) { return number * 7; });
    CkMap<const char*, int, 0, unsigned int> pointers(40);
    static const char objects[16 * 400] = {};
    compareWithModel<decltype(pointers), const char*>(pointers, [](int number) { return &objects[16 * number]; });
    Map<CString, int> texts(10);
    compareWithModel<decltype(texts), CString>(texts, keyText);
}

TEST(Map, tells_keys_of_one_hash_apart)
{
    for (int count : {30, 500})
    {
        CkMap<Name, int, 0, unsigned int, NameHash> map(10);
        for (int i = 0; i < count; ++i)
            map[Name{i}] = i;
        for (int i = 0; i < count; i += 2)
            EXPECT_TRUE(map.RemoveKey(Name{i}));
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(map.Contains(Name{i}), i % 2 != 0);
        map.RemoveAll();
        EXPECT_FALSE(map.Contains(Name{1}));
    }
}

// The slots of removed entries must not fill the index while there are too few entries to make it anew.
TEST(Map, that_was_large_stays_good_for_a_few_entries_that_come_and_go)
{
    Map<int, int> map(10);
    for (int i = 0; i < 65; ++i)
        map[-1 - i] = i;
    for (int i = 0; i < 65; ++i)
        map.RemoveKey(-1 - i);
    map[numberAt(255)] = 1;
    for (std::uint32_t slot = 255; slot-- > 0;)
    {
        map[numberAt(slot)] = 1;
        EXPECT_TRUE(map.RemoveKey(numberAt(slot)));
    }
    EXPECT_FALSE(map.Contains(-5));
    EXPECT_TRUE(map.Contains(numberAt(255)) && map.GetCount() == 1);
}

TEST(Map, texts_are_equal_by_length_and_units)
{
    Map<CString, int> map(10);
    map[CString(CK_T("a\0b"), 3)] = 1;
    map[CK_T("a")] = 2;
    map[CK_T("A")] = 3;
    EXPECT_EQ(map.GetCount(), 3u);
    EXPECT_EQ(*map.Lookup(CString(CK_T("a\0b"), 3)), 1);
    EXPECT_EQ(CkHashKey<CString>()(CK_T("Aa")), CkHashKey<CString>()(CK_T("B@")));
    map[CK_T("Aa")] = 4;
    EXPECT_FALSE(map.Contains(CK_T("B@")));
    EXPECT_EQ(map.Lookup(CString(CK_T("a\0c"), 3)), nullptr);
}

TEST(Map, a_new_value_is_zero_and_a_key_may_be_removed_by_the_one_in_its_entry)
{
    Map<CString, int> map(2);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(map[keyText(i)]++, 0);
    int left = 200;
    void* position = nullptr;
    for (map.init(position); map.hasMoreElements(position); map.init(position))
    {
        EXPECT_TRUE(map.RemoveKey(map.getKeyAt(position)));
        EXPECT_EQ(map.GetCount(), static_cast<unsigned int>(--left));
    }
    EXPECT_TRUE(map.IsEmpty() && left == 0);
    EXPECT_EQ(map[keyText(5)], 0) << "in memory that was in use";
}

TEST(Map, what_cannot_be_constructed_leaves_it_as_it_was)
{
    {
        Map<int, Fragile> map(5);
        for (int i = 0; i < 64; ++i)
            map[i] = i;
        Fragile::ThrowAt(1);
        EXPECT_THROW(map[64], std::runtime_error);
        EXPECT_TRUE(map.GetCount() == 64 && !map.Contains(64) && map.Lookup(63)->value == 63);
        map.RemoveAll();
        EXPECT_EQ(Fragile::Living(), 0);
        map[1] = 1;
    }
    EXPECT_EQ(Fragile::Living(), 0);
}

TEST(Map, destructors_of_values_may_use_it)
{
    struct Value
    {
        CkMap<int, Value, 0, unsigned int>* map = nullptr;
        int key = 0;

        ~Value()
        {
            if (map != nullptr && key < 1000)
                (*map)[key + 1000];
        }
    };
    CkMap<int, Value, 0, unsigned int> map(10);
    for (int i = 0; i < 100; ++i)
    {
        map[i].map = &map;
        map[i].key = i;
    }
    map.RemoveKey(3);
    EXPECT_TRUE(map.GetCount() == 100 && map.Contains(1003) && !map.Contains(3));
    map.RemoveAll();
    EXPECT_TRUE(map.GetCount() == 99 && map.Contains(1000) && !map.Contains(1003));
}

TEST(Map, moves_its_entries)
{
    const auto check = [](auto from)
    {
        for (int i = 0; i < 300; ++i)
            from[i] = i;
        const auto content = contentOf(from);
        const int* const value = from.Lookup(77);
        auto to(std::move(from));
        EXPECT_TRUE(from.IsEmpty() && contentOf(from).empty() && !from.Contains(77));
        EXPECT_TRUE(contentOf(to) == content && to.Lookup(77) == value);
        for (int i = 299; i >= 283; --i)
            EXPECT_TRUE(to.RemoveKey(i));
        EXPECT_EQ(contentOf(to).size(), 283u);
        const auto rest = contentOf(to);
        from = std::move(to);
        EXPECT_TRUE(contentOf(from) == rest && to.IsEmpty());
        for (int i = 282; i >= 0; --i)
            EXPECT_TRUE(from.RemoveKey(i));
        EXPECT_TRUE(contentOf(from).empty());
        from[1] = 2;
        EXPECT_EQ(*from.Lookup(1), 2);
    };
    check(CkMap<int, int, 0, unsigned int>(10));
    check(CkMap<int, int, 2, unsigned int>(10));
}

TEST(Map, shows_its_entries_without_keys_and_values)
{
    Map<int, int> map(3);
    CkStreamWriteASCIIString text;
    map.Dump(text);
    EXPECT_EQ(CString(text), CK_T(""));
    map[1] = 1;
    map[2] = 2;
    map.Dump(text);
    EXPECT_EQ(CString(text), CK_T(" -> \n -> \n"));
    EXPECT_THROW((CkMap<int, int, 2, unsigned int>(0)), CkExceptionPreconditionViolation);
    EXPECT_NO_THROW((CkMap<int, int, 0, unsigned int>(0)));
}

TEST(Set, holds_an_element_once_in_the_order_of_its_map)
{
    CkSet<int, 0, unsigned int> set(100);
    for (int i = 0; i < 2000; ++i)
    {
        set.Add(i * 16);
        EXPECT_TRUE(set.TryAdd(i * 16));
    }
    EXPECT_EQ(set.GetCount(), 2000u);
    const std::vector<int> elements(std::as_const(set).begin(), std::as_const(set).end());
    ASSERT_EQ(elements.size(), 2000u);
    EXPECT_EQ(elements.front(), 16 * 17 * (1999 / 17));
    EXPECT_EQ(elements[1], elements[0] - 16 * 17);
    EXPECT_TRUE(set.Remove(32) && !set.Remove(32) && !set.Contains(32) && set.Contains(48));
    while (!set.IsEmpty())
        set.Remove(*set.begin());
    set.Add(5);
    CkStreamWriteASCIIString text;
    set.Dump(text);
    EXPECT_EQ(CString(text), CK_T("\n"));
    set.RemoveAll();
    EXPECT_TRUE(set.begin() == set.end());
}
