#pragma once

#include <tarvo/platform/framework/modulestate.h>

// How the library comes and goes, on the one thread that loads or unloads it:
//
// | when                                    | step            | called by                                           |
// |-----------------------------------------|-----------------|-----------------------------------------------------|
// | before any static object                | `canStart`      | the loader's first call                             |
// | the first static object is constructed  |                 | it makes the library's module state current         |
// | the last static object is constructed   | `processAttach` | the last static object                              |
// | a thread ends                           | `threadDetach`  | the loader, or the layer that started the thread    |
// | the last static object is destroyed     | `processDetach` | the last static object                              |
// | the first static object is destroyed    |                 | it makes the former module state current again      |
//
// When the process ends, nothing of this is done: everything is left to the system.

namespace tarvo::detail
{
/// Whether the heap of the process has the memory that a start takes.
bool canStart() noexcept;

/// Initialises the framework for the library and enters it in the framework's chain of modules; then makes the former
/// module state current again. What cannot be done is taken back, and the load refused.
void processAttach() noexcept;

/// Lets the framework forget what it keeps for the running thread.
void threadDetach() noexcept;

/// Takes back what `processAttach` did and destroys what was made on first use. From here on the library's module state
/// is the current one.
void processDetach() noexcept;

/// The library's module state, and its turns at being the current one. The first of the static objects.
class LibraryModuleState : public AFX_MODULE_STATE
{
public:
    LibraryModuleState() noexcept { Enter(); }
    LibraryModuleState(const LibraryModuleState&) = delete;
    LibraryModuleState& operator=(const LibraryModuleState&) = delete;
    ~LibraryModuleState();

    void Enter() noexcept { m_former = AfxSetModuleState(this); }
    void Leave() noexcept { AfxSetModuleState(m_former); }

private:
    AFX_MODULE_STATE* m_former; ///< What was current on the thread that came in last.
};

extern LibraryModuleState g_moduleState;
} // namespace tarvo::detail
