#include <tarvo/platform/framework/numbertext.h>

#include <tarvo/platform/framework/cstring.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace tarvo::framework
{
namespace
{
/// "00" to "99".
constexpr std::array<WCHAR, 200> digitPairs = []
{
    std::array<WCHAR, 200> units{};
    for (std::size_t pair = 0; pair < 100; ++pair)
    {
        units[2 * pair] = static_cast<WCHAR>(CK_T('0') + pair / 10);
        units[2 * pair + 1] = static_cast<WCHAR>(CK_T('0') + pair % 10);
    }
    return units;
}();

constexpr std::array<std::uint64_t, 20> powersOfTen = []
{
    std::array<std::uint64_t, 20> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i)
        powers[i] = powers[i - 1] * 10;
    return powers;
}();

void putPair(WCHAR* out, std::uint32_t pair) noexcept
{
    std::memcpy(out, &digitPairs[std::size_t{2} * pair], 2 * sizeof(WCHAR));
}

void putFour(WCHAR* out, std::uint32_t four) noexcept
{
    putPair(out, four / 100);
    putPair(out + 2, four % 100);
}

void putEight(WCHAR* out, std::uint32_t eight) noexcept
{
    putFour(out, eight / 10000);
    putFour(out + 4, eight % 10000);
}

/// Digits of a number. The logarithm is estimated from the bits: 1233 / 4096 is just above log10(2). 0 counts as 1, and
/// no other number moves past a power of ten by becoming odd.
int countDigits(std::uint64_t value) noexcept
{
    value |= 1;
    const int estimate = static_cast<int>(std::bit_width(value)) * 1233 >> 12;
    return estimate + (value >= powersOfTen[static_cast<std::size_t>(estimate)] ? 1 : 0);
}

// The digits that end at `end`.
inline void putDigits(WCHAR* end, std::uint32_t value) noexcept
{
    for (; value >= 10000; value /= 10000)
        putFour(end -= 4, value % 10000);
    if (value >= 100)
    {
        putPair(end -= 2, value % 100);
        value /= 100;
    }
    if (value >= 10)
        putPair(end - 2, value);
    else
        end[-1] = static_cast<WCHAR>(CK_T('0') + value);
}

// Eight digits at a time, each group from the whole value: so no group waits for the one before.
inline void putDigits(WCHAR* end, std::uint64_t value) noexcept
{
    constexpr std::uint64_t group = 100'000'000;
    if (value < group)
        return putDigits(end, static_cast<std::uint32_t>(value));
    const std::uint64_t upper = value / group;
    putEight(end - 8, static_cast<std::uint32_t>(value - upper * group));
    if (upper < group)
        return putDigits(end - 8, static_cast<std::uint32_t>(upper));
    const std::uint64_t top = value / (group * group);
    putEight(end - 16, static_cast<std::uint32_t>(upper - top * group));
    putDigits(end - 16, static_cast<std::uint32_t>(top));
}

template <class Magnitude>
int writeDecimal(WCHAR* out, Magnitude magnitude, bool negative) noexcept
{
    *out = CK_T('-');
    const int length = countDigits(magnitude) + (negative ? 1 : 0);
    putDigits(out + length, magnitude);
    return length;
}

/// A magnitude below 2^43 in millionths: 10^6 times the exact binary value fits 128 bits, so it is rounded, half to
/// even, by looking at the bits below the point.
std::uint64_t toMillionths(double magnitude) noexcept
{
    __extension__ using Wide = unsigned __int128;
    constexpr int mantissaBits = 52;
    constexpr int highestShift = 74; // 2^53 * 10^6 < 2^73: shifted further, everything is below one half

    const auto bits = std::bit_cast<std::uint64_t>(magnitude);
    const int exponent = static_cast<int>(bits >> mantissaBits);
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << mantissaBits) - 1);
    const std::uint64_t mantissa = exponent != 0 ? fraction | std::uint64_t{1} << mantissaBits : fraction;
    const int shift = 1075 - (exponent != 0 ? exponent : 1);
    if (shift > highestShift)
        return 0;
    const Wide product = Wide{mantissa} * 1'000'000;
    const Wide half = Wide{1} << (shift - 1);
    const Wide below = product & (half * 2 - 1);
    const auto millionths = static_cast<std::uint64_t>(product >> shift);
    return millionths + (below > half || (below == half && (millionths & 1) != 0) ? 1 : 0);
}
/// Room for what `writeShort` writes: the sign and 10 or 20 digits; or the sign, 13 digits, the point and six decimals.
template <class T>
constexpr std::size_t shortLength = sizeof(T) == 4 ? 12 : 24;

