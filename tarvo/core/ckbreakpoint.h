#pragma once

#include <tarvo/config.h>

/// Stops in the debugger. Without one the process ends as by any trap that nobody handles.
class TARVO_API CkBreakPoint
{
public:
    static void Break();
    static void BreakIf(bool condition);
};
