#include <tarvo/core/ckloglistenermanager.h>

#include <benchmark/benchmark.h>

#include <mutex>
#include <regex>
#include <string>

namespace
{
// Listeners are never removed, so these report types that the library does not use.
constexpr auto unheard = CkLogListenerManager::eEventUser0;
constexpr auto heardByExpression = CkLogListenerManager::eEventUser5;
constexpr auto heardByWord = CkLogListenerManager::eEventUser6;

constexpr const WCHAR* className = CK_T("CkExceptionStream");

void report(benchmark::State& state, CkLogListenerManager::EEventType type)
{
    const CString fileName(CK_T("benchmarks\\core\\ckloglistenermanager_bench"));
    const CString message(className);
    unsigned int line = 100;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(line);
        CkLogListenerManager::GetInstance().NotifyListeners(type, fileName, line, message);
        benchmark::ClobberMemory();
    }
}

void reportUnheard(benchmark::State& state)
{
    report(state, unheard);
}

void lockPair(benchmark::State& state)
{
    std::mutex mutex;
    benchmark::DoNotOptimize(&mutex);
    for (auto _ : state)
    {
        mutex.lock();
        benchmark::ClobberMemory();
        mutex.unlock();
        benchmark::ClobberMemory();
    }
}

struct Expression
{
    static constexpr auto type = heardByExpression;
    static constexpr const WCHAR* filter = CK_T("Exception(Stream|Condition)$");
    static constexpr const wchar_t* pattern = L"Exception(Stream|Condition)$";
};

struct Word
{
    static constexpr auto type = heardByWord;
    static constexpr const WCHAR* filter = CK_T("Stream");
    static constexpr const wchar_t* pattern = L"Stream";
};

int reportsHeard = 0;

template <class Filter>
void listenOnce()
{
    using Type = CkLogListenerManager::EEventType;
    static const bool once = []
    {
        const auto count = [](Type, const CString&, unsigned int, const CString&) { ++reportsHeard; };
        CkLogListenerManager::GetInstance().RegisterListener(Filter::type, count, Filter::filter);
        return true;
    }();
    static_cast<void>(once);
}

/// To one listener, whose filter takes the message.
template <class Filter>
void reportFiltered(benchmark::State& state)
{
    listenOnce<Filter>();
    reportsHeard = 0;
    report(state, Filter::type);
    if (reportsHeard != state.iterations())
        state.SkipWithError("not every report was heard once");
}

/// Searches for the pattern of the filter in the same message.
template <class Filter>
void search(benchmark::State& state)
{
    const std::wregex expression(Filter::pattern);
    const CString name(className);
    const std::wstring message(name.begin(), name.end());
    for (auto _ : state)
    {
        bool found = std::regex_search(message, expression);
        benchmark::DoNotOptimize(found);
    }
}

BENCHMARK(reportUnheard)->Name("report_unheard/tarvo");
BENCHMARK(lockPair)->Name("report_unheard/std::mutex");

BENCHMARK(reportFiltered<Expression>)->Name("report_expression/tarvo");
BENCHMARK(search<Expression>)->Name("report_expression/std::wregex");

BENCHMARK(reportFiltered<Word>)->Name("report_word/tarvo");
BENCHMARK(search<Word>)->Name("report_word/std::wregex");
} // namespace
