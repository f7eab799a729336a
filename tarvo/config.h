#pragma once

#include <bit>

// What differs between compilers, systems and kinds of build. Besides tarvo/platform/ this is the only file that asks
// which system it is compiled for.

// TARVO_API exports a class or function from the library and imports it into clients. TARVO_EXPORTS is defined while
// the library itself is compiled; TARVO_EXPORT and TARVO_IMPORT do the same for clients' own libraries. TARVO_HIDDEN
// keeps what a header defines to the module that includes it; TARVO_SHARED_TEMPLATE lets the modules of a process share
// the static members of a template.
#if defined(_WIN32)
#    define TARVO_EXPORT __declspec(dllexport)
#    define TARVO_IMPORT __declspec(dllimport)
#    define TARVO_HIDDEN
#    define TARVO_SHARED_TEMPLATE
#else
#    define TARVO_EXPORT __attribute__((visibility("default")))
#    define TARVO_IMPORT __attribute__((visibility("default")))
#    define TARVO_HIDDEN __attribute__((visibility("hidden")))
#    define TARVO_SHARED_TEMPLATE __attribute__((visibility("default")))
#endif

#if defined(TARVO_EXPORTS)
#    define TARVO_API TARVO_EXPORT
#else
#    define TARVO_API TARVO_IMPORT
#endif

// ThreadSanitizer knows atomic operations but neither fences nor barriers that the kernel makes.
#if defined(__SANITIZE_THREAD__)
#    define TARVO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#    if __has_feature(thread_sanitizer)
#        define TARVO_THREAD_SANITIZER 1
#    endif
#endif
#if !defined(TARVO_THREAD_SANITIZER)
#    define TARVO_THREAD_SANITIZER 0
#endif

#if defined(__SANITIZE_ADDRESS__)
#    define TARVO_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#    if __has_feature(address_sanitizer)
#        define TARVO_ADDRESS_SANITIZER 1
#    endif
#endif
#if !defined(TARVO_ADDRESS_SANITIZER)
#    define TARVO_ADDRESS_SANITIZER 0
#endif

// TARVO_CHECKED makes caller errors that a release build leaves unchecked trap with a message. It is on in debug and
// sanitizer builds and changes no layout, so checked clients may use a release library and the reverse.
#if !defined(TARVO_CHECKED)
#    if TARVO_ADDRESS_SANITIZER || TARVO_THREAD_SANITIZER || !defined(NDEBUG)
#        define TARVO_CHECKED 1
#    else
#        define TARVO_CHECKED 0
#    endif
#endif

static_assert(sizeof(void*) == 8, "Tarvo is a 64-bit library");
static_assert(std::endian::native == std::endian::little, "stored values are copied as they lie in memory");

namespace tarvo::detail
{
/// Writes `message` to standard error and ends the process at once. For `if (TARVO_CHECKED && …)`.
[[noreturn]] TARVO_API void trap(const char* message) noexcept;
} // namespace tarvo::detail
