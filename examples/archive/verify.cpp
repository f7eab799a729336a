#include "commands.h"
#include "console.h"
#include "names.h"
#include "verifier.h"

#include <algorithm>

namespace archive
{
namespace
{
void verifyOne(const CString& path, bool quiet)
{
    ArchiveScanner scanner(path);
    Progress progress(CK_T("verifying"), !quiet);
    Verifier(scanner, progress, [](const FoundEntry&) {}).Verify();
    if (!quiet)
        printSummary(path, scanner.GetEntryCount(), "verified", progress);
}
} // namespace

ExitCode verify(const CommandLine& commandLine)
{
    ExitCode worst = exitDone;
    for (const CString& path : commandLine.operands)
    {
        try
        {
            verifyOne(path, commandLine.quiet);
        }
        catch (const DamageException& exception)
        {
            note(CString::FromUtf8(makePrintable(path)) + CK_T(": ") + describe(exception));
            worst = std::max(worst, exitDamaged);
        }
        catch (const InterruptException&)
        {
            throw;
        }
        catch (const ArchiveException& exception)
        {
            note(describe(exception));
            worst = std::max(worst, exitFailed);
        }
    }
    return worst;
}
} // namespace archive
