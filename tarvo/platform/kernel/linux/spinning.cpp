#include <tarvo/platform/kernel/linux/spinning.h>

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
constexpr std::chrono::nanoseconds longestLook = std::chrono::microseconds(60);

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

/// Offers the processor to other threads; whether one had it.
bool offerProcessor() noexcept
{
    // An offer that nobody takes is a third of this.
    constexpr auto taken = std::chrono::microseconds(1);
    const auto start = std::chrono::steady_clock::now();
    sched_yield();
    return std::chrono::steady_clock::now() - start > taken;
}
} // namespace

SpinBudget::Pause SpinBudget::PauseBefore(std::uint32_t looked) noexcept
{
    constexpr std::uint32_t offerInterval = 64;
    if (looked % offerInterval != (offersFirst ? 0 : offerInterval - 1))
    {
        spinPause();
        return Pause::none;
    }
    offersFirst = offerProcessor();
    return offersFirst ? Pause::others : Pause::none;
}

std::uint32_t SpinBudget::Begin() noexcept
{
    if (looks != 0 || (started && --waits != 0))
        return looks;
    if (!started)
        interval = firstInterval;
    started = true;
    waits = interval;
    return looks = mostLooks();
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
