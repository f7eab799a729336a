#include <tarvo/platform/kernel/linux/declarations.h>

#include <unistd.h>

namespace tarvo::kernel
{
constinit thread_local DWORD t_threadId = 0;

DWORD fetchThreadId() noexcept
{
    return t_threadId = static_cast<DWORD>(gettid());
}
} // namespace tarvo::kernel
