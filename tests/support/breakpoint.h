#pragma once

#include <functional>

#if defined(_WIN32)
#    include <windows.h>
#else
#    include <csignal>
#endif

/// How many breakpoint traps `action` runs into; each is passed over.
class BreakPoints
{
public:
    static int CountIn(const std::function<void()>& action)
    {
        s_count = 0;
#if defined(_WIN32)
        void* const handler = AddVectoredExceptionHandler(1, &passOver);
        action();
        RemoveVectoredExceptionHandler(handler);
#else
        const auto before = std::signal(SIGTRAP, [](int) { s_count = s_count + 1; });
        action();
        std::signal(SIGTRAP, before);
#endif
        return s_count;
    }

private:
#if defined(_WIN32)
    static LONG CALLBACK passOver(EXCEPTION_POINTERS* pointers)
    {
        if (pointers->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
            return EXCEPTION_CONTINUE_SEARCH;
        s_count = s_count + 1;
        ++pointers->ContextRecord->Rip;
        return EXCEPTION_CONTINUE_EXECUTION;
    }
#endif

    static inline volatile int s_count = 0;
};
