#pragma once

#include <cstdio>

/// What a test program that has no test framework returns: the number of expectations that were not met.
inline int failures = 0;

inline void expect(bool condition, const char* what)
{
    if (!condition)
    {
        std::printf("failed: %s\n", what);
        ++failures;
    }
}
