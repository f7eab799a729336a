#include <tarvo/platform/kernel/fork.h>

#include <pthread.h>

namespace tarvo::kernel
{
bool callInForkedChild(void (*function)()) noexcept
{
    // The C library forgets the function when this library is unloaded.
    return pthread_atfork(nullptr, nullptr, function) == 0;
}
} // namespace tarvo::kernel
