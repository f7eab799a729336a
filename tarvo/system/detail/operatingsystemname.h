#pragma once

#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>

namespace tarvo::detail
{
/// What a Windows tells about itself, in its own numbers.
struct WindowsVersion
{
    DWORD platform = 0;
    DWORD major = 0;
    DWORD minor = 0;
    bool workstation = false;
    bool serverR2 = false;
    DWORD suiteMask = 0;
    DWORD servicePackMajor = 0;
    DWORD servicePackMinor = 0;
    DWORD architecture = 0; ///< Of the machine, whatever the process runs as.
};

/// The name under which the version is sold, with its service pack and, from 6.0 on, its width.
TARVO_API CString operatingSystemName(const WindowsVersion& version);
} // namespace tarvo::detail
