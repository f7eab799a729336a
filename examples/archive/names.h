#pragma once

#include <tarvo/tarvo.h>

#include <string>
#include <vector>

// Names as archives have them: UTF-16, the parts of a path separated by "/".

namespace archive
{
constexpr bool isHighSurrogate(WCHAR unit) noexcept
{
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool isLowSurrogate(WCHAR unit) noexcept
{
    return (unit & 0xFC00) == 0xDC00;
}

/// The parts of a path; none of them is empty.
std::vector<CString> splitStoredPath(const CString& path);

CString joinPath(const CString& folder, const CString& name);

/// The name under which what the user has named is stored: relative, without "." and "..", which take the part in front
/// of them away. Empty where nothing is left.
CString makeStoredPath(const CString& path);

/// Whether the path leads to something in the folder that it is relative to: it is not absolute, and no part of it is
/// empty, "." or "..".
bool isStoredPath(const CString& path) noexcept;

/// For messages and lists, in UTF-8: control characters, backslashes, and units that stand for no character but for a
/// byte (DC80 to DCFF) or for nothing are written as numbers behind a backslash.
std::string makePrintable(const CString& text);
} // namespace archive
