#include <tarvo/threads/ckperformancecounter.h>

template class CkSingleton<CkPerformanceCounter>;

CkPerformanceCounter::CkPerformanceCounter() : m_reader(&CkPerformanceCounter::getPerformanceCounterTC)
{
    LARGE_INTEGER frequency{};
    if (!::QueryPerformanceFrequency(&frequency))
        return;
    m_reader = &CkPerformanceCounter::getPerformanceCounterPC;
    m_frequency = frequency.QuadPart;
}

CkPerformanceCounter::~CkPerformanceCounter() = default;

long long CkPerformanceCounter::getPerformanceCounterPC() const
{
    LARGE_INTEGER count{};
    ::QueryPerformanceCounter(&count);
    return count.QuadPart;
}

long long CkPerformanceCounter::getPerformanceCounterTC() const
{
    return GetTickCount();
}
