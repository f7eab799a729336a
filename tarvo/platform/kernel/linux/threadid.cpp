#include <tarvo/platform/kernel/linux/declarations.h>

#include <pthread.h>
#include <unistd.h>

namespace tarvo::kernel
{
constinit thread_local DWORD t_threadId = 0;

namespace
{
/// The id that the one thread of a forked process brought along; the system may give the same number to a new one.
constinit DWORD g_inheritedId = 0;

/// Above every id that Linux gives (at most 2^22).
constexpr DWORD newInFork = 0x80000000u;

const int forkHandler = pthread_atfork(nullptr, nullptr, [] { g_inheritedId = t_threadId; });
} // namespace

DWORD fetchThreadId() noexcept
{
    const auto id = static_cast<DWORD>(gettid());
    return t_threadId = id == g_inheritedId ? id | newInFork : id;
}
} // namespace tarvo::kernel
