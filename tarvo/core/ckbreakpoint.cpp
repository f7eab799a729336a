#include <tarvo/core/ckbreakpoint.h>

#include <tarvo/platform/breakpoint.h>

void CkBreakPoint::Break()
{
    tarvo::platform::breakHere();
}

void CkBreakPoint::BreakIf(bool condition)
{
    if (condition)
        tarvo::platform::breakHere();
}
