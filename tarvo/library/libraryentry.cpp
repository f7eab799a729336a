#include <tarvo/library/libraryentry.h>

#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/kernel/loading.h>
#include <tarvo/platform/kernel/unloading.h>

namespace tarvo::detail
{
namespace
{
constexpr SIZE_T memoryToStart = 8192;

constinit AFX_EXTENSION_MODULE g_extension;

/// Enters the library in the chain of modules.
bool enterChain() noexcept
try
{
    if (AfxInitExtensionModule(g_extension, kernel::getLibraryModule()) == FALSE)
        return false;
    new CDynLinkLibrary(g_extension); // the chain's
    return true;
}
catch (...)
{
    framework::discardException();
    return false;
}

bool enterFramework() noexcept
{
    AfxCoreInitModule();
    if (AfxWinInit(kernel::getLibraryModule(), nullptr, CK_T(""), 0) != FALSE && enterChain())
        return true;
    AfxWinTerm();
    return false;
}

void deleteTemporaryMaps() noexcept
{
    AfxLockTempMaps();
    AfxUnlockTempMaps(TRUE);
}

void leaveFramework() noexcept
try
{
    deleteTemporaryMaps();
    AfxWinTerm();
    AfxTermExtensionModule(g_extension, TRUE);
}
catch (...)
{
    // Without its lock the chain keeps the entry; it goes with the library.
    framework::discardException();
}
} // namespace

bool canStart() noexcept
{
    const HLOCAL memory = LocalAlloc(LMEM_FIXED, memoryToStart);
    LocalFree(memory);
    return memory != nullptr;
}

void processAttach() noexcept
{
    if (AfxGetModuleState() != &g_moduleState || !enterFramework())
        kernel::refuseLoad();
    g_moduleState.Leave();
}

void threadDetach() noexcept
{
    const AFX_MAINTAIN_STATE2 state(&g_moduleState);
    deleteTemporaryMaps();
    AfxTermThread(kernel::getLibraryModule());
}

void processDetach() noexcept
{
    if (!kernel::isProcessEnding())
    {
        g_moduleState.Enter();
        leaveFramework();
    }
    unloadLibrary();
}

LibraryModuleState::~LibraryModuleState()
{
    if (!isLeftToProcess())
        Leave();
}
} // namespace tarvo::detail
