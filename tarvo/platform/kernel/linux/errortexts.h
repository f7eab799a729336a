#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>

#include <string_view>

namespace tarvo::kernel
{
/// What an error code means, in words without a line end; empty for a code without a text. "%1" stands where the caller
/// would have to fill in a name.
std::u16string_view errorText(DWORD code) noexcept;
} // namespace tarvo::kernel
