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
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;

inline constexpr DWORD DUPLICATE_SAME_ACCESS = 2;

inline constexpr DWORD CREATE_SUSPENDED = 4;
inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr int THREAD_PRIORITY_IDLE = -15;
inline constexpr int THREAD_PRIORITY_LOWEST = -2;
inline constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
inline constexpr int THREAD_PRIORITY_NORMAL = 0;
inline constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
inline constexpr int THREAD_PRIORITY_HIGHEST = 2;
inline constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;
inline constexpr int THREAD_PRIORITY_ERROR_RETURN = 0x7FFFFFFF;

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x0100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x0200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

struct SECURITY_ATTRIBUTES;

// Calling conventions, where the system has several.
#define WINAPI
using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID parameter);

namespace tarvo::kernel
{
/// The id of the running thread once it has asked for it, else 0. Initial-exec: two instructions to read, also from
/// clients. In a child made by `fork` the thread keeps its id, so that a section held across the fork stays its own.
extern constinit thread_local DWORD t_threadId TARVO_API __attribute__((tls_model("initial-exec")));

/// Asks the kernel for the id of the running thread and keeps it.
TARVO_API DWORD fetchThreadId() noexcept;

extern constinit thread_local DWORD t_lastError TARVO_API __attribute__((tls_model("initial-exec")));
} // namespace tarvo::kernel

/// The id of the running thread: not 0, unique among the living threads of the process.
inline DWORD GetCurrentThreadId() noexcept
{
    const DWORD id = tarvo::kernel::t_threadId;
    return id != 0 ? id : tarvo::kernel::fetchThreadId();
}

/// The running thread's last error code.
inline DWORD GetLastError() noexcept
{
    return tarvo::kernel::t_lastError;
}

inline void SetLastError(DWORD code) noexcept
{
    tarvo::kernel::t_lastError = code;
}

/// Milliseconds since the system started; wraps after 49.7 days.
TARVO_API DWORD GetTickCount() noexcept;

/// An event without a name: null, or the call fails with ERROR_INVALID_PARAMETER. Null on failure, else
/// ERROR_NOT_ENOUGH_MEMORY.
TARVO_API HANDLE CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initiallySet,
                              LPCWSTR name) noexcept;

/// FALSE, with ERROR_INVALID_HANDLE, for a handle that is not an open event's. `PulseEvent` serves those who are
/// asleep in a wait for the event, all of them or with an auto-reset event the first, and leaves it not set.
TARVO_API BOOL SetEvent(HANDLE event) noexcept;
TARVO_API BOOL ResetEvent(HANDLE event) noexcept;
TARVO_API BOOL PulseEvent(HANDLE event) noexcept;

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

/// Waits for any, or for all, of up to 64 objects: WAIT_OBJECT_0 plus the lowest index of an object that satisfied a
/// wait for any, WAIT_OBJECT_0 for all, WAIT_TIMEOUT, or WAIT_FAILED. Until all are signalled at one moment, a wait for
/// all takes nothing; it fails with ERROR_INVALID_PARAMETER where an object is given twice.
TARVO_API DWORD WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL waitAll, DWORD timeoutMs) noexcept;

/// The one process that handles can be duplicated from and into.
inline HANDLE GetCurrentProcess() noexcept
{
    return reinterpret_cast<HANDLE>(~std::uintptr_t{0});
}

/// Another handle for the object. The options must be DUPLICATE_SAME_ACCESS.
TARVO_API BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target, DWORD access,
                               BOOL inherit, DWORD options) noexcept;

/// A thread that runs `start(parameter)`, at once or, with the flag CREATE_SUSPENDED, when it is resumed. Its object is
/// signalled when it has ended; a wait for it that is satisfied returns when the thread executes nothing any more. It
/// keeps the library loaded as long as it runs; one that is created suspended, and whose id is not asked for, from when
/// it begins. Null on failure: ERROR_NOT_ENOUGH_MEMORY.
TARVO_API HANDLE CreateThread(SECURITY_ATTRIBUTES* attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                              LPVOID parameter, DWORD flags, DWORD* threadId) noexcept;

/// The number of suspensions before: 1 lets the thread run, 0 did nothing. 0xFFFFFFFF on failure.
TARVO_API DWORD ResumeThread(HANDLE thread) noexcept;

/// THREAD_PRIORITY_…; ERROR_RETURN, or FALSE, on failure. The system is asked to follow it, which it may refuse.
TARVO_API int GetThreadPriority(HANDLE thread) noexcept;
TARVO_API BOOL SetThreadPriority(HANDLE thread, int priority) noexcept;

/// STILL_ACTIVE while the thread runs, and for one that has ended with just this code.
TARVO_API BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode) noexcept;

/// Ends the thread wherever it is, unless it has ended: nothing is unwound, destroyed or unlocked but what this layer
/// itself holds at that moment. A thread that blocks the signal SIGRTMAX - 2 is ended when it admits it; until then
/// the call waits. The library stays loaded for good.
TARVO_API BOOL TerminateThread(HANDLE thread, DWORD exitCode) noexcept;

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