// Write a number and return the number of units: 0, and nothing to be used at `out`, for a double that is not finite or
// whose magnitude is 2^43 or more.

int writeShort(WCHAR* out, int value) noexcept
{
    const auto bits = static_cast<std::uint32_t>(value);
    return writeDecimal(out, value < 0 ? 0 - bits : bits, value < 0);
}

int writeShort(WCHAR* out, unsigned int value) noexcept
{
    return writeDecimal(out, std::uint32_t{value}, false);
}

int writeShort(WCHAR* out, long long value) noexcept
{
    const auto bits = static_cast<std::uint64_t>(value);
    return writeDecimal(out, value < 0 ? 0 - bits : bits, value < 0);
}

int writeShort(WCHAR* out, unsigned long long value) noexcept
{
    return writeDecimal(out, std::uint64_t{value}, false);
}

int writeShort(WCHAR* out, double value) noexcept
{
    const double magnitude = std::fabs(value);
    if (!(magnitude < 0x1p43))
        return 0;
    const std::uint64_t millionths = toMillionths(magnitude);
    const auto decimals = static_cast<std::uint32_t>(millionths % 1'000'000);
    const int length = writeDecimal(out, millionths / 1'000'000, std::signbit(value));
    out += length;
    *out = CK_T('.');
    putPair(out + 1, decimals / 10000);
    putFour(out + 3, decimals % 10000);
    return length + 7;
}

/// Writes a number straight into the text, into room of a known size: a copy of that costs less than filling, and a
/// copy of the digits afterwards would wait for them to be written. Returns the units written.
template <class T>
int appendShort(TextBuffer& text, T value)
{
    static constexpr WCHAR room[shortLength<T>] = {};
    const std::size_t length = text.size();
    requireRoom(length, std::size(room));
    text.append(room, std::size(room));
    const int written = writeShort(text.data() + length, value);
    text.erase(length + static_cast<std::size_t>(written));
    return written;
}
} // namespace

NumberText::NumberText(int value) noexcept : m_length(writeShort(m_text, value)) {}

NumberText::NumberText(unsigned int value) noexcept : m_length(writeShort(m_text, value)) {}

NumberText::NumberText(long long value) noexcept : m_length(writeShort(m_text, value)) {}

NumberText::NumberText(unsigned long long value) noexcept : m_length(writeShort(m_text, value)) {}

NumberText::NumberText(double value) noexcept : m_length(writeShort(m_text, value))
{
    if (m_length == 0)
        m_length = writeLong(value);
}

int NumberText::writeLong(double value) noexcept
{
    char buffer[maxLength];
    char* begin = buffer;
    if (std::signbit(value))
        *begin++ = '-';
    const auto written = std::to_chars(begin, std::end(buffer), std::fabs(value), std::chars_format::fixed, 6);
    return static_cast<int>(std::copy(buffer, written.ptr, m_text) - m_text);
}

NumberText::NumberText(const void* address) noexcept : m_length(2 * sizeof address)
{
    auto rest = reinterpret_cast<std::uintptr_t>(address);
    for (int digit = m_length; digit-- > 0; rest >>= 4)
        m_text[digit] = CK_T("0123456789ABCDEF")[rest & 0xF];
}
} // namespace tarvo::framework

void CString::appendNumber(int value)
{
    tarvo::framework::appendShort(m_text, value);
}

void CString::appendNumber(unsigned int value)
{
    tarvo::framework::appendShort(m_text, value);
}

void CString::appendNumber(long long value)
{
    tarvo::framework::appendShort(m_text, value);
}

void CString::appendNumber(unsigned long long value)
{
    tarvo::framework::appendShort(m_text, value);
}

void CString::appendNumber(double value)
{
    if (tarvo::framework::appendShort(m_text, value) != 0)
        return;
    const tarvo::framework::NumberText text(value);
    Append(text.Text(), text.Length());
}
