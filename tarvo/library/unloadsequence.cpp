#include <tarvo/library/unloadsequence.h>

#include <tarvo/threads/ckcriticalsection.h>

namespace tarvo::detail
{
namespace
{
constinit Undestroyed<CkCriticalSection> g_lock;
constinit UnloadEntry* g_newest = nullptr;

/// Takes the newest entry of `module` out of the list; null when there is none.
UnloadEntry* takeNewest(const void* module)
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
} // namespace

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
