#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>

#include <time.h>

/// A number of 64 bits, also as its halves.
union LARGE_INTEGER
{
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

/// Nanoseconds on the monotonic clock, which counts from some moment before the process began. Never fails. Inline, as
/// a reading takes hardly more time than a call.
inline BOOL QueryPerformanceCounter(LARGE_INTEGER* count) noexcept
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    count->QuadPart = static_cast<LONGLONG>(now.tv_sec) * 1000000000 + now.tv_nsec;
    return TRUE;
}

/// The counts in a second. Never fails.
inline BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) noexcept
{
    frequency->QuadPart = 1000000000;
    return TRUE;
}
