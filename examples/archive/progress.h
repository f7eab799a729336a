#pragma once

#include <tarvo/tarvo.h>

#include <atomic>
#include <string>

namespace archive
{
/// How far the program is, shown on a terminal and nowhere else: a bar, bytes, rate and the time that is left.
///
/// Threads: `SetTotal` from any; the rest for one at a time.
class Progress
{
public:
    /// Does nothing unless it is `shown` and there is a terminal.
    Progress(const CString& title, bool shown);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    bool IsShown() const noexcept { return m_shown; }

    /// The number of bytes when all is done; until it is known, neither a bar nor the time that is left is shown.
    void SetTotal(unsigned __int64 total) noexcept { m_total.store(total, std::memory_order_relaxed); }

    /// So many more bytes are done.
    void Add(unsigned __int64 bytes);

    unsigned __int64 GetDone() const noexcept { return m_done; }
    const CkTimer& GetTimer() const noexcept { return m_timer; }

private:
    void show();

    const std::string m_title;
    const bool m_shown;
    CkTimer m_timer{CkTimer::eResolutionMilliseconds};
    std::atomic<unsigned __int64> m_total{0};
    unsigned __int64 m_done = 0;
    unsigned __int64 m_nextMs = 0;
};

/// Prints the line that a command ends in: so many entries of an archive have been `packed`, or what `done` says.
void printSummary(const CString& archivePath, unsigned __int64 entryCount, const char* done, const Progress& progress);

/// A number of bytes for people: "12.3 MiB".
std::string formatSize(unsigned __int64 bytes);
} // namespace archive
