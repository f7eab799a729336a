#pragma once

#include <tarvo/platform/kernel/kernel.h>

namespace tarvo::framework
{
/// The lower-case form of a unit above 0x7F by the simple mappings of Unicode 14.0, which need no locale and give one
/// unit for one; the unit itself where there is none.
WCHAR lowerCaseBeyondAscii(WCHAR unit) noexcept;

/// The lower-case form of any unit.
inline WCHAR lowerCase(WCHAR unit) noexcept
{
    if (unit < 0x80)
        return unit >= CK_T('A') && unit <= CK_T('Z') ? static_cast<WCHAR>(unit + 0x20) : unit;
    return lowerCaseBeyondAscii(unit);
}
} // namespace tarvo::framework
