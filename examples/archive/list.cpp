#include "archivefile.h"
#include "commands.h"
#include "console.h"
#include "names.h"

#include <ctime>

namespace archive
{
namespace
{

/// "drwxr-xr-x", the way of Unix.
CString formatMode(const ArchiveEntry& entry)
{
    CString text(entry.IsKindOf(ArchiveFolder::RTTI) ? CK_T("d")
                 : entry.IsKindOf(ArchiveLink::RTTI) ? CK_T("l")
                                                     : CK_T("-"));
    for (int bit = 8; bit >= 0; --bit)
        text += (entry.permissions >> bit & 1) != 0 ? CString(CK_T("xwr")).GetAt(bit % 3) : CK_T('-');
    return text;
}

/// The date of a number of days since 1970, after the Gregorian calendar at all times (H. Hinnant's algorithm).
CString formatDate(__int64 days)
{
    const __int64 shifted = days + 719468;
    const __int64 era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const __int64 dayOfEra = shifted - era * 146097;
    const __int64 yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const __int64 dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const __int64 shiftedMonth = (5 * dayOfYear + 2) / 153; // March is 0
    const auto day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const auto month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    return CkFormat(CK_T("%04I64d-%02d-%02d"), yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day);
}

CString formatTime(const platform::Time& time)
{
    constexpr __int64 secondsPerDay = 86400;
    __int64 days = time.seconds / secondsPerDay;
    auto second = static_cast<int>(time.seconds % secondsPerDay);
    if (second < 0)
    {
        second += secondsPerDay;
        --days;
    }
    return formatDate(days) + CString(CkFormat(CK_T(" %02d:%02d:%02d"), second / 3600, second / 60 % 60, second % 60));
}

void printEntry(const ArchiveEntry& entry)
{
    const CString columns = formatMode(entry) + CString(CkFormat(CK_T(" %12I64u "), entry.GetSize())) +
                            formatTime(entry.modified) + CK_T(" ");
    std::string line = columns.ToUtf8() + makePrintable(entry.path);
    if (entry.IsKindOf(ArchiveLink::RTTI))
        line += " -> " + makePrintable(static_cast<const ArchiveLink&>(entry).target);
    print(line);
}
} // namespace

void list(const CommandLine& commandLine)
{
    ArchiveScanner scanner(commandLine.operands[0]);
    for (FoundEntry found; scanner.Next(found);)
    {
        if (platform::isInterrupted())
            throw InterruptException(CK_SOURCE_FILE, __LINE__);
        if (!commandLine.quiet)
            printEntry(*found.entry);
    }
}
} // namespace archive
