// tarvo-archive: stores files and folders in an archive, lists, verifies and unpacks it. An example of how a program
// uses the library; main.cpp has what every such program needs, commands.h leads to the rest.

#include "commands.h"
#include "console.h"
#include "names.h"
#include "platform.h"

#include <new>
#include <regex>

namespace archive
{
namespace
{
ExitCode run(const CommandLine& commandLine)
{
    if (commandLine.verbose)
        noteExceptions(commandLine.filter);
    switch (commandLine.command)
    {
    case Command::help: print(commandLine.help); break;
    case Command::version:
        print("tarvo-archive " + std::to_string(TARVO_VERSION_MAJOR) + "." + std::to_string(TARVO_VERSION_MINOR) + "." +
              std::to_string(TARVO_VERSION_PATCH));
        break;
    case Command::pack: pack(commandLine); break;
    case Command::list: list(commandLine); break;
    case Command::verify: return verify(commandLine);
    case Command::unpack: unpack(commandLine); break;
    }
    return exitDone;
}

/// Notes what is being handled, whatever it is.
ExitCode noteFailure(const CString& prefix)
{
    try
    {
        throw;
    }
    catch (const ArchiveException& exception)
    {
        note(exception.GetExitCode() == exitDamaged ? prefix + describe(exception) : describe(exception));
        return exception.GetExitCode();
    }
    catch (const CkException& exception)
    {
        note(describe(exception));
    }
    catch (CException* exception)
    {
        // The framework raises this one alone, for want of memory.
        exception->Delete();
        note(CK_T("there is not enough memory"));
    }
    catch (const std::regex_error&)
    {
        note(CK_T("the expression of --filter is none"));
    }
    catch (const std::bad_alloc&)
    {
        note(CK_T("there is not enough memory"));
    }
    catch (const std::exception& exception)
    {
        note(CString(exception.what()));
    }
    return exitFailed;
}

ExitCode runGuarded(int argc, char** argv)
{
    CString prefix;
    try
    {
        const CommandLine commandLine = parseCommandLine(platform::getArguments(argc, argv));
        if (!commandLine.operands.empty())
            prefix = CString::FromUtf8(makePrintable(commandLine.operands[0])) + CK_T(": ");
        const ExitCode result = run(commandLine);
        finishPrinting();
        return result;
    }
    catch (...)
    {
        return noteFailure(prefix);
    }
}
} // namespace
} // namespace archive

int main(int argc, char** argv)
{
    archive::platform::prepareProcess();
    archive::platform::catchInterrupts();
    const CkThreadPoolShutdown shutdown;
    return archive::runGuarded(argc, argv);
}
