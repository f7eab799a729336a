#include "progress.h"

#include "console.h"
#include "names.h"
#include "platform.h"

#include <algorithm>

namespace archive
{
namespace
{
constexpr unsigned __int64 intervalMs = 100;
constexpr unsigned int barWidth = 30;

std::string formatTime(unsigned __int64 seconds)
{
    const CString text = CkFormat(CK_T("%I64u:%02I64u:%02I64u"), seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text.ToUtf8();
}
} // namespace

std::string formatSize(unsigned __int64 bytes)
{
    constexpr const WCHAR* units[] = {CK_T("KiB"), CK_T("MiB"), CK_T("GiB"), CK_T("TiB"), CK_T("PiB"), CK_T("EiB")};
    if (bytes < 1024)
        return CString(CkFormat(CK_T("%u bytes"), static_cast<unsigned int>(bytes))).ToUtf8();
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; value >= 1000 && unit + 1 != std::size(units); ++unit)
        value /= 1024;
    return CString(CkFormat(CK_T("%.1f %s"), value, units[unit])).ToUtf8();
}

void printSummary(const CString& archivePath, unsigned __int64 entryCount, const char* done, const Progress& progress)
{
    print(makePrintable(archivePath) + ": " + std::to_string(entryCount) + (entryCount == 1 ? " entry " : " entries ") +
          done + ", " + formatSize(progress.GetDone()) + " in " + CkTimer::GetFormatted(progress.GetTimer()).ToUtf8());
}

Progress::Progress(const CString& title, bool shown) : m_title(title.ToUtf8()), m_shown(shown && platform::isTerminal())
{
    m_timer.Start();
}

Progress::~Progress()
{
    if (m_shown)
        showStatus("");
}

void Progress::Add(unsigned __int64 bytes)
{
    m_done += bytes;
    if (m_shown && m_timer.GetElapsedTime() >= m_nextMs)
        show();
}

void Progress::show()
{
    const unsigned __int64 elapsedMs = m_timer.GetElapsedTime();
    m_nextMs = elapsedMs + intervalMs;
    const unsigned __int64 total = m_total.load(std::memory_order_relaxed);
    const double rate =
        static_cast<double>(m_done) * 1000 / static_cast<double>(std::max<unsigned __int64>(elapsedMs, 1));
    std::string line = m_title + " ";
    if (total != 0)
    {
        const double part = std::min(1.0, static_cast<double>(m_done) / static_cast<double>(total));
        const auto filled = static_cast<std::size_t>(part * barWidth);
        line.append("[").append(filled, '#').append(barWidth - filled, '.').append("] ");
    }
    line += formatSize(m_done) + ", " + formatSize(static_cast<unsigned __int64>(rate)) + "/s";
    if (total > m_done && rate >= 1)
        line += ", " + formatTime(static_cast<unsigned __int64>(static_cast<double>(total - m_done) / rate)) + " left";
    showStatus(line);
}
} // namespace archive
