#include "platform_console.h"

#ifdef _WIN32

#    include <tarvo/platform/kernel/kernel.h>

Utf8Console::Utf8Console() : m_before(GetConsoleOutputCP())
{
    SetConsoleOutputCP(CP_UTF8);
}

Utf8Console::~Utf8Console()
{
    if (m_before != 0)
        SetConsoleOutputCP(m_before);
}

#else

// Terminals show UTF-8 as it is.

Utf8Console::Utf8Console() : m_before(0) {}
Utf8Console::~Utf8Console() = default;

#endif
