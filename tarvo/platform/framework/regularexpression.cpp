// g++ 12 sees the members of a union in <regex> used uninitialised when it builds for sanitizers; they are not.
#if defined(__GNUC__) && !defined(__clang__)
#    pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <tarvo/platform/framework/regularexpression.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <locale>
#include <numeric>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

// The standard library of g++ has two ways to search. The ordinary one is fast on short texts, but goes one level
// deeper into the stack with each unit that a repetition takes, and may try the same thing exponentially often. The
// other one, which it calls polynomial, does neither, but is an order of magnitude slower, and knows no
// back-references. So each search is tried the ordinary way within narrow means, and where they do not suffice it is
// done again the other way.

namespace tarvo::framework
{
namespace
{
/// How many units a pattern may have with its counted repetitions written out. Compiling and both searches go up to
/// some 400 bytes deeper into the stack with each.
constexpr std::size_t longestPattern = 1000;

/// The stack in bytes and the steps that a search may take the ordinary way: where the other one can take over, and
/// where there is none. A step is one comparison of positions.
constexpr std::size_t stackWithSubstitute = std::size_t{64} * 1024;
constexpr std::size_t stackAtMost = std::size_t{384} * 1024;
constexpr std::size_t stepsWithSubstitute = 4096;
constexpr std::size_t stepsAtMost = 2'000'000;
constexpr std::size_t furtherStepsPerUnit = 64; ///< Of the text, either way.

/// A text of up to this length needs no watch over its search for a simple pattern.
constexpr std::size_t shortText = 64;

/// Thrown by the text into the search that walks on it.
struct MeansExhausted
{
};

[[noreturn]] void giveUpSearch()
{
    throw MeansExhausted();
}

/// What a search has left to spend.
class Means
{
public:
    Means(std::size_t stack, std::size_t steps) noexcept : m_lowestFrame(frame() - stack), m_steps(steps) {}

    void Spend()
    {
        if (frame() < m_lowestFrame || m_steps-- == 0)
            giveUpSearch();
    }

private:
    static std::uintptr_t frame() noexcept { return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)); }

    const std::uintptr_t m_lowestFrame;
    std::size_t m_steps;
};

class Watched
{
public:
    Watched() noexcept = default;
    explicit Watched(Means& means) noexcept : m_means(&means) {}
    void Spend() const { m_means->Spend(); }

private:
    Means* m_means = nullptr;
};

class Unwatched
{
public:
    void Spend() const noexcept {}
};

/// Walks over a text with each unit as a `wchar_t`. Whatever a search does, it compares positions all along; so that is
/// where its means are spent.
template <class Watch>
class UnitIterator : private Watch
{
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = wchar_t;
    using difference_type = std::ptrdiff_t;
    using pointer = const wchar_t*;
    using reference = wchar_t;

    UnitIterator() noexcept = default;
    UnitIterator(const WCHAR* unit, const Watch& watch) noexcept : Watch(watch), m_unit(unit) {}

    wchar_t operator*() const noexcept { return static_cast<wchar_t>(*m_unit); }

    UnitIterator& operator++() noexcept
    {
        ++m_unit;
        return *this;
    }

    UnitIterator& operator--() noexcept
    {
        --m_unit;
        return *this;
    }

    UnitIterator operator++(int) noexcept { return {m_unit++, *this}; }
    UnitIterator operator--(int) noexcept { return {m_unit--, *this}; }

    friend bool operator==(const UnitIterator& left, const UnitIterator& right)
    {
        left.Spend();
        return left.m_unit == right.m_unit;
    }

private:
    const WCHAR* m_unit = nullptr;
};

/// Beyond ASCII the systems do not agree on what a letter is.
class Traits : public std::regex_traits<wchar_t>
{
public:
    bool isctype(wchar_t unit, char_class_type kind) const
    {
        return static_cast<std::uint32_t>(unit) < 0x80 && std::regex_traits<wchar_t>::isctype(unit, kind);
    }
};

using Regex = std::basic_regex<wchar_t, Traits>;
using Options = std::regex_constants::syntax_option_type;

constexpr Options ordinary = std::regex_constants::ECMAScript;
constexpr Options withoutGroups = ordinary | std::regex_constants::nosubs;
constexpr Options polynomial = withoutGroups | std::regex_constants::__polynomial;

Regex compile(const std::wstring& pattern, Options options)
{
    Regex regex;
    regex.imbue(std::locale::classic());
    regex.assign(pattern, options);
    return regex;
}

/// Nothing where the pattern cannot be compiled with these options.
std::optional<Regex> tryCompile(const std::wstring& pattern, Options options)
try
{
    return compile(pattern, options);
}
catch (const std::regex_error&)
{
    return std::nullopt;
}

template <class Watch>
bool search(TextView text, const Regex& regex, const Watch& watch, std::regex_constants::match_flag_type flags)
{
    const UnitIterator<Watch> first(text.data(), watch);
    const UnitIterator<Watch> last(text.data() + text.size(), watch);
    return std::regex_search(first, last, regex, flags);
}

bool contains(std::wstring_view set, wchar_t unit) noexcept
{
    return set.find(unit) != std::wstring_view::npos;
}

bool isPlainText(std::wstring_view pattern) noexcept
{
    return pattern.find_first_of(L"^$\\.*+?()[]{}|") == std::wstring_view::npos;
}

/// Whether what stands before `position` has parts of its own that a repetition would repeat.
bool repeatsParts(std::wstring_view pattern, std::size_t position) noexcept
{
    return position > 0 && contains(L")*+?}", pattern[position - 1]);
}

