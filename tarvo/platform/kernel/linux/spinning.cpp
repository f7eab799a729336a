#include <tarvo/platform/kernel/linux/spinning.h>

#include <tarvo/platform/kernel/linux/futex.h>
#include <tarvo/platform/kernel/processor.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>

namespace tarvo::kernel
{
constinit thread_local SpinBudget t_spinBudget __attribute__((tls_model("initial-exec"))) = {};

namespace
{
/// The longest look: about as long as it takes to wake two threads, one after the other.
constexpr std::chrono::nanoseconds longestLook = std::chrono::microseconds(100);

constexpr std::uint32_t fewestLooks = 16;
constexpr std::uint32_t firstInterval = 8;
constexpr std::uint32_t longestInterval = 1024;

/// How many times to look in the longest look. Between two looks, processors pause for anything from 10 to 50
/// nanoseconds.
std::uint32_t mostLooks() noexcept
{
    using Clock = std::chrono::steady_clock;
    static constinit std::atomic<std::uint32_t> s_looks{0};
    std::uint32_t looks = s_looks.load(std::memory_order_relaxed);
    if (looks != 0)
        return looks;
    constexpr int pauses = 100;
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < pauses; ++i)
        spinPause();
    const auto pause = std::max((Clock::now() - start) / pauses, Clock::duration(1));
    looks = static_cast<std::uint32_t>(std::clamp<std::int64_t>(longestLook / pause, 1000, 10000));
    s_looks.store(looks, std::memory_order_relaxed);
    return looks;
}

bool hasOneProcessor() noexcept
{
    const KeepErrno keep;
    cpu_set_t set;
    // A machine with more processors than the set has room for refuses the call.
    return sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) == 1;
}
} // namespace

std::uint32_t SpinBudget::Begin() noexcept
{
    if (looks != 0 || (started != 0 && --waits != 0))
        return looks;
    if (started == 0)
        interval = firstInterval;
    started = 1;
    waits = interval;
    return hasOneProcessor() ? 0 : looks = mostLooks();
}

void SpinBudget::Succeeded(std::uint32_t looked) noexcept
{
    looks = std::min(mostLooks(), std::max(looks, 4 * looked + fewestLooks));
    interval = firstInterval;
}

void SpinBudget::Failed() noexcept
{
    looks /= 2;
    if (looks >= fewestLooks)
        return;
    looks = 0;
    waits = interval = std::min(longestInterval, 2 * interval);
}
} // namespace tarvo::kernel
