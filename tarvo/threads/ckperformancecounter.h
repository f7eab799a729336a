#pragma once

#include <tarvo/config.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/platform/kernel/kernel.h>

class CkPerformanceCounter;
extern template class TARVO_API CkSingleton<CkPerformanceCounter>;

/// The library's one source of time: the system's performance counter, or its millisecond ticks where it has none.
///
/// Threads: every operation may be called from any thread; nothing changes once the instance exists. Takes no lock.
/// Lifetime: made by whoever asks for the instance first, destroyed when the library is unloaded.
/// Failure: nothing raises. The millisecond ticks wrap after 49.7 days.
class TARVO_API CkPerformanceCounter : public CkSingleton<CkPerformanceCounter>
{
public:
    CkPerformanceCounter(const CkPerformanceCounter&) = delete;
    CkPerformanceCounter& operator=(const CkPerformanceCounter&) = delete;
    ~CkPerformanceCounter();

    /// Ticks since some moment that stays the same while the process runs.
    long long QueryPerformanceCounter() const { return (this->*m_reader)(); }

    /// Ticks in a second, more than 0.
    long long QueryPerformanceFrequency() const noexcept { return m_frequency; }

private:
    friend class CkSingleton<CkPerformanceCounter>;
    friend struct CkPerformanceCounterPeer;

    CkPerformanceCounter();

    long long getPerformanceCounterPC() const;
    long long getPerformanceCounterTC() const;

    long long (CkPerformanceCounter::*m_reader)() const;
    long long m_frequency = 1000;
};
