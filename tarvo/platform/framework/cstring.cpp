#include <tarvo/platform/framework/cstring.h>

#include <tarvo/platform/framework/casetable.h>
#include <tarvo/platform/framework/format.h>

#include <algorithm>
#include <utility>

using tarvo::framework::ArgumentsEnd;
using tarvo::framework::requireRoom;
using tarvo::framework::TextBuffer;
using tarvo::framework::TextView;

namespace
{
constexpr char32_t replacement = 0xFFFD;

/// What may follow the first byte of a UTF-8 sequence.
struct SequenceTail
{
    int length;
    unsigned char lowest; ///< of the byte that comes next; later ones are 0x80 to 0xBF
    unsigned char highest;
};

/// The length is 0 for a byte that starts no sequence. The bounds of the second byte exclude overlong forms,
/// surrogates and values above U+10FFFF.
constexpr SequenceTail tailOf(unsigned char lead) noexcept
{
    if (lead < 0xC2 || lead > 0xF4)
        return {0, 0, 0};
    if (lead < 0xE0)
        return {1, 0x80, 0xBF};
    if (lead < 0xF0)
        return {2, lead == 0xE0 ? static_cast<unsigned char>(0xA0) : static_cast<unsigned char>(0x80),
                lead == 0xED ? static_cast<unsigned char>(0x9F) : static_cast<unsigned char>(0xBF)};
    return {3, lead == 0xF0 ? static_cast<unsigned char>(0x90) : static_cast<unsigned char>(0x80),
            lead == 0xF4 ? static_cast<unsigned char>(0x8F) : static_cast<unsigned char>(0xBF)};
}

/// Takes one code point, or one maximal ill-formed part as U+FFFD, off the front of `bytes`, which is not empty.
char32_t takeCodePoint(std::string_view& bytes) noexcept
{
    const auto lead = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    if (lead < 0x80)
        return lead;
    SequenceTail tail = tailOf(lead);
    if (tail.length == 0)
        return replacement;
    char32_t point = lead & (0x3Fu >> tail.length);
    for (; tail.length > 0; --tail.length)
    {
        if (bytes.empty())
            return replacement;
        const auto next = static_cast<unsigned char>(bytes.front());
        if (next < tail.lowest || next > tail.highest)
            return replacement;
        bytes.remove_prefix(1);
        point = point << 6 | (next & 0x3Fu);
        tail.lowest = 0x80;
        tail.highest = 0xBF;
    }
    return point;
}

std::size_t countUnits(std::string_view bytes) noexcept
{
    std::size_t units = 0;
    while (!bytes.empty())
        units += takeCodePoint(bytes) > 0xFFFF ? 2 : 1;
    return units;
}

WCHAR* putCodePoint(WCHAR* out, char32_t point) noexcept
{
    if (point > 0xFFFF)
    {
        *out++ = static_cast<WCHAR>(0xD7C0 + (point >> 10));
        *out++ = static_cast<WCHAR>(0xDC00 + (point & 0x3FF));
    }
    else
    {
        *out++ = static_cast<WCHAR>(point);
    }
    return out;
}

constexpr bool isHighSurrogate(WCHAR unit) noexcept
{
    return unit >= 0xD800 && unit < 0xDC00;
}

constexpr bool isLowSurrogate(WCHAR unit) noexcept
{
    return unit >= 0xDC00 && unit < 0xE000;
}

/// Takes one code point, or a lone surrogate as U+FFFD, off the front of `text`, which is not empty.
char32_t takeCodePoint(TextView& text) noexcept
{
    const WCHAR first = text.front();
    text.remove_prefix(1);
    if (!isHighSurrogate(first))
        return isLowSurrogate(first) ? replacement : char32_t{first};
    if (text.empty() || !isLowSurrogate(text.front()))
        return replacement;
    const WCHAR second = text.front();
    text.remove_prefix(1);
    return 0x10000 + ((first - char32_t{0xD800}) << 10) + (second - char32_t{0xDC00});
}

void appendUtf8(std::string& out, char32_t point)
{
    const auto tail = [&](int shift) { out.push_back(static_cast<char>(0x80 | (point >> shift & 0x3F))); };
    if (point < 0x80)
    {
        out.push_back(static_cast<char>(point));
    }
    else if (point < 0x800)
    {
        out.push_back(static_cast<char>(0xC0 | point >> 6));
        tail(0);
    }
    else if (point < 0x10000)
    {
        out.push_back(static_cast<char>(0xE0 | point >> 12));
        tail(6);
        tail(0);
    }
    else
    {
        out.push_back(static_cast<char>(0xF0 | point >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

constexpr bool isWhiteSpace(WCHAR unit) noexcept
{
    if (unit <= 0x20)
        return unit == 0x20 || (unit >= 0x09 && unit <= 0x0D);
    if (unit < 0x1680)
        return unit == 0x85 || unit == 0xA0;
    return unit == 0x1680 || (unit >= 0x2000 && unit <= 0x200A) || unit == 0x2028 || unit == 0x2029 || unit == 0x202F ||
           unit == 0x205F || unit == 0x3000;
}

constexpr std::size_t notNegative(int number) noexcept
{
    return number > 0 ? static_cast<std::size_t>(number) : 0;
}

constexpr int positionOrNone(std::size_t found) noexcept
{
    return found != TextView::npos ? static_cast<int>(found) : -1;
}
} // namespace

CString::CString(TextView text)
{
    assign(text);
}

CString::CString(const WCHAR* text) : CString(viewOf(text)) {}

CString::CString(const unsigned short* text)
{
    if (text == nullptr)
        return;
    const unsigned short* end = text;
    while (*end != 0)
        ++end;
    requireRoom(0, static_cast<std::size_t>(end - text));
    m_text.assign(text, end);
}

CString::CString(const char* text) : CString(text != nullptr ? FromNarrow(text) : CString()) {}

CString::CString(const WCHAR* text, int length) : CString(viewOf(text, length)) {}

void CString::fill(WCHAR unit, int repeat)
{
    requireRoom(0, notNegative(repeat));
    m_text.assign(notNegative(repeat), unit);
}

CString& CString::operator=(const WCHAR* text)
{
    assign(viewOf(text));
    return *this;
}

CString& CString::operator=(const unsigned short* text)
{
    return *this = CString(text);
}

CString& CString::operator=(const char* text)
{
    return *this = CString(text);
}

CString CString::FromUtf8(std::string_view bytes)
{
    const auto ascii = std::find_if(bytes.begin(), bytes.end(), [](char byte) { return (byte & 0x80) != 0; });
    const auto asciiUnits = static_cast<std::size_t>(ascii - bytes.begin());
    std::string_view rest = bytes.substr(asciiUnits);
    const std::size_t units = asciiUnits + countUnits(rest);
    requireRoom(0, units);
    CString text;
    text.m_text.resize(units);
    WCHAR* out = std::copy(bytes.begin(), ascii, text.m_text.data());
    while (!rest.empty())
        out = putCodePoint(out, takeCodePoint(rest));
    return text;
}

#if defined(_WIN32)
namespace
{
/// One character at a time, for text that the code page does not allow as a whole.
TextBuffer convertSingly(std::string_view bytes)
{
    TextBuffer text;
    while (!bytes.empty())
    {
        const bool pair = bytes.size() > 1 && IsDBCSLeadByte(static_cast<BYTE>(bytes.front())) != FALSE;
        const int length = pair ? 2 : 1;
        WCHAR units[2] = {static_cast<WCHAR>(replacement)};
        const int count = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, bytes.data(), length, units, 2);
        requireRoom(text.size(), 2);
        text.append(units, count > 0 ? static_cast<std::size_t>(count) : 1);
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(length) : 1);
    }
    return text;
}

TextBuffer convert(std::string_view bytes)
{
    const int size = static_cast<int>(bytes.size());
    const int count = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0);
    if (count <= 0)
        return convertSingly(bytes);
    TextBuffer text(static_cast<std::size_t>(count), CK_T('\0'));
    MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, bytes.data(), size, text.data(), count);
    return text;
}
} // namespace

