#pragma once

#if defined(_WIN32)
#    include <windows.h>
#else
#    include <sched.h>
#endif

/// Has the process run on one processor from now on.
inline void useOneProcessor()
{
#if defined(_WIN32)
    SetProcessAffinityMask(GetCurrentProcess(), 1);
#else
    cpu_set_t processors;
    sched_getaffinity(0, sizeof processors, &processors);
    int first = 0;
    while (first + 1 < CPU_SETSIZE && !CPU_ISSET(first, &processors))
        ++first;
    CPU_ZERO(&processors);
    CPU_SET(first, &processors);
    sched_setaffinity(0, sizeof processors, &processors);
#endif
}
