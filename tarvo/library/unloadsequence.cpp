#include <tarvo/library/unloadsequence.h>

#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/kernel/unloading.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <atomic>

namespace tarvo::detail
{
namespace
{
constinit Undestroyed<CkCriticalSection> g_lock;
constinit UnloadEntry* g_newest = nullptr;
constinit std::atomic<bool> g_leftToProcess{false};

/// Takes the newest entry of `module` out of the list; null when there is none, or the lock cannot be had.
UnloadEntry* takeNewest(const void* module) noexcept
try
{
    const CkCriticalSectionAuto guard(g_lock.object);
    for (UnloadEntry** link = &g_newest; *link != nullptr; link = &(*link)->previous)
    {
        if ((*link)->module == module)
        {
            UnloadEntry* const entry = *link;
            *link = entry->previous;
            return entry;
        }
    }
    return nullptr;
}
catch (...)
{
    framework::discardException();
    return nullptr;
}
} // namespace

bool isLeftToProcess() noexcept
{
    return g_leftToProcess.load(std::memory_order_relaxed);
}

void unloadLibrary() noexcept
{
    if (kernel::isProcessEnding())
        g_leftToProcess.store(true, std::memory_order_relaxed);
    else
        runUnloadEntries(nullptr);
}

void registerUnload(UnloadEntry& entry, const void* module)
{
    const CkCriticalSectionAuto guard(g_lock.object);
    entry.module = module;
    entry.previous = g_newest;
    g_newest = &entry;
}

void runUnloadEntries(const void* module) noexcept
{
    while (UnloadEntry* const entry = takeNewest(module))
        entry->handler();
}
} // namespace tarvo::detail
