#pragma once

#include <tarvo/config.h>

#if !defined(_WIN32)
#    include <cstdlib>
#    include <ctime>
#    include <signal.h>
#    include <sys/wait.h>
#    include <unistd.h>
#endif

// For a program of one source file: in a child, what the threads of the parent held is no leak.
inline bool g_isForkedChild = false;

#if TARVO_ADDRESS_SANITIZER
extern "C" TARVO_EXPORT int __lsan_is_turned_off()
{
    return g_isForkedChild ? 1 : 0;
}
#endif

/// Runs `body` in a child of the process, which then exits with what it returns. That exit code, or -1 when the child was
/// ended by force because it took 20 seconds. Where there is no `fork`, 0.
template <class Body>
int runInForkedChild([[maybe_unused]] Body body)
{
#if defined(_WIN32)
    return 0;
#else
    const pid_t child = fork();
    if (child == 0)
    {
        g_isForkedChild = true;
        std::exit(body());
    }
    for (int tenths = 0; tenths < 200; ++tenths)
    {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        const timespec tenth{0, 100'000'000};
        nanosleep(&tenth, nullptr);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
#endif
}
