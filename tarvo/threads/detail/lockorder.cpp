#include <tarvo/threads/detail/lockorder.h>

#include <array>
#include <cstddef>
#include <cstdio>

namespace tarvo::detail
{
namespace
{
/// By rank.
constexpr std::array<const char*, 4> names{"the singleton lock", "the lock of the thread pool",
                                           "the lock of the log listener manager", "the lock of the event registry"};

/// How often the thread has entered each and not left it yet. The singleton lock is not noted: as the outermost, it is
/// in nobody's way.
constinit thread_local std::array<int, names.size()> t_held{};
} // namespace

void LockOrder::check(LockRank rank) noexcept
{
    const auto entered = static_cast<std::size_t>(rank);
    if (t_held[entered] != 0)
        return;
    for (std::size_t held = entered + 1; held != t_held.size(); ++held)
    {
        if (t_held[held] == 0)
            continue;
        std::array<char, 128> message{};
        std::snprintf(message.data(), message.size(), "%s is entered by a thread that holds %s", names[entered],
                      names[held]);
        trap(message.data());
    }
}

void LockOrder::count(LockRank rank, int change) noexcept
{
    t_held[static_cast<std::size_t>(rank)] += change;
}
} // namespace tarvo::detail
