#include "console.h"

#include "exceptions.h"

#include <cstdio>

namespace archive
{
namespace
{
/// Guards the terminal's last line. Constant and never destroyed, so that what comes late does no harm.
constinit CkCriticalSection g_lock;
constinit bool g_hasStatus = false;

void clearStatus()
{
    if (g_hasStatus)
        std::fputs("\r\x1b[K", stderr);
    g_hasStatus = false;
}

void noteException(CkLogListenerManager::EEventType, const CString& fileName, unsigned int codeLine,
                   const CString& className)
{
    CkStreamWriteASCIIString text;
    text << CK_T("raised ") << className << CK_T(" at ") << fileName << CK_T("(") << codeLine << CK_T(")");
    note(text);
}
} // namespace

void note(const CString& text)
{
    const std::string line = "tarvo-archive: " + text.ToUtf8() + "\n";
    const CkCriticalSectionAuto guard(g_lock);
    clearStatus();
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr); // Wine buffers it where it leads to a pipe
}

void print(const std::string& line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

void finishPrinting()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw ArchiveException(CK_SOURCE_FILE, __LINE__, CK_T("standard output can't be written"));
}

void noteExceptions(const CString& expression)
{
    CkLogListenerManager::GetInstance().RegisterListener(CkLogListenerManager::eEventException, &noteException,
                                                         expression);
}

void showStatus(const std::string& line)
{
    const CkCriticalSectionAuto guard(g_lock);
    clearStatus();
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    g_hasStatus = !line.empty();
}
} // namespace archive
