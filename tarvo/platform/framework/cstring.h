#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/kernel/kernel.h>

#include <algorithm>
#include <compare>
#include <concepts>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace tarvo::framework
{
/// The heap, with a failure thrown as `CMemoryException*`.
template <typename T>
class TextAllocator
{
public:
    using value_type = T;

    TextAllocator() noexcept = default;

    template <typename Other>
    TextAllocator(const TextAllocator<Other>&) noexcept
    {
    }

    T* allocate(std::size_t count)
    {
        void* const memory = std::malloc(count * sizeof(T));
        if (memory == nullptr)
            AfxThrowMemoryException();
        return static_cast<T*>(memory);
    }

    void deallocate(T* memory, std::size_t) noexcept { std::free(memory); }

    friend bool operator==(const TextAllocator&, const TextAllocator&) noexcept { return true; }
};

using TextBuffer = std::basic_string<WCHAR, std::char_traits<WCHAR>, TextAllocator<WCHAR>>;
using TextView = std::basic_string_view<WCHAR>;

/// The longest text in units: its length and the zero behind it fit an `int`.
inline constexpr std::size_t maxTextLength = 0x7FFFFFFE;

/// Throws `CMemoryException*` unless a text of `used` units, which must be allowed itself, may grow by `added`.
inline void requireRoom(std::size_t used, std::size_t added)
{
    if (added > maxTextLength - used)
        AfxThrowMemoryException();
}
} // namespace tarvo::framework

/// Text in UTF-16: a value of at most 0x7FFFFFFE units, always followed by a zero, with embedded zeros allowed. Nothing
/// checks that surrogates come in pairs; lengths and indexes count units.
///
/// Threads: like a built-in value; different objects share nothing.
/// Failure: what cannot allocate, or would grow beyond the limit, throws `CMemoryException*` and leaves the text as it
/// was. Null pointers stand for empty text.
/// Pointers into the text are valid until it changes or is destroyed. Arguments may point into the text itself.
class TARVO_API CString
{
    using TextBuffer = tarvo::framework::TextBuffer;
    using TextView = tarvo::framework::TextView;

public:
    CString() noexcept = default;
    CString(std::nullptr_t) noexcept {}
    CString(const WCHAR* text);
    CString(const unsigned short* text);
    /// The same as `FromNarrow` of the text up to its zero.
    CString(const char* text);
    /// A length below 0 counts as 0; zeros within the length belong to the text.
    CString(const WCHAR* text, int length);
    /// `repeat` times the same unit; none for a count below 0. Units are `WCHAR` and nothing else here: numbers and
    /// other characters would convert without a word.
    template <std::same_as<WCHAR> Unit>
    explicit CString(Unit unit, int repeat = 1)
    {
        fill(unit, repeat);
    }

    CString& operator=(const WCHAR* text);
    CString& operator=(const unsigned short* text);
    CString& operator=(const char* text);
    template <std::same_as<WCHAR> Unit>
    CString& operator=(Unit unit)
    {
        assign({&unit, 1});
        return *this;
    }

    /// Every maximal part of an ill-formed sequence becomes one U+FFFD.
    static CString FromUtf8(std::string_view bytes);
    /// Text in the encoding of the process: its code page on Windows, UTF-8 elsewhere. What that encoding does not
    /// allow becomes U+FFFD.
    static CString FromNarrow(std::string_view bytes);
    /// Surrogates without a partner become U+FFFD. Failure: what `std::string` throws.
    std::string ToUtf8() const;

    int GetLength() const noexcept { return static_cast<int>(m_text.size()); }
    /// The units that memory was allocated for; 0 while the text is so short that it lies in the object itself.
    int GetAllocLength() const noexcept
    {
        const std::size_t capacity = m_text.capacity();
        return capacity > TextBuffer().capacity()
                   ? static_cast<int>(std::min(capacity, tarvo::framework::maxTextLength))
                   : 0;
    }

    bool IsEmpty() const noexcept { return m_text.empty(); }
    void Empty() noexcept { m_text.clear(); }

    const WCHAR* GetString() const noexcept { return m_text.c_str(); }
    operator const WCHAR*() const noexcept { return m_text.c_str(); }
    TextView View() const noexcept { return m_text; }
    const WCHAR* begin() const noexcept { return m_text.data(); }
    const WCHAR* end() const noexcept { return m_text.data() + m_text.size(); }

    /// Indexes run from 0 to the length, where the zero stands.
    WCHAR GetAt(int index) const noexcept { return (*this)[index]; }

    // A template, because any other index type would be as close to the subscript of `const WCHAR*`.
    template <std::integral Index>
    WCHAR operator[](Index index) const noexcept
    {
        const auto position = static_cast<std::size_t>(index);
        if (TARVO_CHECKED && position > m_text.size())
            tarvo::detail::trap("CString: index beyond the end of the text");
        return m_text[position];
    }

