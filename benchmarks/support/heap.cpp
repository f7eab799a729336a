#include <malloc.h>

// By default the heap maps large blocks one by one and gives free memory back to the system, at sizes that depend on
// what ran before. What grows would then be measured by the page faults of its turn. So here the heap keeps what it has.

namespace
{
[[maybe_unused]] const bool heapKeepsMemory =
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024) != 0 && mallopt(M_TRIM_THRESHOLD, 2'000'000'000) != 0;
} // namespace
