#include <tarvo/platform/framework/modulestate.h>

#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/kernel/loading.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <cstdlib>

namespace
{
constinit AFX_MODULE_STATE g_processState;

constinit tarvo::detail::Undestroyed<CkCriticalSection> g_chainLock;
constinit CDynLinkLibrary* g_chain = nullptr; ///< The latest entry. Guarded by the lock.
} // namespace

AFX_MODULE_STATE* AfxGetModuleState() noexcept
{
    void* const state = tarvo::kernel::getThreadValue();
    return state != nullptr ? static_cast<AFX_MODULE_STATE*>(state) : &g_processState;
}

AFX_MODULE_STATE* AfxSetModuleState(AFX_MODULE_STATE* state) noexcept
{
    void* const previous = tarvo::kernel::getThreadValue();
    if (state != previous)
        tarvo::kernel::setThreadValue(state);
    return static_cast<AFX_MODULE_STATE*>(previous);
}

void AfxCoreInitModule() noexcept
{
    AFX_MODULE_STATE& state = *AfxGetModuleState();
    state.m_hCurrentInstanceHandle = nullptr;
    state.m_nTempMapLock.store(0, std::memory_order_relaxed);
}

BOOL AfxWinInit(HMODULE instance, HMODULE previousInstance, LPCWSTR, int) noexcept
{
    AFX_MODULE_STATE& state = *AfxGetModuleState();
    if (instance == nullptr || previousInstance != nullptr || state.m_hCurrentInstanceHandle != nullptr)
        return FALSE;
    state.m_hCurrentInstanceHandle = instance;
    return TRUE;
}

void AfxWinTerm() noexcept
{
    AfxGetModuleState()->m_hCurrentInstanceHandle = nullptr;
}

// Each lock of the maps is a thread's own affair: the count needs no order.

void AfxLockTempMaps() noexcept
{
    AfxGetModuleState()->m_nTempMapLock.fetch_add(1, std::memory_order_relaxed);
}

BOOL AfxUnlockTempMaps(BOOL) noexcept
{
    return AfxGetModuleState()->m_nTempMapLock.fetch_sub(1, std::memory_order_relaxed) != 1 ? TRUE : FALSE;
}

void AfxTermThread(HMODULE instance) noexcept
{
    if (instance == nullptr || instance == AfxGetModuleState()->m_hCurrentInstanceHandle)
        tarvo::kernel::setThreadValue(nullptr);
}

BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& record, HMODULE module) noexcept
{
    if (record.bInitialized != FALSE)
        return TRUE;
    if (module == nullptr)
        return FALSE;
    record = {TRUE, module, module};
    return TRUE;
}

void AfxTermExtensionModule(AFX_EXTENSION_MODULE& record, BOOL all)
{
    if (record.bInitialized == FALSE)
        return;
    const CkCriticalSectionAuto guard(g_chainLock.object);
    do
        delete CDynLinkLibrary::Find(record.hModule);
    while (all != FALSE && CDynLinkLibrary::Find(record.hModule) != nullptr);
    if (CDynLinkLibrary::Find(record.hModule) == nullptr)
        record.bInitialized = FALSE;
}

CDynLinkLibrary::CDynLinkLibrary(const AFX_EXTENSION_MODULE& record)
    : m_hModule(record.hModule), m_hResource(record.hResource)
{
    const CkCriticalSectionAuto guard(g_chainLock.object);
    m_pNextDLL = g_chain;
    g_chain = this;
}

CDynLinkLibrary::~CDynLinkLibrary()
{
    const CkCriticalSectionAuto guard(g_chainLock.object);
    CDynLinkLibrary** link = &g_chain;
    while (*link != this)
        link = &(*link)->m_pNextDLL;
    *link = m_pNextDLL;
}

void* CDynLinkLibrary::operator new(std::size_t size)
{
    void* const memory = std::malloc(size);
    if (memory == nullptr)
        AfxThrowMemoryException();
    return memory;
}

void CDynLinkLibrary::operator delete(void* memory) noexcept
{
    std::free(memory);
}

CDynLinkLibrary* CDynLinkLibrary::Find(HMODULE module)
{
    const CkCriticalSectionAuto guard(g_chainLock.object);
    CDynLinkLibrary* entry = g_chain;
    while (entry != nullptr && entry->m_hModule != module)
        entry = entry->m_pNextDLL;
    return entry;
}
