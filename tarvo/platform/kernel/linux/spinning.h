#pragma once

#include <cstdint>

namespace tarvo::kernel
{
/// How long the running thread looks for a signal before it sleeps. To wake a thread that sleeps on another processor
/// takes tens of microseconds; to be seen by one that looks takes less than one. But looking keeps a processor busy,
/// so it must have paid lately: a thread whose looks fail looks shorter and shorter, then not at all but for a try at
/// ever longer intervals. And whoever is to signal may need this very processor: now and then the thread offers it to
/// others, and where somebody takes it, it looks once more and then sleeps.
struct SpinBudget
{
    enum class Pause
    {
        none,  ///< Nobody else wanted the processor.
        others ///< Another thread had it meanwhile.
    };

    std::uint32_t looks;    ///< How many times to look.
    std::uint32_t waits;    ///< Waits until the next try, while `looks` is 0.
    std::uint32_t interval; ///< Of those tries.
    bool started;           ///< After the first wait.
    bool offersFirst;       ///< Lately the processor was wanted by others.

    /// Passes the time between two looks, of which `looked` have been.
    Pause PauseBefore(std::uint32_t looked) noexcept;

    /// How many times to look in this wait.
    std::uint32_t Begin() noexcept;
    void Succeeded(std::uint32_t looked) noexcept;
    void Failed() noexcept;
};

extern constinit thread_local SpinBudget t_spinBudget __attribute__((tls_model("initial-exec")));
} // namespace tarvo::kernel
