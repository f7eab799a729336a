#pragma once

#include <tarvo/config.h>

#include <atomic>

#if !defined(_WIN32)
#    include <cerrno>
#    include <cstdlib>
#    include <dlfcn.h>
#    include <pthread.h>
#endif

// Makes the system refuse threads and memory now and then. For a program of one source file, as it replaces functions of
// the C and C++ libraries for all of the process. On Windows nothing is refused: there a library calls its own.

namespace refusals
{
/// Whether the running thread may be refused something.
inline thread_local bool t_enabled = false;

inline std::atomic<unsigned int> g_asked{0};
inline std::atomic<unsigned int> g_refused{0};

/// One request in eight, spread evenly.
inline bool isRefused() noexcept
{
    if (!t_enabled)
        return false;
    unsigned int mix = ++g_asked * 0x9E3779B9u;
    mix = (mix ^ mix >> 15) * 0x85EBCA6Bu;
    if ((mix ^ mix >> 13) % 8 != 0)
        return false;
    ++g_refused;
    return true;
}

/// Enables refusals for its scope.
struct Scope
{
    Scope() { t_enabled = true; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { t_enabled = false; }
};

/// Disables them within the scope of another one.
struct Pause
{
    Pause() : m_before(t_enabled) { t_enabled = false; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
    ~Pause() { t_enabled = m_before; }

private:
    const bool m_before;
};
} // namespace refusals

#if !defined(_WIN32)

extern "C" TARVO_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                           void* argument) noexcept
{
    static const auto next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return refusals::isRefused() ? EAGAIN : next(thread, attributes, start, argument);
}

// The sanitizers have heaps of their own.
#    if !TARVO_ADDRESS_SANITIZER && !TARVO_THREAD_SANITIZER

extern "C" void* __libc_malloc(std::size_t size);

extern "C" TARVO_EXPORT void* malloc(std::size_t size) noexcept
{
    return refusals::isRefused() ? nullptr : __libc_malloc(size);
}

#    endif

#endif
