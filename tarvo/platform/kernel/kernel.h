#pragma once

// The kernel calls of the library under their Win32 names: the system's own on Windows, those of this library
// elsewhere.

#if defined(_WIN32)
#    if !defined(UNICODE)
#        define UNICODE
#    endif
#    if !defined(_UNICODE)
#        define _UNICODE
#    endif
#    if !defined(WIN32_LEAN_AND_MEAN)
#        define WIN32_LEAN_AND_MEAN
#    endif
#    if !defined(NOMINMAX)
#        define NOMINMAX
#    endif
#    include <windows.h>

/// A text literal of `WCHAR`s.
#    define CK_T(text) L##text
#else
#    include <tarvo/platform/kernel/linux/declarations.h>
#    include <tarvo/platform/kernel/linux/libraries.h>
#    include <tarvo/platform/kernel/linux/localmemory.h>
#    include <tarvo/platform/kernel/linux/machine.h>
#    include <tarvo/platform/kernel/linux/performancecounter.h>
#endif

static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(DWORD) == 4);
static_assert(sizeof(WCHAR) == 2 && sizeof(__int64) == 8);
