#include <tarvo/platform/kernel/fork.h>

namespace tarvo::kernel
{
bool callInForkedChild(void (*)()) noexcept
{
    return false;
}
} // namespace tarvo::kernel
