#pragma once

#include <cstddef>

#if defined(_WIN32)
#    include <array>
#    include <tlhelp32.h>
#    include <windows.h>
#else
#    include <filesystem>
#    include <iterator>
#    include <malloc.h>
#endif

/// What the process uses.
struct Resources
{
    std::size_t memory;  ///< Bytes that are allocated from heaps; 0 under sanitizers, which have heaps of their own.
    std::size_t handles; ///< Kernel handles or file descriptors.
    std::size_t threads;

    static Resources Now();

    /// Bytes that the system itself may keep each time that a module is loaded, on the average.
#if defined(_WIN32)
    static constexpr std::size_t leftByLoading = 64; // MinGW never frees the places of thread-local variables
#else
    static constexpr std::size_t leftByLoading = 31; // less than any block of the heap; threads leave some now and then
#endif
};

#if defined(_WIN32)
inline std::size_t allocatedIn(HANDLE heap)
{
    std::size_t sum = 0;
    HeapLock(heap);
    PROCESS_HEAP_ENTRY entry = {};
    while (HeapWalk(heap, &entry) != FALSE)
    {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0)
            sum += entry.cbData;
    }
    HeapUnlock(heap);
    return sum;
}

inline Resources Resources::Now()
{
    Resources now = {};
    // Asked one by one, as Wine does not count them.
    for (std::size_t handle = 4; handle < 0x4000; handle += 4)
    {
        DWORD flags = 0;
        now.handles += GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) != FALSE ? 1 : 0;
    }

    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread = {};
    thread.dwSize = sizeof thread;
    for (BOOL more = Thread32First(snapshot, &thread); more != FALSE; more = Thread32Next(snapshot, &thread))
        now.threads += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    CloseHandle(snapshot);

    std::array<HANDLE, 64> heaps;
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    for (DWORD i = 0; i < count && i < heaps.size(); ++i)
        now.memory += allocatedIn(heaps[i]);
    return now;
}
#else
inline std::size_t entriesOf(const char* folder)
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

inline Resources Resources::Now()
{
    const struct mallinfo2 heap = mallinfo2();
    return {heap.uordblks + heap.hblkhd, entriesOf("/proc/self/fd"), entriesOf("/proc/self/task")};
}
#endif
