#include <tarvo/platform/kernel/loading.h>

#include <tarvo/library/libraryentry.h>
#include <tarvo/platform/kernel/unloading.h>

#include <cstdlib>

/// Where the file begins in memory; the linker knows.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace
{
constinit bool g_refused = false;

/// Not a thread_local variable: with this compiler that allocates memory for each thread that comes by, and ends only
/// with the thread.
constinit DWORD g_slot = TLS_OUT_OF_INDEXES;

void freeSlot()
{
    if (!tarvo::kernel::isProcessEnding())
        TlsFree(g_slot);
}
} // namespace

// The run-time of the compiler calls, in this order: DllEntryPoint; the constructors of the static objects; DllMain.
// And when the library goes: DllMain; DllEntryPoint; what was registered with `atexit`, the latest first, the
// destructors of the static objects among it. Where a call refuses the load, what was done before is undone in the same
// way.

extern "C" BOOL WINAPI DllEntryPoint(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason != DLL_PROCESS_ATTACH)
        return TRUE;
    if (!tarvo::detail::canStart())
        return FALSE;
    g_slot = TlsAlloc();
    return g_slot != TLS_OUT_OF_INDEXES && std::atexit(&freeSlot) == 0 ? TRUE : FALSE;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason == DLL_THREAD_DETACH)
        tarvo::detail::threadDetach();
    return reason != DLL_PROCESS_ATTACH || !g_refused ? TRUE : FALSE;
}

HMODULE tarvo::kernel::getLibraryModule() noexcept
{
    return reinterpret_cast<HMODULE>(&__ImageBase);
}

void tarvo::kernel::refuseLoad() noexcept
{
    g_refused = true;
}

void* tarvo::kernel::getThreadValue() noexcept
{
    // The last error is the caller's.
    const DWORD error = GetLastError();
    void* const value = TlsGetValue(g_slot);
    SetLastError(error);
    return value;
}

bool tarvo::kernel::setThreadValue(void* value) noexcept
{
    return TlsSetValue(g_slot, value) != FALSE;
}