    /// The index must be below the length.
    void SetAt(int index, WCHAR unit) noexcept
    {
        const auto position = static_cast<std::size_t>(index);
        if (TARVO_CHECKED && position >= m_text.size())
            tarvo::detail::trap("CString: index beyond the end of the text");
        m_text[position] = unit;
    }

    void Append(const CString& text) { append(text.View()); }
    void Append(const WCHAR* text) { append(viewOf(text)); }
    /// A length below 0 counts as 0; zeros within the length belong to the text.
    void Append(const WCHAR* text, int length) { append(viewOf(text, length)); }
    void AppendChar(WCHAR unit) { append({&unit, 1}); }

    /// Replaces the text, in the memory that it has where that is enough; arguments as for `Append`.
    void SetString(const WCHAR* text, int length) { assign(viewOf(text, length)); }

    CString& operator+=(const CString& text)
    {
        append(text.View());
        return *this;
    }

    CString& operator+=(const WCHAR* text)
    {
        append(viewOf(text));
        return *this;
    }

    template <std::same_as<WCHAR> Unit>
    CString& operator+=(Unit unit)
    {
        append({&unit, 1});
        return *this;
    }

    friend CString operator+(const CString& left, const CString& right) { return join(left.View(), right.View()); }
    friend CString operator+(const CString& left, const WCHAR* right) { return join(left.View(), viewOf(right)); }
    friend CString operator+(const WCHAR* left, const CString& right) { return join(viewOf(left), right.View()); }

    template <std::same_as<WCHAR> Unit>
    friend CString operator+(const CString& left, Unit right)
    {
        return join(left.View(), {&right, 1});
    }

    template <std::same_as<WCHAR> Unit>
    friend CString operator+(Unit left, const CString& right)
    {
        return join({&left, 1}, right.View());
    }

    friend CString operator+(CString&& left, const CString& right) { return std::move(left += right); }
    friend CString operator+(CString&& left, const WCHAR* right) { return std::move(left += right); }

    // Parts of the text: what lies outside is left out, a negative number counts as 0.
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    CString Left(int count) const;
    CString Right(int count) const;

    // Positions: searched for from `start`, -1 when there is none.
    int Find(WCHAR unit, int start = 0) const noexcept;
    int Find(const WCHAR* text, int start = 0) const noexcept;
    int ReverseFind(WCHAR unit) const noexcept;

    /// Lower case unit by unit after Unicode's simple mappings, in every locale the same.
    CString& MakeLower() noexcept;

    // White space is what Unicode gives the property White_Space.
    CString& Trim() noexcept;
    CString& TrimLeft() noexcept;
    CString& TrimRight() noexcept;

    /// -1, 0 or 1 by the first units that differ, else by the lengths.
    int Compare(const WCHAR* text) const noexcept;

    friend bool operator==(const CString& left, const CString& right) noexcept { return left.View() == right.View(); }
    friend bool operator==(const CString& left, const WCHAR* right) noexcept { return left.View() == viewOf(right); }

    friend std::strong_ordering operator<=>(const CString& left, const CString& right) noexcept
    {
        return left.View().compare(right.View()) <=> 0;
    }

    friend std::strong_ordering operator<=>(const CString& left, const WCHAR* right) noexcept
    {
        return left.View().compare(viewOf(right)) <=> 0;
    }

    /// Replaces the text by the arguments formatted as `tarvo::framework::formatInto` says.
    void Format(const WCHAR* format, ...);
    void FormatV(const WCHAR* format, va_list arguments);
    void AppendFormat(const WCHAR* format, ...);

    void swap(CString& other) noexcept { m_text.swap(other.m_text); }
    friend void swap(CString& left, CString& right) noexcept { left.swap(right); }

private:
    static TextView viewOf(const WCHAR* text) noexcept { return text != nullptr ? TextView(text) : TextView(); }

    static TextView viewOf(const WCHAR* text, int length) noexcept
    {
        return text != nullptr && length > 0 ? TextView(text, static_cast<std::size_t>(length)) : TextView();
    }

    static CString join(TextView left, TextView right);
    explicit CString(TextView text);
    void append(TextView text);
    void fill(WCHAR unit, int repeat);
    void assign(TextView text);

    // The text streams' numbers, written in place: see NumberText, which is the same text aside.
    friend class CkStreamWriteASCII;
    TARVO_HIDDEN void appendNumber(int value);
    TARVO_HIDDEN void appendNumber(unsigned int value);
    TARVO_HIDDEN void appendNumber(long long value);
    TARVO_HIDDEN void appendNumber(unsigned long long value);
    TARVO_HIDDEN void appendNumber(double value);

    TextBuffer m_text;
};

template <>
struct std::hash<CString>
{
    std::size_t operator()(const CString& text) const noexcept
    {
        return std::hash<tarvo::framework::TextView>()(text.View());
    }
};
