#pragma once

#include <tarvo/platform/framework/cstring.h>

#include <string_view>

namespace tarvo::kernel
{
/// The value of PRETTY_NAME in the text of a file os-release, which is a list of shell assignments: the last one
/// counts, quotes and escapes are taken off. Empty when there is none.
TARVO_API CString prettyName(std::string_view osRelease);
} // namespace tarvo::kernel
