#include <tarvo/platform/kernel/machine.h>

#include <tarvo/system/detail/operatingsystemname.h>

#include <algorithm>

CString tarvo::kernel::operatingSystemName()
{
    constexpr int metricServerR2 = 89;

    OSVERSIONINFOEXW version{};
    static_assert(sizeof version == 284);
    version.dwOSVersionInfoSize = sizeof version;
    if (!GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version)))
        return {};
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    return tarvo::detail::operatingSystemName({.platform = version.dwPlatformId,
                                               .major = version.dwMajorVersion,
                                               .minor = version.dwMinorVersion,
                                               .workstation = version.wProductType == VER_NT_WORKSTATION,
                                               .serverR2 = GetSystemMetrics(metricServerR2) != 0,
                                               .suiteMask = version.wSuiteMask,
                                               .servicePackMajor = version.wServicePackMajor,
                                               .servicePackMinor = version.wServicePackMinor,
                                               .architecture = system.wProcessorArchitecture});
}

DWORD tarvo::kernel::processorCount() noexcept
{
    SYSTEM_INFO system{};
    BOOL emulated = FALSE;
    if (IsWow64Process(GetCurrentProcess(), &emulated) && emulated)
        GetNativeSystemInfo(&system);
    else
        GetSystemInfo(&system);
    return std::max(system.dwNumberOfProcessors, DWORD{1});
}
