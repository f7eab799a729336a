#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>

// The C and C++ run-times leave out interlocked operations while a process has one thread only: in std::shared_ptr, in
// their mutexes and in the heap. A program that shares objects has more, so here is always a second one, asleep.

namespace
{
void sleepUntilStopped(std::stop_token stop)
{
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait(lock, stop, [] { return false; });
}

const std::jthread secondThread(&sleepUntilStopped);
} // namespace
