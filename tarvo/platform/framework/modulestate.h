#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/kernel.h>

#include <atomic>
#include <cstddef>

// The part of the framework that knows the modules of a process: the state that each has, which of them is current on a
// thread, and the chain in which extension modules are entered. There are no windows here, so of the maps of temporary
// objects only their locks are left.
//
// Threads: every function may be called from any thread. The chain has a lock of its own, and takes no other meanwhile.

/// What the framework knows of a module. Belongs to the module, which makes it current while it calls the framework for
/// itself.
class AFX_MODULE_STATE
{
public:
    constexpr AFX_MODULE_STATE() noexcept = default;
    AFX_MODULE_STATE(const AFX_MODULE_STATE&) = delete;
    AFX_MODULE_STATE& operator=(const AFX_MODULE_STATE&) = delete;

    HMODULE m_hCurrentInstanceHandle = nullptr; ///< The module; null unless the framework is initialised for it.
    std::atomic<LONG> m_nTempMapLock{0};
};

/// The state that is current on the running thread: that of the process unless another was set.
TARVO_API AFX_MODULE_STATE* AfxGetModuleState() noexcept;

/// Makes `state` current on the running thread, null: that of the process. Returns the one that was, in the same way.
/// Where the system has no memory to keep it for the thread, nothing changes.
TARVO_API AFX_MODULE_STATE* AfxSetModuleState(AFX_MODULE_STATE* state) noexcept;

/// Makes a state current on the running thread as long as it lives.
class AFX_MAINTAIN_STATE2
{
public:
    explicit AFX_MAINTAIN_STATE2(AFX_MODULE_STATE* state) noexcept : m_previous(AfxSetModuleState(state)) {}
    AFX_MAINTAIN_STATE2(const AFX_MAINTAIN_STATE2&) = delete;
    AFX_MAINTAIN_STATE2& operator=(const AFX_MAINTAIN_STATE2&) = delete;
    ~AFX_MAINTAIN_STATE2() { AfxSetModuleState(m_previous); }

private:
    AFX_MODULE_STATE* const m_previous;
};

/// Prepares the current state for `AfxWinInit`.
TARVO_API void AfxCoreInitModule() noexcept;

/// Initialises the framework for a module, whose state is current. FALSE without a module, with a previous instance,
/// which no module has, or when it is initialised already. The command line is an application's.
TARVO_API BOOL AfxWinInit(HMODULE instance, HMODULE previousInstance, LPCWSTR commandLine, int show) noexcept;

/// Takes back what `AfxWinInit` did, or would have.
TARVO_API void AfxWinTerm() noexcept;

/// Keep the current module's temporary objects. The last `AfxUnlockTempMaps` lets go of them if `deleteTemporary`;
/// TRUE as long as others keep them.
TARVO_API void AfxLockTempMaps() noexcept;
TARVO_API BOOL AfxUnlockTempMaps(BOOL deleteTemporary = TRUE) noexcept;

/// Forgets what the framework keeps for the running thread, which ends: at the request of the current module, or, with
/// null, of whoever asks.
TARVO_API void AfxTermThread(HMODULE instance = nullptr) noexcept;

/// The record of a module that extends the framework. Of static lifetime, in that module.
struct AFX_EXTENSION_MODULE
{
    BOOL bInitialized = FALSE;
    HMODULE hModule = nullptr;
    HMODULE hResource = nullptr; ///< Where its resources are.
};

/// Fills the record. One that is filled stays as it is. FALSE without a module.
TARVO_API BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& record, HMODULE module) noexcept;

/// Takes the latest entry of the module out of the chain, or all. Without any left, the record may be filled again.
TARVO_API void AfxTermExtensionModule(AFX_EXTENSION_MODULE& record, BOOL all = FALSE);

/// An entry in the framework's chain of modules, as long as it lives. `new` raises a `CMemoryException`; whoever made
/// the entry leaves it to `AfxTermExtensionModule`, or deletes it.
class TARVO_API CDynLinkLibrary
{
public:
    explicit CDynLinkLibrary(const AFX_EXTENSION_MODULE& record);
    CDynLinkLibrary(const CDynLinkLibrary&) = delete;
    CDynLinkLibrary& operator=(const CDynLinkLibrary&) = delete;
    ~CDynLinkLibrary();

    static void* operator new(std::size_t size);
    static void operator delete(void* memory) noexcept;

    /// The latest entry of `module`, or null. Valid until it leaves the chain.
    static CDynLinkLibrary* Find(HMODULE module);

    const HMODULE m_hModule;
    const HMODULE m_hResource;

private:
    CDynLinkLibrary* m_pNextDLL; ///< The one entered before. Guarded by the lock of the chain.
};
