#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/threads/ckperformancecounter.h>

/// A stopwatch that adds up the periods during which it runs.
///
/// Time is kept in ticks of the performance counter and converted, truncated, to units of the timer's resolution where
/// it is read; no intermediate result wraps, and a result that 64 bits cannot hold is the largest that they can. A
/// resolution of 0 units per second reads 0.
///
/// Threads: a timer is for one thread at a time.
/// Lifetime: a value; the timer's counter stays until the library is unloaded.
/// Failure: only the first use of the counter and the text can fail, as allocation does.
///
/// | state   | Start   | Stop                         | Reset                | GetElapsedTime                    |
/// |---------|---------|------------------------------|----------------------|-----------------------------------|
/// | stopped | running | -                            | nothing has elapsed  | all finished periods              |
/// | running | -       | stopped; the period is added | runs on from nothing | all finished periods and this one |
class TARVO_API CkTimer
{
public:
    /// Units per second; any other number of them will do as well.
    enum EResolution : unsigned int
    {
        eResolutionSeconds = 1,
        eResolutionMilliseconds = 1000,
        eResolutionMicroseconds = 1000000,
        eResolutionNanoseconds = 1000000000
    };

    CkTimer(EResolution resolution = eResolutionMilliseconds);

    void Start();
    void Stop();
    void Reset();

    bool IsRunning() const noexcept { return m_running; }

    unsigned __int64 GetElapsedTime() const
    {
        const unsigned __int64 ticks = elapsedTicks();
        // Inline for the counter that counts nanoseconds: calls and divisions by variables would add to a reading what
        // is a good part of it.
        if (m_counter->QueryPerformanceFrequency() == eResolutionNanoseconds)
        {
            switch (m_resolution)
            {
            case eResolutionSeconds: return ticks / 1000000000;
            case eResolutionMilliseconds: return ticks / 1000000;
            case eResolutionMicroseconds: return ticks / 1000;
            case eResolutionNanoseconds: return ticks;
            }
        }
        return unitsOf(ticks);
    }

    /// Takes `amount` units from the running period. What exceeds the elapsed time is owed: the timer reads 0 until it
    /// has run as long, or until `Stop` or `Reset` waives the rest. Means nothing to a stopped timer, nor to one of
    /// resolution 0.
    void Subtract(unsigned __int64 amount);

    /// Concerns what has elapsed already, too.
    void SetResolution(EResolution resolution) noexcept { m_resolution = resolution; }
    EResolution GetResolution() const noexcept { return m_resolution; }

    /// The value in groups of three digits with apostrophes between them, and the unit: "1'234ms". A resolution without
    /// a name has no unit.
    static CString GetFormatted(unsigned __int64 value, EResolution resolution);
    static CString GetFormatted(const CkTimer& timer);

private:
    friend struct CkTimerPeer;

    unsigned __int64 now() const { return static_cast<unsigned __int64>(m_counter->QueryPerformanceCounter()); }

    unsigned __int64 elapsedTicks() const
    {
        if (!m_running)
            return m_accumulated;
        const auto ticks = static_cast<long long>(m_accumulated + (now() - m_start));
        return ticks > 0 ? static_cast<unsigned __int64>(ticks) : 0;
    }

    unsigned __int64 unitsOf(unsigned __int64 ticks) const;

    CkPerformanceCounter* m_counter;
    EResolution m_resolution;
    bool m_running = false;
    unsigned __int64 m_start = 0; ///< At most 2^63 - 1, so that what is owed is a negative number of 64 bits.
    unsigned __int64 m_accumulated = 0;
};
