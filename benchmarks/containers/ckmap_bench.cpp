#include <tarvo/containers/ckmap.h>

#include <QHash>
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace
{
template <class>
inline constexpr bool isOurs = false;
template <class K, class V, int N, class C>
inline constexpr bool isOurs<CkMap<K, V, N, C>> = true;

template <class Map>
Map makeMap()
{
    if constexpr (isOurs<Map>)
        return Map(100);
    else
        return Map();
}

template <class K, class V, int N, class C>
V find(CkMap<K, V, N, C>& map, const K& key)
{
    return *map.Lookup(key);
}

template <class K, class V>
V find(QHash<K, V>& map, const K& key)
{
    return *map.constFind(key);
}

template <class Map>
typename Map::mapped_type find(Map& map, const typename Map::key_type& key)
{
    return map.find(key)->second;
}

template <class K, class V, int N, class C>
void erase(CkMap<K, V, N, C>& map, const K& key)
{
    map.RemoveKey(key);
}

template <class K, class V>
void erase(QHash<K, V>& map, const K& key)
{
    map.remove(key);
}

template <class Map>
void erase(Map& map, const typename Map::key_type& key)
{
    map.erase(key);
}

// The keys are the same in every run and for all maps.

/// Names as classes have them: 10 to 19 characters, many beginning or ending alike.
void makeKeys(std::vector<std::u16string>& keys, std::size_t count)
{
    constexpr std::array<std::u16string_view, 10> things = {u"Exception", u"Stream", u"Task", u"Event", u"Timer",
                                                            u"Thread",    u"Array",  u"List", u"Class", u"Value"};
    constexpr std::array<std::u16string_view, 10> roles = {u"Reader", u"Writer", u"Factory", u"Pool",     u"Index",
                                                           u"Policy", u"Record", u"Handler", u"Listener", u"Base"};
    for (std::size_t index = 0; index < count; ++index)
    {
        const std::size_t thing = index % things.size();
        const std::size_t role = (index / things.size() + thing) % roles.size();
        keys.push_back(std::u16string(u"Ck").append(things[thing]).append(roles[role]));
    }
}

/// With characters of its own for each.
void makeKeys(std::vector<CString>& keys, std::size_t count)
{
    std::vector<std::u16string> names;
    makeKeys(names, count);
    for (const std::u16string& name : names)
    {
        const std::basic_string<WCHAR> text(name.begin(), name.end());
        keys.emplace_back(text.c_str());
    }
}

/// Any numbers.
void makeKeys(std::vector<int>& keys, std::size_t count)
{
    std::mt19937 random;
    std::unordered_set<int> known;
    while (keys.size() < count)
    {
        const int key = static_cast<int>(random());
        if (known.insert(key).second)
            keys.push_back(key);
    }
}

struct Object
{
    std::array<std::byte, 64> content;
};

/// The addresses of objects, which stay until the program ends.
void makeKeys(std::vector<const void*>& keys, std::size_t count)
{
    static std::vector<std::unique_ptr<Object>> objects;
    while (objects.size() < count)
        objects.push_back(std::make_unique<Object>());
    for (std::size_t index = 0; index < count; ++index)
        keys.push_back(objects[index].get());
}

/// The same keys in three orders. No two share anything, as a name that is asked for and the name that is known do not.
template <class K>
struct Orders
{
    explicit Orders(std::size_t count)
    {
        unsigned int seed = 1;
        for (auto* keys : {&inserted, &found, &erased})
        {
            makeKeys(*keys, count);
            std::shuffle(keys->begin(), keys->end(), std::mt19937(seed++));
        }
    }

    std::vector<K> inserted;
    std::vector<K> found;
    std::vector<K> erased;
};

/// Made once for each number of keys.
template <class K>
const Orders<K>& orders(const benchmark::State& state)
{
    static std::unordered_map<std::int64_t, Orders<K>> known;
    const std::int64_t count = state.range(0);
    return known.try_emplace(count, static_cast<std::size_t>(count)).first->second;
}

/// Adds all keys to an empty map, finds and removes them. Returns what the values add up to.
template <class Map, class K>
std::uint64_t use(Map& map, const Orders<K>& keys)
{
    using Value = std::remove_reference_t<decltype(map[keys.inserted[0]])>;
    benchmark::DoNotOptimize(&map);
    Value value = 0;
    for (const K& key : keys.inserted)
        map[key] = value++;
    std::uint64_t sum = 0;
    for (const K& key : keys.found)
        sum += static_cast<std::uint64_t>(find(map, key));
    for (const K& key : keys.erased)
        erase(map, key);
    return sum;
}

void check(benchmark::State& state, std::uint64_t sum)
{
    const auto count = static_cast<std::uint64_t>(state.range(0));
    if (sum != count * (count - 1) / 2)
        state.SkipWithError("not every key was found with its value");
}

/// With one map for all iterations: the memory of those before is there.
template <class K, class Map>
void reuse(benchmark::State& state)
{
    const Orders<K>& keys = orders<K>(state);
    std::uint64_t sum = 0;
    Map map = makeMap<Map>();
    for (auto _ : state)
        sum = use(map, keys);
    check(state, sum);
}

/// With a map for each iteration, which takes its memory from the heap and gives it back.
template <class K, class Map>
void anew(benchmark::State& state)
{
    const Orders<K>& keys = orders<K>(state);
    std::uint64_t sum = 0;
    for (auto _ : state)
    {
        Map map = makeMap<Map>();
        sum = use(map, keys);
    }
    check(state, sum);
}

using Pointer = const void*;

void few(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(10)->Arg(100);
}

void many(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(10'000)->Arg(1'000'000);
}

BENCHMARK(reuse<CString, CkMap<CString, int, 2, unsigned int>>)->Name("map_text/tarvo")->Apply(few);
BENCHMARK(reuse<std::u16string, std::unordered_map<std::u16string, int>>)
    ->Name("map_text/std::unordered_map")
    ->Apply(few);

BENCHMARK(reuse<int, CkMap<int, int, 0, unsigned int>>)->Name("map_int/tarvo")->Apply(many);
BENCHMARK(reuse<int, std::unordered_map<int, int>>)->Name("map_int/std::unordered_map")->Apply(many);
BENCHMARK(reuse<int, QHash<int, int>>)->Name("map_int/QHash")->Apply(many);
BENCHMARK(reuse<int, absl::flat_hash_map<int, int>>)->Name("map_int/absl::flat_hash_map")->Apply(many);

BENCHMARK(reuse<Pointer, CkMap<Pointer, unsigned int, 0, unsigned int>>)->Name("map_pointer/tarvo")->Apply(many);
BENCHMARK(reuse<Pointer, std::unordered_map<Pointer, unsigned int>>)
    ->Name("map_pointer/std::unordered_map")
    ->Apply(many);
BENCHMARK(reuse<Pointer, QHash<Pointer, unsigned int>>)->Name("map_pointer/QHash")->Apply(many);
BENCHMARK(reuse<Pointer, absl::flat_hash_map<Pointer, unsigned int>>)
    ->Name("map_pointer/absl::flat_hash_map")
    ->Apply(many);

BENCHMARK(anew<CString, CkMap<CString, int, 2, unsigned int>>)->Name("map_text_new/tarvo")->Apply(few);
BENCHMARK(anew<std::u16string, std::unordered_map<std::u16string, int>>)
    ->Name("map_text_new/std::unordered_map")
    ->Apply(few);

BENCHMARK(anew<int, CkMap<int, int, 0, unsigned int>>)->Name("map_int_new/tarvo")->Apply(many);
BENCHMARK(anew<int, std::unordered_map<int, int>>)->Name("map_int_new/std::unordered_map")->Apply(many);
BENCHMARK(anew<int, QHash<int, int>>)->Name("map_int_new/QHash")->Apply(many);
BENCHMARK(anew<int, absl::flat_hash_map<int, int>>)->Name("map_int_new/absl::flat_hash_map")->Apply(many);

BENCHMARK(anew<Pointer, CkMap<Pointer, unsigned int, 0, unsigned int>>)->Name("map_pointer_new/tarvo")->Apply(many);
BENCHMARK(anew<Pointer, std::unordered_map<Pointer, unsigned int>>)
    ->Name("map_pointer_new/std::unordered_map")
    ->Apply(many);
BENCHMARK(anew<Pointer, QHash<Pointer, unsigned int>>)->Name("map_pointer_new/QHash")->Apply(many);
BENCHMARK(anew<Pointer, absl::flat_hash_map<Pointer, unsigned int>>)
    ->Name("map_pointer_new/absl::flat_hash_map")
    ->Apply(many);
} // namespace
