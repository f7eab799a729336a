#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>

#include <cstdint>

using UINT = unsigned int;
using LPCSTR = const char*;
using HWND = void*;
using HMODULE = void*;
using FARPROC = std::intptr_t (*)();

inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;

inline constexpr UINT MB_OK = 0x00;
inline constexpr UINT MB_ICONEXCLAMATION = 0x30;
inline constexpr int IDOK = 1;

/// Loads the library that is called "X.dll" on Windows: the first that is there of X.dll, libX.so and X.so. A name with
/// a slash is a path; any other is looked for in the folder of the program, and then in this system's standard order
/// (LD_LIBRARY_PATH, the run path of this library, the system's folders). Null on failure:
///
/// | last error              | when                                                                      |
/// |-------------------------|---------------------------------------------------------------------------|
/// | ERROR_MOD_NOT_FOUND     | there is no such file, or one that it needs is missing                    |
/// | ERROR_BAD_EXE_FORMAT    | the file is no library, or one for another kind of machine or word size   |
/// | ERROR_ACCESS_DENIED     | the file cannot be read                                                   |
/// | ERROR_INVALID_PARAMETER | the name is null or empty                                                 |
/// | ERROR_NOT_ENOUGH_MEMORY | there is no memory for looking                                            |
TARVO_API HMODULE LoadLibraryW(LPCWSTR name) noexcept;

/// The address of what the library exports under `name`. Null when there is none, or no library: last error
/// ERROR_PROC_NOT_FOUND.
TARVO_API FARPROC GetProcAddress(HMODULE library, LPCSTR name) noexcept;

/// Writes "caption: text" as UTF-8 to standard error and waits for nobody. Returns IDOK.
TARVO_API int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style) noexcept;
