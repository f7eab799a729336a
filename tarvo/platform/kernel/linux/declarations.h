#pragma once

// The types, values and calls that kernel.h takes from <windows.h> on Windows. Results, last-error values and the
// behaviour under contention are those of the Windows kernel.

#include <tarvo/config.h>

#include <cstdarg>
#include <cstdint>

/// A text literal of `WCHAR`s.
#define CK_T(text) u##text

// The interface says `unsigned __int64` too, which a type alias cannot give.
#define __int64 long long

// Macros, as other libraries define them too.
#if !defined(FALSE)
#    define FALSE 0
#endif
#if !defined(TRUE)
#    define TRUE 1
#endif

using BOOL = int;
using BYTE = unsigned char;
using WORD = unsigned short;
using DWORD = unsigned int;
using LONG = int;
using ULONG = unsigned int;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::uint64_t;
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPVOID = void*;
using LPCVOID = const void*;
using HANDLE = void*;
using HLOCAL = void*;

inline constexpr DWORD INFINITE = 0xFFFFFFFFu;

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x0100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x0200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

struct SECURITY_ATTRIBUTES;

namespace tarvo::kernel
{
/// The id of the running thread once it has asked for it, else 0. Initial-exec: two instructions to read, also from
/// clients. In a child made by `fork` the thread keeps its id, so that a section held across the fork stays its own.
extern constinit thread_local DWORD t_threadId TARVO_API __attribute__((tls_model("initial-exec")));

/// Asks the kernel for the id of the running thread and keeps it.
TARVO_API DWORD fetchThreadId() noexcept;
} // namespace tarvo::kernel

/// The id of the running thread: not 0, unique among the living threads of the process.
inline DWORD GetCurrentThreadId() noexcept
{
    const DWORD id = tarvo::kernel::t_threadId;
    return id != 0 ? id : tarvo::kernel::fetchThreadId();
}

/// The running thread's last error code.
TARVO_API DWORD GetLastError() noexcept;
TARVO_API void SetLastError(DWORD code) noexcept;

/// Milliseconds since the system started; wraps after 49.7 days.
TARVO_API DWORD GetTickCount() noexcept;

/// A semaphore with `initialCount` of at most `maximumCount` units. The name must be null. Null on failure:
/// ERROR_INVALID_PARAMETER, or ERROR_NOT_ENOUGH_MEMORY.
TARVO_API HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES* attributes, LONG initialCount, LONG maximumCount,
                                  LPCWSTR name) noexcept;

/// Adds `count` units and wakes as many waiters; the count before goes to `previousCount` unless that is null. Fails
/// with ERROR_INVALID_PARAMETER for a count below 1 and ERROR_TOO_MANY_POSTS beyond the maximum; the count is then
/// unchanged.
TARVO_API BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG* previousCount) noexcept;

/// Waits up to `timeoutMs` for the object to be signalled and takes what a wait takes of it: WAIT_OBJECT_0,
/// WAIT_TIMEOUT (nothing taken), or WAIT_FAILED for an invalid handle.
TARVO_API DWORD WaitForSingleObject(HANDLE object, DWORD timeoutMs) noexcept;

/// Gives the handle up. Threads that wait through it go on waiting for the object.
TARVO_API BOOL CloseHandle(HANDLE object) noexcept;

/// The system's text for an error code, ending in "\r\n". Takes the flags FROM_SYSTEM and ALLOCATE_BUFFER (then
/// `buffer` points at the pointer that receives the text, freed with `LocalFree`) and IGNORE_INSERTS. Returns the
/// length without the zero, 0 on failure: ERROR_MR_MID_NOT_FOUND where there is no text, ERROR_INVALID_PARAMETER where
/// the text has inserts, which this layer never fills.
TARVO_API DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer,
                               DWORD size, va_list* arguments) noexcept;

/// Frees what a call of this layer allocated for its caller; null is allowed. Returns null.
TARVO_API HLOCAL LocalFree(HLOCAL memory) noexcept;
