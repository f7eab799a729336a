#include <tarvo/threads/cktimer.h>

#include <tarvo/core/ckformat.h>
#include <tarvo/threads/detail/scale.h>

#include <algorithm>

namespace
{
constexpr unsigned __int64 latestStart = 0x7FFFFFFFFFFFFFFFull;

const WCHAR* unitOf(CkTimer::EResolution resolution)
{
    switch (resolution)
    {
    case CkTimer::eResolutionSeconds: return CK_T("s");
    case CkTimer::eResolutionMilliseconds: return CK_T("ms");
    case CkTimer::eResolutionMicroseconds: return CK_T("\u00B5s");
    case CkTimer::eResolutionNanoseconds: return CK_T("ns");
    default: return CK_T("");
    }
}
} // namespace

CkTimer::CkTimer(EResolution resolution)
    : m_counter(&CkSingleton<CkPerformanceCounter>::GetInstance()), m_resolution(resolution)
{
}

void CkTimer::Start()
{
    if (m_running)
        return;
    m_start = now();
    m_running = true;
}

void CkTimer::Stop()
{
    if (!m_running)
        return;
    m_accumulated = elapsedTicks();
    m_running = false;
}

void CkTimer::Reset()
{
    m_accumulated = 0;
    m_start = now();
}

unsigned __int64 CkTimer::unitsOf(unsigned __int64 ticks) const
{
    return tarvo::detail::scale(ticks, m_resolution,
                                static_cast<unsigned __int64>(m_counter->QueryPerformanceFrequency()));
}

void CkTimer::Subtract(unsigned __int64 amount)
{
    if (m_resolution == 0)
        return;
    const auto frequency = static_cast<unsigned __int64>(m_counter->QueryPerformanceFrequency());
    const unsigned __int64 ticks = tarvo::detail::scale(amount, frequency, m_resolution);
    m_start += std::min(ticks, latestStart - m_start);
}

CString CkTimer::GetFormatted(unsigned __int64 value, EResolution resolution)
{
    CString digits = CkFormat(CK_T("%llu"), value);
    CString result;
    while (digits.GetLength() >= 4)
    {
        result = CK_T("'") + digits.Right(3) + result;
        digits = digits.Left(digits.GetLength() - 3);
    }
    return digits + result + unitOf(resolution);
}

CString CkTimer::GetFormatted(const CkTimer& timer)
{
    return GetFormatted(timer.GetElapsedTime(), timer.GetResolution());
}