CString CString::FromNarrow(std::string_view bytes)
{
    if (bytes.empty() || GetACP() == CP_UTF8)
        return FromUtf8(bytes);
    requireRoom(0, bytes.size());
    const DWORD lastError = GetLastError();
    CString text;
    text.m_text = convert(bytes);
    SetLastError(lastError);
    return text;
}
#else
CString CString::FromNarrow(std::string_view bytes)
{
    return FromUtf8(bytes);
}
#endif

std::string CString::ToUtf8() const
{
    std::string bytes;
    bytes.reserve(m_text.size());
    for (TextView rest = View(); !rest.empty();)
        appendUtf8(bytes, takeCodePoint(rest));
    return bytes;
}

CString CString::Mid(int first) const
{
    return Mid(first, GetLength());
}

CString CString::Mid(int first, int count) const
{
    const std::size_t start = std::min(notNegative(first), m_text.size());
    return CString(View().substr(start, notNegative(count)));
}

CString CString::Left(int count) const
{
    return Mid(0, count);
}

CString CString::Right(int count) const
{
    const std::size_t length = std::min(notNegative(count), m_text.size());
    return CString(View().substr(m_text.size() - length));
}

int CString::Find(WCHAR unit, int start) const noexcept
{
    return positionOrNone(View().find(unit, notNegative(start)));
}

int CString::Find(const WCHAR* text, int start) const noexcept
{
    return text != nullptr ? positionOrNone(View().find(text, notNegative(start))) : -1;
}

int CString::ReverseFind(WCHAR unit) const noexcept
{
    return positionOrNone(View().rfind(unit));
}

CString& CString::MakeLower() noexcept
{
    for (WCHAR& unit : m_text)
        unit = tarvo::framework::lowerCase(unit);
    return *this;
}

CString& CString::Trim() noexcept
{
    return TrimRight().TrimLeft();
}

CString& CString::TrimLeft() noexcept
{
    m_text.erase(m_text.begin(), std::find_if_not(m_text.begin(), m_text.end(), isWhiteSpace));
    return *this;
}

CString& CString::TrimRight() noexcept
{
    m_text.erase(std::find_if_not(m_text.rbegin(), m_text.rend(), isWhiteSpace).base(), m_text.end());
    return *this;
}

int CString::Compare(const WCHAR* text) const noexcept
{
    const int order = View().compare(viewOf(text));
    return (order > 0) - (order < 0);
}

void CString::Format(const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const ArgumentsEnd end(arguments);
    FormatV(format, arguments);
}

void CString::FormatV(const WCHAR* format, va_list arguments)
{
    TextBuffer text;
    tarvo::framework::formatInto(text, format, arguments);
    m_text.swap(text);
}

void CString::AppendFormat(const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const ArgumentsEnd end(arguments);
    TextBuffer text;
    tarvo::framework::formatInto(text, format, arguments);
    append(text);
}

CString CString::join(TextView left, TextView right)
{
    requireRoom(left.size(), right.size());
    CString text;
    text.m_text.reserve(left.size() + right.size());
    text.m_text.append(left).append(right);
    return text;
}

void CString::append(TextView text)
{
    requireRoom(m_text.size(), text.size());
    m_text.append(text);
}

void CString::assign(TextView text)
{
    requireRoom(0, text.size());
    m_text.assign(text);
}
