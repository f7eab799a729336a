#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>

#include <time.h>

namespace tarvo::kernel
{
/// The end of a wait of some milliseconds on the monotonic clock; the only place where a time-out becomes a time.
class Deadline
{
public:
    /// `timeoutMs` from now; INFINITE is no deadline at all.
    explicit Deadline(DWORD timeoutMs) noexcept;

    /// The time, or null where the wait has no limit.
    const timespec* Time() const noexcept { return m_limited ? &m_time : nullptr; }

private:
    timespec m_time{};
    bool m_limited;
};
} // namespace tarvo::kernel