/// Adds up how many units a pattern has with its counted repetitions written out.
class WrittenOut
{
public:
    explicit WrittenOut(std::wstring_view pattern)
    {
        for (std::size_t i = 0; i < pattern.size() && m_lengths.back() <= longestPattern; ++i)
            i = take(pattern, i);
    }

    /// More than `longestPattern` when it is too long.
    std::size_t Length() const noexcept { return std::accumulate(m_lengths.begin(), m_lengths.end(), std::size_t{0}); }

private:
    /// Takes what begins at `position`, and returns where it ends.
    std::size_t take(std::wstring_view pattern, std::size_t position)
    {
        switch (pattern[position])
        {
        case L'(': m_lengths.push_back(1); return position;
        case L')':
            if (m_lengths.size() > 1)
            {
                m_latest = m_lengths.back();
                m_lengths.pop_back();
                m_lengths.back() += m_latest;
            }
            return position;
        case L'{': return repeat(pattern, position);
        case L'\\': add(); return position + 1;
        case L'[': add(); return classEnd(pattern, position);
        default: add(); return position;
        }
    }

    void add()
    {
        m_latest = 1;
        ++m_lengths.back();
    }

    /// "{n}", "{n,}" or "{n,m}": what is before it, as often as the greater number says.
    std::size_t repeat(std::wstring_view pattern, std::size_t position)
    {
        std::size_t greatest = 1;
        std::size_t number = 0;
        for (++position; position < pattern.size() && pattern[position] != L'}'; ++position)
        {
            const wchar_t unit = pattern[position];
            number = unit >= L'0' && unit <= L'9' ? number * 10 + static_cast<std::size_t>(unit - L'0') : 0;
            number = std::min(number, longestPattern);
            greatest = std::max(greatest, number);
        }
        m_lengths.back() += m_latest * greatest;
        m_latest *= greatest;
        return position;
    }

    static std::size_t classEnd(std::wstring_view pattern, std::size_t position) noexcept
    {
        while (++position < pattern.size() && pattern[position] != L']')
            position += pattern[position] == L'\\' ? 1 : 0;
        return position;
    }

    std::vector<std::size_t> m_lengths{0}; ///< Of the whole and of each open group.
    std::size_t m_latest = 0;              ///< Of what a repetition would repeat.
};

void requireBounded(std::wstring_view pattern)
{
    if (pattern.size() > longestPattern || WrittenOut(pattern).Length() > longestPattern)
        throw std::regex_error(std::regex_constants::error_complexity);
}

/// Whether every search in a short text is short: no repetition is repeated, and there are few choices. An alternative
/// doubles the number of ways at most; a repetition multiplies it by the length of the text.
bool isSimple(std::wstring_view pattern) noexcept
{
    constexpr int mostDoublings = 12;
    constexpr int doublingsByRepetition = 6;
    int doublings = 0;
    for (std::size_t i = 0; i < pattern.size(); ++i)
    {
        const bool repetition = contains(L"*+?{", pattern[i]);
        if (repetition && repeatsParts(pattern, i))
            return false;
        if (repetition)
            doublings += doublingsByRepetition;
        else if (pattern[i] == L'|')
            ++doublings;
    }
    return doublings <= mostDoublings;
}
} // namespace

class RegularExpression::Compiled
{
public:
    explicit Compiled(const std::wstring& pattern)
    {
        // What is wrong with the pattern shows here, in its own terms.
        m_ordinary = compile(pattern, ordinary);
        // Skipping what is before the match is part of the expression: one pass, where a search would begin anew at
        // every unit.
        m_polynomial = tryCompile(L"[\\s\\S]*?(?:" + pattern + L")", polynomial);
        // Faster, but a pattern with back-references needs its groups.
        if (m_polynomial)
            m_ordinary = compile(pattern, withoutGroups);
        m_simple = m_polynomial && isSimple(pattern);
    }

    /// Of plain text, which no expression is needed to find.
    explicit Compiled(TextView plain) : m_plain(plain) {}

    bool IsFoundIn(TextView text) const
    {
        if (!m_plain.empty())
            return text.find(m_plain) != TextView::npos;
        if (m_simple && text.size() <= shortText)
            return search(text, m_ordinary, Unwatched(), std::regex_constants::match_default);
        return m_polynomial ? isFoundEitherWay(text) : isFoundOrdinarily(text);
    }

private:
    bool isFoundEitherWay(TextView text) const
    try
    {
        Means means(stackWithSubstitute, stepsWithSubstitute + furtherStepsPerUnit * text.size());
        return search(text, m_ordinary, Watched(means), std::regex_constants::match_default);
    }
    catch (const MeansExhausted&)
    {
        return search(text, *m_polynomial, Unwatched(), std::regex_constants::match_continuous);
    }

    bool isFoundOrdinarily(TextView text) const
    try
    {
        Means means(stackAtMost, stepsAtMost + furtherStepsPerUnit * text.size());
        return search(text, m_ordinary, Watched(means), std::regex_constants::match_default);
    }
    catch (const MeansExhausted&)
    {
        return false;
    }

    std::basic_string<WCHAR> m_plain;
    Regex m_ordinary;
    std::optional<Regex> m_polynomial; ///< Nothing for patterns with back-references.
    bool m_simple = false;
};

RegularExpression::RegularExpression(const CString& pattern)
{
    const TextView text(pattern.GetString());
    const std::wstring wide(text.begin(), text.end());
    if (wide.empty())
        return;
    if (isPlainText(wide))
    {
        m_compiled = std::make_shared<const Compiled>(text);
        return;
    }
    requireBounded(wide);
    m_compiled = std::make_shared<const Compiled>(wide);
}

bool RegularExpression::IsFoundIn(const CString& text) const
{
    return m_compiled->IsFoundIn(TextView(text.GetString()));
}
} // namespace tarvo::framework
