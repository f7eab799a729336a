#include <tarvo/platform/kernel/asymmetricbarrier.h>

#include <tarvo/platform/kernel/linux/futex.h>

#if TARVO_ASYMMETRIC_BARRIER

#    include <linux/membarrier.h>
#    include <sys/syscall.h>
#    include <unistd.h>

namespace tarvo::kernel
{
constinit bool g_asymmetricBarrier = false;

namespace
{
bool membarrier(int command) noexcept
{
    const KeepErrno keep;
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

const struct Registration
{
    Registration() noexcept { g_asymmetricBarrier = membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED); }
} registration;
} // namespace

bool heavyBarrier() noexcept
{
    return !g_asymmetricBarrier || membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
}
} // namespace tarvo::kernel

#endif
