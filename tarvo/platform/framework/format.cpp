#include <tarvo/platform/framework/format.h>

#include <tarvo/platform/framework/numbertext.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace tarvo::framework
{
namespace
{
/// No `double` has more decimals than this, nor more significant digits; what is asked for beyond are zeros.
constexpr unsigned long long maxDecimals = 1074;
constexpr unsigned long long maxSignificantDigits = 767;
/// The digits of the largest `double`, the point, and all decimals.
constexpr std::size_t realBufferSize = 309 + 1 + maxDecimals + 16;

void upperCase(char* begin, const char* end) noexcept
{
    for (; begin != end; ++begin)
    {
        if (*begin >= 'a' && *begin <= 'z')
            *begin = static_cast<char>(*begin - 0x20);
    }
}

/// The variable arguments, in an object because a `va_list` itself cannot be handed on and go on from there.
class Arguments
{
public:
    explicit Arguments(va_list list) noexcept { va_copy(m_list, list); }
    ~Arguments() { va_end(m_list); }

    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    int nextInt() noexcept { return va_arg(m_list, int); }
    long long nextInt64() noexcept { return va_arg(m_list, long long); }
    double nextDouble() noexcept { return va_arg(m_list, double); }
    const void* nextPointer() noexcept { return va_arg(m_list, const void*); }

private:
    va_list m_list;
};

enum class Size
{
    standard,
    byte,
    word,
    dword,
    qword
};

/// What stands between `%` and the conversion.
struct Field
{
    bool left = false;
    bool plus = false;
    bool space = false;
    bool zero = false;
    bool alternate = false;
    unsigned long long width = 0;
    long long precision = -1; ///< below 0: none given
    Size size = Size::standard;
    WCHAR conversion = 0; ///< zero: the format ended

    /// The precision as an upper limit of a length.
    std::size_t limit() const noexcept { return precision < 0 ? SIZE_MAX : static_cast<std::size_t>(precision); }
};

/// Reads one field; the cursor stands on its `%` and moves behind its conversion.
class FieldReader
{
public:
    FieldReader(const WCHAR*& cursor, Arguments& arguments) noexcept : m_cursor(cursor), m_arguments(arguments) {}

    Field read() noexcept
    {
        ++m_cursor;
        while (readFlag())
            ++m_cursor;
        readWidth();
        if (skip(CK_T('.')))
            readPrecision();
        m_field.size = readSize();
        m_field.conversion = *m_cursor;
        if (m_field.conversion != 0)
            ++m_cursor;
        return m_field;
    }

private:
    bool skip(WCHAR unit) noexcept
    {
        if (*m_cursor != unit)
            return false;
        ++m_cursor;
        return true;
    }

    bool readFlag() noexcept
    {
        switch (*m_cursor)
        {
        case CK_T('-'): return m_field.left = true;
        case CK_T('+'): return m_field.plus = true;
        case CK_T(' '): return m_field.space = true;
        case CK_T('0'): return m_field.zero = true;
        case CK_T('#'): return m_field.alternate = true;
        default: return false;
        }
    }

    /// Stops counting above any length that a text can have.
    long long readNumber() noexcept
    {
        long long number = 0;
        for (; *m_cursor >= CK_T('0') && *m_cursor <= CK_T('9'); ++m_cursor)
        {
            if (number <= INT_MAX)
                number = number * 10 + (*m_cursor - CK_T('0'));
        }
        return number;
    }

    void readWidth() noexcept
    {
        const long long width = skip(CK_T('*')) ? m_arguments.nextInt() : readNumber();
        m_field.left = m_field.left || width < 0;
        m_field.width = static_cast<unsigned long long>(width < 0 ? -width : width);
    }

    void readPrecision() noexcept { m_field.precision = skip(CK_T('*')) ? m_arguments.nextInt() : readNumber(); }

    Size readSize() noexcept
    {
        if (skip(CK_T('h')))
            return skip(CK_T('h')) ? Size::byte : Size::word;
        if (skip(CK_T('l')))
            return skip(CK_T('l')) ? Size::qword : Size::dword;
        if (skip(CK_T('I')))
            return readBits();
        const bool wide = skip(CK_T('z')) || skip(CK_T('j')) || skip(CK_T('t')) || skip(CK_T('L'));
        return wide ? Size::qword : Size::standard;
    }

    /// What follows `I`: 32, 64, or nothing for the size of a pointer.
    Size readBits() noexcept
    {
        const bool narrow = m_cursor[0] == CK_T('3') && m_cursor[1] == CK_T('2');
        const bool wide = m_cursor[0] == CK_T('6') && m_cursor[1] == CK_T('4');
        if (narrow || wide)
            m_cursor += 2;
        return narrow ? Size::dword : Size::qword;
    }

    const WCHAR*& m_cursor;
    Arguments& m_arguments;
    Field m_field;
};

/// A number in its parts, in the order in which they appear.
struct Number
{
    char prefix[2];
    std::size_t prefixLength = 0;
    std::size_t leadingZeros = 0;
    std::string_view digits;
    bool point = false; ///< one that `digits` does not hold
    std::size_t trailingZeros = 0;
    std::string_view exponent;
    bool zeroPadded = false; ///< the width is filled up by leading zeros

    void addPrefix(char unit) noexcept { prefix[prefixLength++] = unit; }

    void addSign(const Field& field, bool negative) noexcept
    {
        if (negative)
            addPrefix('-');
        else if (field.plus)
            addPrefix('+');
        else if (field.space)
            addPrefix(' ');
    }

    /// Drops the zeros that end the decimals, and the point when no decimal is left.
    void stripDecimals() noexcept
    {
        trailingZeros = 0;
        if (digits.find('.') == std::string_view::npos)
            return;
        digits.remove_suffix(digits.size() - 1 - digits.find_last_not_of('0'));
        if (digits.back() == '.')
            digits.remove_suffix(1);
    }

    std::size_t length() const noexcept
    {
        return prefixLength + leadingZeros + digits.size() + (point ? 1 : 0) + trailingZeros + exponent.size();
    }
};

/// Turns a magnitude into digits, which live as long as this object.
class RealDigits
{
public:
    explicit RealDigits(bool upper) noexcept : m_upper(upper) {}

    void special(Number& number, double magnitude) noexcept
    {
        std::memcpy(m_buffer, std::isnan(magnitude) ? "nan" : "inf", 3);
        finish(m_buffer + 3);
        number.digits = {m_buffer, 3};
    }

    void fixed(Number& number, double magnitude, std::size_t decimals, bool alternate) noexcept
    {
        const std::size_t written = std::min<std::size_t>(decimals, maxDecimals);
        number.digits = finish(
            std::to_chars(m_buffer, std::end(m_buffer), magnitude, std::chars_format::fixed, static_cast<int>(written))
                .ptr);
        number.point = alternate && decimals == 0;
        number.trailingZeros = decimals - written;
    }

    void scientific(Number& number, double magnitude, std::size_t decimals, bool alternate) noexcept
    {
        const std::size_t written = std::min<std::size_t>(decimals, maxSignificantDigits - 1);
        const std::string_view text = finish(std::to_chars(m_buffer, std::end(m_buffer), magnitude,
                                                           std::chars_format::scientific, static_cast<int>(written))
                                                 .ptr);
        const std::size_t exponent = text.find(m_upper ? 'E' : 'e');
        number.digits = text.substr(0, exponent);
        number.exponent = text.substr(exponent);
        number.point = alternate && decimals == 0;
        number.trailingZeros = decimals - written;
    }

    /// The shorter of both notations: fixed for exponents from -4 to below the number of significant digits.
    void general(Number& number, double magnitude, std::size_t significant, bool alternate) noexcept
    {
        scientific(number, magnitude, significant - 1, alternate);
        const int exponent = exponentOf(number.exponent);
        if (exponent >= -4 && exponent < static_cast<long long>(significant))
        {
            number.exponent = {};
            const long long decimals = static_cast<long long>(significant) - 1 - exponent;
            fixed(number, magnitude, static_cast<std::size_t>(decimals), alternate);
        }
        if (!alternate)
            number.stripDecimals();
    }

private:
    std::string_view finish(char* end) noexcept
    {
        if (m_upper)
            upperCase(m_buffer, end);
        return {m_buffer, static_cast<std::size_t>(end - m_buffer)};
    }

    static int exponentOf(std::string_view text) noexcept
    {
        int exponent = 0;
        std::from_chars(text.data() + 2, text.data() + text.size(), exponent);
        return text[1] == '-' ? -exponent : exponent;
    }

    bool m_upper;
    char m_buffer[realBufferSize];
};

class Formatter
{
public:
    Formatter(TextBuffer& out, va_list arguments) noexcept : m_out(out), m_arguments(arguments) {}

    void run(const WCHAR* cursor)
    {
        while (*cursor != 0)
        {
            const WCHAR* const begin = cursor;
            while (*cursor != 0 && *cursor != CK_T('%'))
                ++cursor;
            appendText({begin, cursor});
            if (*cursor == 0)
                return;
            const WCHAR* const percent = cursor;
            const Field field = FieldReader(cursor, m_arguments).read();
            if (!convert(field))
                appendText({percent, cursor});
        }
    }

private:
    /// False for an unknown conversion.
    bool convert(const Field& field)
    {
        switch (field.conversion)
        {
        case CK_T('d'):
        case CK_T('i'): signedInteger(field); return true;
        case CK_T('u'):
        case CK_T('o'):
        case CK_T('x'):
        case CK_T('X'): unsignedInteger(field); return true;
        case CK_T('f'):
        case CK_T('F'):
        case CK_T('e'):
        case CK_T('E'):
        case CK_T('g'):
        case CK_T('G'): real(field); return true;
        case CK_T('c'): character(field); return true;
        case CK_T('s'): text(field, field.size == Size::word); return true;
        case CK_T('S'): text(field, field.size != Size::dword); return true;
        case CK_T('p'): address(field); return true;
        case CK_T('%'): appendText(CK_T("%")); return true;
        case CK_T('a'):
        case CK_T('A'): m_arguments.nextDouble(); return false;
        default: return false;
        }
    }

    void signedInteger(const Field& field)
    {
        const long long value = nextSigned(field.size);
        const auto bits = static_cast<unsigned long long>(value);
        Number number;
        number.addSign(field, value < 0);
        integer(field, number, value < 0 ? 0 - bits : bits, 10);
    }

    void unsignedInteger(const Field& field)
    {
        const unsigned long long value = nextUnsigned(field.size);
        const bool hexadecimal = field.conversion == CK_T('x') || field.conversion == CK_T('X');
        Number number;
        if (hexadecimal && field.alternate && value != 0)
        {
            number.addPrefix('0');
            number.addPrefix(static_cast<char>(field.conversion));
        }
        integer(field, number, value, hexadecimal ? 16 : field.conversion == CK_T('o') ? 8 : 10);
    }

    void integer(const Field& field, Number& number, unsigned long long magnitude, int base)
    {
        char buffer[24];
        char* end = buffer;
        if (magnitude != 0 || field.precision != 0)
            end = std::to_chars(buffer, std::end(buffer), magnitude, base).ptr;
        if (field.conversion == CK_T('X'))
            upperCase(buffer, end);
        number.digits = {buffer, static_cast<std::size_t>(end - buffer)};
        if (field.precision > static_cast<long long>(number.digits.size()))
            number.leadingZeros = static_cast<std::size_t>(field.precision) - number.digits.size();
        else if (base == 8 && field.alternate && !number.digits.starts_with('0'))
            number.leadingZeros = 1;
        number.zeroPadded = field.zero && field.precision < 0;
        put(field, number);
    }

    void real(const Field& field)
    {
        const double value = m_arguments.nextDouble();
        const double magnitude = std::fabs(value);
        const std::size_t precision = field.precision < 0 ? 6 : field.limit();
        const bool upper = field.conversion < CK_T('a');
        RealDigits digits(upper);
        Number number;
        number.addSign(field, std::signbit(value));
        number.zeroPadded = field.zero && std::isfinite(value);
        const WCHAR notation = upper ? static_cast<WCHAR>(field.conversion + 0x20) : field.conversion;
        if (!std::isfinite(value))
            digits.special(number, magnitude);
        else if (notation == CK_T('f'))
            digits.fixed(number, magnitude, precision, field.alternate);
        else if (notation == CK_T('e'))
            digits.scientific(number, magnitude, precision, field.alternate);
        else
            digits.general(number, magnitude, std::max<std::size_t>(precision, 1), field.alternate);
        put(field, number);
    }

    void character(const Field& field)
    {
        const auto unit = static_cast<WCHAR>(m_arguments.nextInt());
        putText(field, {&unit, 1});
    }

    void text(const Field& field, bool narrow)
    {
        const void* const argument = m_arguments.nextPointer();
        if (argument == nullptr)
            putText(field, TextView(CK_T("(null)")).substr(0, field.limit()));
        else if (narrow)
            putText(field, CString::FromNarrow(bounded(static_cast<const char*>(argument), field.limit())).View());
        else
            putText(field, bounded(static_cast<const WCHAR*>(argument), field.limit()));
    }

    void address(const Field& field)
    {
        const NumberText digits(m_arguments.nextPointer());
        putText(field, {digits.Text(), static_cast<std::size_t>(digits.Length())});
    }

    long long nextSigned(Size size) noexcept
    {
        switch (size)
        {
        case Size::byte: return static_cast<signed char>(m_arguments.nextInt());
        case Size::word: return static_cast<short>(m_arguments.nextInt());
        case Size::qword: return m_arguments.nextInt64();
        default: return m_arguments.nextInt();
        }
    }

    unsigned long long nextUnsigned(Size size) noexcept
    {
        const auto value = static_cast<unsigned long long>(nextSigned(size));
        switch (size)
        {
        case Size::byte: return value & 0xFF;
        case Size::word: return value & 0xFFFF;
        case Size::qword: return value;
        default: return value & 0xFFFFFFFF;
        }
    }

    /// The text up to its zero, which is not looked for beyond `limit`.
    template <typename Unit>
    static std::basic_string_view<Unit> bounded(const Unit* text, std::size_t limit) noexcept
    {
        std::size_t length = 0;
        while (length < limit && text[length] != 0)
            ++length;
        return {text, length};
    }

    /// Makes sure that a field fits and returns how much has to be added to reach its width.
    std::size_t padding(const Field& field, std::size_t length) const
    {
        const auto width = std::max<std::size_t>(field.width, length);
        requireRoom(m_out.size(), width);
        return width - length;
    }

    void putText(const Field& field, TextView content)
    {
        const std::size_t spaces = padding(field, content.size());
        m_out.append(field.left ? 0 : spaces, CK_T(' '));
        m_out.append(content);
        m_out.append(field.left ? spaces : 0, CK_T(' '));
    }

    void put(const Field& field, const Number& number)
    {
        const std::size_t filler = padding(field, number.length());
        const bool zeros = number.zeroPadded && !field.left;
        m_out.append(zeros || field.left ? 0 : filler, CK_T(' '));
        appendAscii({number.prefix, number.prefixLength});
        m_out.append(number.leadingZeros + (zeros ? filler : 0), CK_T('0'));
        appendAscii(number.digits);
        m_out.append(number.point ? 1 : 0, CK_T('.'));
        m_out.append(number.trailingZeros, CK_T('0'));
        appendAscii(number.exponent);
        m_out.append(field.left ? filler : 0, CK_T(' '));
    }

    void appendText(TextView text)
    {
        requireRoom(m_out.size(), text.size());
        m_out.append(text);
    }

    void appendAscii(std::string_view text)
    {
        for (const char unit : text)
            m_out.push_back(static_cast<WCHAR>(unit));
    }

    TextBuffer& m_out;
    Arguments m_arguments;
};
} // namespace

void formatInto(TextBuffer& out, const WCHAR* format, va_list arguments)
{
    if (format != nullptr)
        Formatter(out, arguments).run(format);
}
} // namespace tarvo::framework
