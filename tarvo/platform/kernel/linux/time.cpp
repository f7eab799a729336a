#include <tarvo/platform/kernel/linux/time.h>

namespace tarvo::kernel
{
Deadline::Deadline(DWORD timeoutMs) noexcept : m_limited(timeoutMs != INFINITE)
{
    if (!m_limited)
        return;
    clock_gettime(CLOCK_MONOTONIC, &m_time);
    m_time.tv_sec += timeoutMs / 1000;
    m_time.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000;
    if (m_time.tv_nsec >= 1000000000)
    {
        m_time.tv_nsec -= 1000000000;
        ++m_time.tv_sec;
    }
}
} // namespace tarvo::kernel

DWORD GetTickCount() noexcept
{
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<DWORD>(static_cast<ULONGLONG>(now.tv_sec) * 1000 +
                              static_cast<ULONGLONG>(now.tv_nsec) / 1000000);
}
