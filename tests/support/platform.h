#pragma once

/// Whether the kernel calls are the library's own, and not those of a system that others wrote.
#if defined(_WIN32)
inline constexpr bool ownKernel = false;
#else
inline constexpr bool ownKernel = true;
#endif
