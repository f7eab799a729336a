#pragma once

#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/threads/cktimer.h>

namespace tarvo::detail
{
/// The end of a time-out in milliseconds that several waits share. INFINITE has no end.
class Deadline
{
public:
    explicit Deadline(unsigned int timeoutMs) : m_timeoutMs(timeoutMs) { m_timer.Start(); }

    /// Milliseconds; never more than before.
    unsigned int GetRemaining() const
    {
        if (m_timeoutMs == INFINITE)
            return INFINITE;
        const unsigned __int64 elapsed = m_timer.GetElapsedTime();
        return elapsed < m_timeoutMs ? m_timeoutMs - static_cast<unsigned int>(elapsed) : 0;
    }

private:
    const unsigned int m_timeoutMs;
    CkTimer m_timer{CkTimer::eResolutionMilliseconds};
};
} // namespace tarvo::detail
