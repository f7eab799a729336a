#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>

inline constexpr unsigned int LMEM_FIXED = 0;

/// Memory of `size` bytes from the heap, freed with `LocalFree`. Null, with ERROR_NOT_ENOUGH_MEMORY, when there is
/// none. The flags must be LMEM_FIXED.
TARVO_API HLOCAL LocalAlloc(unsigned int flags, SIZE_T size) noexcept;
