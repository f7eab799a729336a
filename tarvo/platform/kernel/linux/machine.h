#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>

inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;

/// The longest name of a machine in units, as the system allows for host names.
inline constexpr DWORD MAX_COMPUTERNAME_LENGTH = 64;

struct MEMORYSTATUSEX
{
    DWORD dwLength;
    DWORD dwMemoryLoad;
    ULONGLONG ullTotalPhys;
    ULONGLONG ullAvailPhys;
    ULONGLONG ullTotalPageFile;
    ULONGLONG ullAvailPageFile;
    ULONGLONG ullTotalVirtual;
    ULONGLONG ullAvailVirtual;
    ULONGLONG ullAvailExtendedVirtual;
};

/// The host name. `size` is that of the buffer in units and receives the length of the name; where the buffer is too
/// small, that with the zero, and the call fails with ERROR_BUFFER_OVERFLOW.
TARVO_API BOOL GetComputerNameW(LPWSTR buffer, DWORD* size) noexcept;

/// The bytes of memory that the machine has, and of addresses that the process may use: ullTotalPhys and
/// ullTotalVirtual; everything else is 0. Fails with ERROR_INVALID_PARAMETER unless `dwLength` is set.
TARVO_API BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status) noexcept;
