// tarvo-info: what the library tells of itself and of the machine that it runs on.

#include "platform_console.h"
#include "report.h"
#include "writers.h"

#include <tarvo/tarvo.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

namespace
{
constexpr int succeeded = 0;
constexpr int failed = 1;
constexpr int usedWrongly = 2;

constexpr const char* help = R"(Usage: tarvo-info [--json] [--type NAME]...

Prints what the Tarvo library tells of itself and of this machine: its version,
the machine record, the type records of its classes, and its singletons.

  --json        print one JSON object; what is not known is null
  --type NAME   also print what is registered under NAME; may be repeated
  --help        print this help
  --version     print the version of the library

Output is UTF-8. The exit code is 0, 1 after an error, 2 for wrong arguments.
)";

struct Options
{
    bool json = false;
    bool help = false;
    bool version = false;
    Texts types;
    std::string mistake; ///< What is wrong with the arguments; empty if nothing.
};

Options parse(int count, char** arguments)
{
    Options options;
    for (int i = 1; i < count && options.mistake.empty(); ++i)
    {
        const std::string_view argument = arguments[i];
        if (argument == "--json")
            options.json = true;
        else if (argument == "--help")
            options.help = true;
        else if (argument == "--version")
            options.version = true;
        else if (argument != "--type")
            options.mistake = "unknown argument '" + std::string(argument) + "'";
        else if (++i == count)
            options.mistake = "--type needs a name";
        else
            options.types.emplace_back(arguments[i]);
    }
    return options;
}

std::string outputOf(const Options& options)
{
    if (options.help)
        return help;
    if (options.version)
        return "tarvo-info " + libraryVersion() + '\n';
    TextWriter text;
    JsonWriter json;
    Writer& writer = options.json ? static_cast<Writer&>(json) : text;
    writeReport(writer, options.types);
    return writer.GetOutput();
}

int run(const Options& options)
{
    if (!options.mistake.empty())
    {
        std::fprintf(stderr, "tarvo-info: %s; see tarvo-info --help\n", options.mistake.c_str());
        return usedWrongly;
    }
    const std::string output = outputOf(options);
    if (std::fwrite(output.data(), 1, output.size(), stdout) != output.size() || std::fflush(stdout) != 0)
    {
        std::perror("tarvo-info: the output cannot be written");
        return failed;
    }
    return succeeded;
}
} // namespace

int main(int count, char** arguments)
{
    const Utf8Console console;
    try
    {
        return run(parse(count, arguments));
    }
    catch (const CkException& exception)
    {
        std::fprintf(stderr, "tarvo-info: %s\n", exception.ToString().ToUtf8().c_str());
    }
    catch (CException* exception)
    {
        exception->Delete();
        std::fputs("tarvo-info: out of memory\n", stderr);
    }
    catch (const std::exception& exception)
    {
        std::fprintf(stderr, "tarvo-info: %s\n", exception.what());
    }
    return failed;
}
