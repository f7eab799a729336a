#include <tarvo/platform/kernel/unloading.h>

namespace
{
bool g_unloading = false;

/// Termination functions run in the reverse order of their linking, so this one comes before the one, linked from the
/// compiler's start files, that destroys the static objects of a library that is being unloaded. At the end of the
/// process, however, static objects are destroyed by `exit`, before any termination function runs.
__attribute__((destructor)) void noteUnloading() noexcept
{
    g_unloading = true;
}
} // namespace

bool tarvo::kernel::isProcessEnding() noexcept
{
    return !g_unloading;
}
