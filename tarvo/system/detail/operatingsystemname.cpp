#include <tarvo/system/detail/operatingsystemname.h>

#include <tarvo/core/ckformat.h>

#include <algorithm>
#include <iterator>

namespace tarvo::detail
{
namespace
{
constexpr DWORD platformNt = 2;
constexpr DWORD architectureX86 = 0;
constexpr DWORD architectureX64 = 9;
constexpr DWORD suiteStorageServer = 0x2000;

struct Row
{
    DWORD major;
    DWORD minor;
    bool (*applies)(const WindowsVersion& version);
    const WCHAR* name;
};

bool always(const WindowsVersion&)
{
    return true;
}

bool isWorkstation(const WindowsVersion& version)
{
    return version.workstation;
}

bool isServerR2(const WindowsVersion& version)
{
    return version.serverR2;
}

bool isStorageServer(const WindowsVersion& version)
{
    return (version.suiteMask & suiteStorageServer) != 0;
}

bool isWorkstationX64(const WindowsVersion& version)
{
    return version.workstation && version.architecture == architectureX64;
}

/// The first that applies.
constexpr Row rows[] = {
    {6, 0, isWorkstation, CK_T("Windows Vista")},
    {6, 0, always, CK_T("Windows Server 2008")},
    {6, 1, isWorkstation, CK_T("Windows 7")},
    {6, 1, always, CK_T("Windows Server 2008 R2")},
    {5, 0, always, CK_T("Windows 2000")},
    {5, 1, always, CK_T("Windows XP")},
    {5, 2, isServerR2, CK_T("Windows Server 2003 R2")},
    {5, 2, isStorageServer, CK_T("Windows Storage Server 2003")},
    {5, 2, isWorkstationX64, CK_T("Windows XP Professional x64 Edition")},
    {5, 2, always, CK_T("Windows Server 2003")},
};

CString productName(const WindowsVersion& version)
{
    const Row* const row = std::find_if(std::begin(rows), std::end(rows),
                                        [&version](const Row& candidate) {
                                            return candidate.major == version.major &&
                                                   candidate.minor == version.minor && candidate.applies(version);
                                        });
    if (row != std::end(rows))
        return row->name;
    return CkFormat(CK_T("Windows NT %d.%d"), version.major, version.minor);
}

CString servicePack(const WindowsVersion& version)
{
    if (version.servicePackMajor == 0)
        return {};
    if (version.servicePackMinor == 0)
        return CkFormat(CK_T(" SP%d"), version.servicePackMajor);
    return CkFormat(CK_T(" SP%d.%d"), version.servicePackMajor, version.servicePackMinor);
}

const WCHAR* width(const WindowsVersion& version)
{
    if (version.major < 6)
        return CK_T("");
    switch (version.architecture)
    {
    case architectureX64: return CK_T(" 64-Bit");
    case architectureX86: return CK_T(" 32-Bit");
    default: return CK_T("");
    }
}
} // namespace

CString operatingSystemName(const WindowsVersion& version)
{
    if (version.platform != platformNt || version.major <= 4)
        return CK_T("Unbekannt");
    return productName(version) + servicePack(version) + width(version);
}
} // namespace tarvo::detail
