#pragma once

#include <tarvo/platform/framework/cstring.h>

#include <cstdarg>

namespace tarvo::framework
{
/// Appends the arguments formatted after `format` to `out`: the same text on every platform and in every locale.
///
/// `%[flags][width][.precision][size]conversion`, with the meaning that C gives the parts, where
/// - flags are `-`, `+`, space, `0` and `#`; width and precision are numbers or `*`;
/// - conversions are `d i u o x X` (integers), `c` (an `int`, one UTF-16 unit), `s` (wide text), `S` (narrow text),
///   `p` (an address, 16 upper-case hexadecimal digits), `f F e E g G` (`double`) and `%`;
/// - the size of an integer is 8 bits for `hh`, 16 for `h`, 32 for none, `l` and `I32`, 64 for `ll`, `L`, `I64`, `I`,
///   `z`, `j` and `t`; `hs` is narrow text and `lS` wide text; other conversions ignore it.
///
/// Narrow text is converted by `CString::FromNarrow`; its precision counts bytes. Null text is "(null)". Infinities and
/// not-a-number are "inf" and "nan", "-inf" and "-nan" with the sign bit, and upper case for `F E G`. A conversion that
/// is none of these appears as it stands and takes no argument; only `a` and `A` take their double.
///
/// Failure: throws `CMemoryException*` when memory is exhausted or `out` would become longer than a text may be; `out`
/// then ends with a part of the text.
TARVO_API void formatInto(TextBuffer& out, const WCHAR* format, va_list arguments);

/// Ends the variable arguments of a function, also when it is left by an exception.
class ArgumentsEnd
{
public:
    explicit ArgumentsEnd(va_list& arguments) noexcept : m_arguments(arguments) {}
    ~ArgumentsEnd() { va_end(m_arguments); }

    ArgumentsEnd(const ArgumentsEnd&) = delete;
    ArgumentsEnd& operator=(const ArgumentsEnd&) = delete;

private:
    va_list& m_arguments;
};
} // namespace tarvo::framework
