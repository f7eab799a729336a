#include <tarvo/streams/ckstreamwriteascii.h>

#include <absl/strings/str_cat.h>
#include <absl/strings/str_format.h>
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <ios>
#include <limits>
#include <random>
#include <sstream>
#include <string>

namespace
{
constexpr std::size_t valueCount = 16;

/// Numbers of either sign and of all lengths that fall into 1 to 10^`digits`, the same ones in every run.
template <class T>
std::array<T, valueCount> makeValues(int digits)
{
    std::minstd_rand random;
    std::array<T, valueCount> values;
    for (std::size_t index = 0; index < values.size(); ++index)
    {
        const double length = std::generate_canonical<double, 53>(random) * digits;
        const double magnitude = std::pow(10.0, length);
        values[index] = static_cast<T>(index % 2 == 0 ? magnitude : -magnitude);
    }
    return values;
}

template <class T>
constexpr int longestNumber = std::floating_point<T> ? 12 : std::numeric_limits<T>::digits10;

/// Each iteration empties the text and then appends all values to it.
template <class T, class Empty, class Append>
void appendAll(benchmark::State& state, Empty empty, Append append)
{
    auto values = makeValues<T>(longestNumber<T>);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(values);
        empty();
        for (const T value : values)
            append(value);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(valueCount));
}

template <class T>
void appendTarvo(benchmark::State& state)
{
    CkStreamWriteASCIIString stream;
    benchmark::DoNotOptimize(stream);
    appendAll<T>(
        state, [&] { stream.Empty(); }, [&](T value) { stream << value; });
}

/// With doubles in the notation that ours has: fixed, six decimals.
template <class T>
void appendStandard(benchmark::State& state)
{
    std::ostringstream stream;
    stream << std::fixed;
    benchmark::DoNotOptimize(stream);
    const std::string nothing;
    appendAll<T>(
        state, [&] { stream.str(nothing); }, [&](T value) { stream << value; });
}

/// Doubles come out with six significant digits, which is less work than six decimals.
template <class T>
void appendAbseil(benchmark::State& state)
{
    std::string text;
    benchmark::DoNotOptimize(text);
    appendAll<T>(
        state, [&] { text.clear(); }, [&](T value) { absl::StrAppend(&text, value); });
}

void appendAbseilFormat(benchmark::State& state)
{
    std::string text;
    benchmark::DoNotOptimize(text);
    appendAll<double>(
        state, [&] { text.clear(); }, [&](double value) { absl::StrAppendFormat(&text, "%f", value); });
}

BENCHMARK(appendTarvo<int>)->Name("text_int/tarvo");
BENCHMARK(appendStandard<int>)->Name("text_int/std::ostringstream");
BENCHMARK(appendAbseil<int>)->Name("text_int/absl::StrAppend");

BENCHMARK(appendTarvo<__int64>)->Name("text_int64/tarvo");
BENCHMARK(appendStandard<__int64>)->Name("text_int64/std::ostringstream");
BENCHMARK(appendAbseil<__int64>)->Name("text_int64/absl::StrAppend");

BENCHMARK(appendTarvo<double>)->Name("text_double/tarvo");
BENCHMARK(appendStandard<double>)->Name("text_double/std::ostringstream");
BENCHMARK(appendAbseil<double>)->Name("text_double/absl::StrAppend");
BENCHMARK(appendAbseilFormat)->Name("text_double/absl::StrAppendFormat");
} // namespace
