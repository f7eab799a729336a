#include <tarvo/platform/kernel/loading.h>

#include <tarvo/library/libraryentry.h>

/// Where the file begins in memory; the linker knows.
extern "C" const char __ehdr_start __attribute__((visibility("hidden")));

namespace
{
constinit thread_local void* t_value __attribute__((tls_model("initial-exec"))) = nullptr;

/// Runs before the static objects are constructed.
__attribute__((constructor(101))) void prepare() noexcept
{
    if (!tarvo::detail::canStart())
        tarvo::kernel::refuseLoad();
}
} // namespace

HMODULE tarvo::kernel::getLibraryModule() noexcept
{
    return const_cast<char*>(&__ehdr_start);
}

void tarvo::kernel::refuseLoad() noexcept
{
    tarvo::detail::trap("the library cannot start in this process");
}

void* tarvo::kernel::getThreadValue() noexcept
{
    return t_value;
}

bool tarvo::kernel::setThreadValue(void* value) noexcept
{
    t_value = value;
    return true;
}
