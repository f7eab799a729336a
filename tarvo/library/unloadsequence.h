#pragma once

#include <tarvo/config.h>

// What was made on first use and must be destroyed when its module goes: one list, run in reverse.
//
// Each entry belongs to a module: the library, a program, a plug-in. The entries of the library run when the library is
// unloaded or the process ends, before the library's static objects are destroyed. Those of another module run when that
// module goes, so that no code is called that is no longer there.

namespace tarvo::detail
{
/// An object of static lifetime that is not destroyed by itself: either it needs no destruction, or an unload entry does
/// it at the right moment.
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

/// Takes the entries of `module` out of the list, the newest first, and runs each. Holds no lock meanwhile, so a handler
/// may register a new entry, which is then the next one.
TARVO_API void runUnloadEntries(const void* module) noexcept;

#if defined(TARVO_EXPORTS)
/// The library's own entries are run by the owner of its static objects.
inline const void* thisModule() noexcept
{
    return nullptr;
}
#else
/// Ends with its module and runs the module's entries then.
class TARVO_HIDDEN ModuleUnload
{
public:
    ModuleUnload() = default;
    ModuleUnload(const ModuleUnload&) = delete;
    ModuleUnload& operator=(const ModuleUnload&) = delete;
    ~ModuleUnload() { runUnloadEntries(this); }
};

/// The module that this is compiled into. First asked when the module registers its first entry: what it has constructed
/// by then, its type records among it, is destroyed after the entries have run.
TARVO_HIDDEN inline const void* thisModule()
{
    static const ModuleUnload module;
    return &module;
}
#endif
} // namespace tarvo::detail
