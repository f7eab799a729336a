#include <tarvo/core/cksingleton.h>

namespace
{
constinit int g_singletonCounter = 0;
}

void IncrementSingletonCounter(const CString&)
{
    ++g_singletonCounter;
}

void DecrementSingletonCounter(const CString&)
{
    --g_singletonCounter;
}

bool IsStaticInit()
{
    return false;
}
