#pragma once

#include <tarvo/config.h>

// What was made on first use and must be destroyed when its module goes: one list, run in reverse.
//
// Each entry belongs to a module: the library, a program, a plug-in. The entries of the library run when the library is
// unloaded, before its static objects are destroyed. Those of another module run when that module goes, so that no code
// is called that is no longer there.
//
// When the process ends, threads may still be running, or were stopped wherever they were, with locks in their hands.
// Then the library leaves all that is its own to the system: its objects stay usable to the last.

namespace tarvo::detail
{
/// An object of static lifetime that is not destroyed by itself: either it needs no destruction, or an unload entry
/// does it at the right moment.
template <class T>
struct Undestroyed
{
    constexpr Undestroyed() noexcept : object() {}
    constexpr ~Undestroyed() {}

    union
    {
        T object;
    };
};

/// Whether the process ends and the library's objects are left to it.
bool isLeftToProcess() noexcept;

/// What the owner of the static objects does before they are destroyed: runs the library's entries, or finds that all
/// is left to the process.
void unloadLibrary() noexcept;

/// A step of the unload sequence. Of static lifetime, in the module whose code `handler` is.
struct UnloadEntry
{
    void (*handler)();
    const void* module = nullptr;    ///< Set by `registerUnload`.
    UnloadEntry* previous = nullptr; ///< Guarded by the list's lock once registered.
};

/// Puts `entry`, which must not be in the list, at the end of the list, in the name of `module` (null: the library).
/// From any thread.
TARVO_API void registerUnload(UnloadEntry& entry, const void* module = nullptr);

/// Takes the entries of `module` out of the list, the newest first, and runs each. Holds no lock meanwhile, so a
/// handler may register a new entry, which is then the next one.
TARVO_API void runUnloadEntries(const void* module) noexcept;

#if defined(TARVO_EXPORTS)
/// The library's own entries are run by the owner of its static objects.
inline void registerForThisModule(UnloadEntry& entry)
{
    registerUnload(entry);
}
#else
/// Whether the entries of the module that this is compiled into have run.
TARVO_HIDDEN inline constinit bool g_moduleGone = false;

/// Ends with its module and runs the module's entries then.
class TARVO_HIDDEN ModuleUnload
{
public:
    ModuleUnload() = default;
    ModuleUnload(const ModuleUnload&) = delete;
    ModuleUnload& operator=(const ModuleUnload&) = delete;

    ~ModuleUnload()
    {
        runUnloadEntries(this);
        g_moduleGone = true;
    }
};

/// Registers for the module that this is compiled into. What the module has constructed before its first entry, its
/// type records among it, is destroyed after the entries have run. An entry that comes even later is never run: nobody
/// would take it from the list before its code is gone.
TARVO_HIDDEN inline void registerForThisModule(UnloadEntry& entry)
{
    static const ModuleUnload module;
    if (!g_moduleGone)
        registerUnload(entry, &module);
}
#endif
} // namespace tarvo::detail
