#include <support/memorystreams.h>

#include <tarvo/containers/ckarray.h>

#include <QList>
#include <QVector>
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
template <class T>
using Ours = CkArray<T, 0, CkArrayPolicyConstructDefault>;

using Bytes = Ours<unsigned char>;

template <class T>
void append(Ours<T>& array, T value)
{
    array.AddTail(value);
}

template <class Array, class T>
void append(Array& array, T value)
{
    array.push_back(value);
}

/// Each iteration appends a million elements to a new array.
template <class Array>
void grow(benchmark::State& state)
{
    using T = typename Array::value_type;
    constexpr int count = 1'000'000;
    for (auto _ : state)
    {
        Array array;
        benchmark::DoNotOptimize(&array);
        for (int index = 0; index < count; ++index)
            append(array, static_cast<T>(index));
        benchmark::ClobberMemory();
    }
}

constexpr std::size_t recordedBytes = std::size_t{1} << 20;

Bytes makeBytes()
{
    Bytes bytes(static_cast<unsigned int>(recordedBytes));
    unsigned char next = 0;
    for (unsigned char& byte : bytes)
        byte = next++;
    return bytes;
}

/// Writes the record over the one before, into memory that is there already.
void writeRecord(benchmark::State& state)
{
    const Bytes bytes = makeBytes();
    MemoryWriter writer;
    for (auto _ : state)
    {
        writer.Restart();
        bytes.Serialize(writer);
        benchmark::DoNotOptimize(writer.Bytes().data());
        benchmark::ClobberMemory();
    }
}

/// Reads it over the elements of the iteration before.
void readRecord(benchmark::State& state)
{
    const Bytes written = makeBytes();
    MemoryWriter writer;
    written.Serialize(writer);
    MemoryReader reader(writer.Bytes());
    Bytes bytes;
    for (auto _ : state)
    {
        reader.Restart();
        bytes.Serialize(reader);
        benchmark::DoNotOptimize(bytes.GetData());
        benchmark::ClobberMemory();
    }
    if (!(bytes == written))
        state.SkipWithError("what was read is not what was written");
}

/// Copies the bytes of such a record and nothing else.
void copyBytes(benchmark::State& state)
{
    const Bytes bytes = makeBytes();
    std::vector<std::byte> memory(recordedBytes);
    for (auto _ : state)
    {
        std::memcpy(memory.data(), bytes.GetData(), recordedBytes);
        benchmark::DoNotOptimize(memory.data());
        benchmark::ClobberMemory();
    }
}

BENCHMARK(grow<Bytes>)->Name("array_append_bytes/tarvo");
BENCHMARK(grow<std::vector<unsigned char>>)->Name("array_append_bytes/std::vector");
BENCHMARK(grow<QVector<unsigned char>>)->Name("array_append_bytes/QVector");
BENCHMARK(grow<QList<unsigned char>>)->Name("array_append_bytes/QList");

BENCHMARK(grow<Ours<std::int64_t>>)->Name("array_append_int64/tarvo");
BENCHMARK(grow<std::vector<std::int64_t>>)->Name("array_append_int64/std::vector");
BENCHMARK(grow<QVector<std::int64_t>>)->Name("array_append_int64/QVector");
BENCHMARK(grow<QList<std::int64_t>>)->Name("array_append_int64/QList");

BENCHMARK(writeRecord)->Name("array_write/tarvo");
BENCHMARK(copyBytes)->Name("array_write/memcpy");

BENCHMARK(readRecord)->Name("array_read/tarvo");
BENCHMARK(copyBytes)->Name("array_read/memcpy");
} // namespace
