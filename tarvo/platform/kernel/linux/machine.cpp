#include <tarvo/platform/kernel/machine.h>

#include <tarvo/platform/kernel/linux/machine.h>
#include <tarvo/platform/kernel/osrelease.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

namespace
{
#if defined(__x86_64__)
constexpr ULONGLONG userAddresses = (1ull << 47) - 4096;
#else
constexpr ULONGLONG userAddresses = 1ull << 48;
#endif

struct FreeSet
{
    void operator()(cpu_set_t* set) const noexcept { CPU_FREE(set); }
};

std::string contentOf(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

CString distributionName()
{
    // The first is the administrator's, and mostly a link to the other.
    for (const char* const path : {"/etc/os-release", "/usr/lib/os-release"})
    {
        CString name = tarvo::kernel::prettyName(contentOf(path));
        if (!name.IsEmpty())
            return name;
    }
    return {};
}

CString kernelName()
{
    utsname names{};
    uname(&names);
    return CString::FromUtf8(std::string(names.sysname) + " " + names.release);
}
} // namespace

CString tarvo::kernel::operatingSystemName()
{
    CString name = distributionName();
    if (name.IsEmpty())
        name = kernelName();
    return name + CK_T(" 64-Bit");
}

DWORD tarvo::kernel::processorCount() noexcept
{
    // The system refuses a set that is smaller than its own, whose size it does not tell.
    for (int capacity = 1024; capacity <= 1 << 20; capacity *= 2)
    {
        const std::unique_ptr<cpu_set_t, FreeSet> set(CPU_ALLOC(static_cast<std::size_t>(capacity)));
        const std::size_t size = CPU_ALLOC_SIZE(static_cast<std::size_t>(capacity));
        if (set == nullptr)
            return 1;
        CPU_ZERO_S(size, set.get());
        if (sched_getaffinity(0, size, set.get()) == 0)
            return static_cast<DWORD>(std::max(CPU_COUNT_S(size, set.get()), 1));
        if (errno != EINVAL)
            return 1;
    }
    return 1;
}

// Host names are ASCII, or bytes of which nobody knows the encoding: unit by unit, as nothing here may fail.
BOOL GetComputerNameW(LPWSTR buffer, DWORD* size) noexcept
{
    utsname names{};
    uname(&names);
    const DWORD length =
        static_cast<DWORD>(std::find(std::begin(names.nodename), std::end(names.nodename), '\0') - names.nodename);
    if (*size <= length)
    {
        *size = length + 1;
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return FALSE;
    }
    std::transform(names.nodename, names.nodename + length, buffer,
                   [](char character) { return static_cast<WCHAR>(static_cast<unsigned char>(character)); });
    buffer[length] = 0;
    *size = length;
    return TRUE;
}

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status) noexcept
{
    if (status->dwLength != sizeof *status)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *status = {};
    status->dwLength = sizeof *status;
    struct sysinfo system = {};
    if (sysinfo(&system) == 0)
        status->ullTotalPhys = static_cast<ULONGLONG>(system.totalram) * system.mem_unit;
    rlimit addresses = {RLIM_INFINITY, RLIM_INFINITY};
    getrlimit(RLIMIT_AS, &addresses);
    status->ullTotalVirtual = std::min<ULONGLONG>(addresses.rlim_cur, userAddresses);
    return TRUE;
}
