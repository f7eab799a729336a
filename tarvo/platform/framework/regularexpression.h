#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>

#include <memory>

namespace tarvo::framework
{
/// A compiled regular expression in the grammar of ECMAScript as `std::wregex` reads it, case-sensitive, without regard
/// to the locale. `.` and classes work on single UTF-16 units; units beyond ASCII belong to none of the named classes.
/// Patterns and texts end at their first zero.
///
/// Threads: a value; copies share what was compiled and may be searched for on several threads at once.
/// Blocking: a search takes time in proportion to the length of the text times that of the pattern with its counted
/// repetitions written out, but look-aheads read on in the text each time that they are tried.
/// Failure: a pattern that is none, or that is not plain text and has more than 1000 units with its repetitions written
/// out, makes the constructor throw `std::regex_error`. Memory may fail. A search with back-references that would take
/// too much stack or time is given up and finds nothing, as for `(\w+)=\1` a word of some hundred letters may.
/// Whatever the text, compiling and searching take less than 512 KiB of stack.
class TARVO_API RegularExpression
{
public:
    /// Empty: there is no expression.
    RegularExpression() noexcept = default;

    /// An empty pattern makes an empty object.
    explicit RegularExpression(const CString& pattern);

    bool IsEmpty() const noexcept { return m_compiled == nullptr; }

    /// Whether the expression, which is not empty, matches anywhere in `text`.
    bool IsFoundIn(const CString& text) const;

private:
    class Compiled;

    std::shared_ptr<const Compiled> m_compiled;
};
} // namespace tarvo::framework
