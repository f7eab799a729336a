#pragma once

#include <tarvo/tarvo.h>

#include <string>
#include <vector>

namespace archive
{
enum class Command
{
    help,
    version,
    pack,
    list,
    verify,
    unpack
};

struct CommandLine
{
    Command command = Command::help;
    std::string help; ///< The text that was asked for.
    std::vector<CString> operands;
    bool quiet = false;
    bool verbose = false;
    bool force = false;
    bool flush = true;
    CString filter;
};

/// Raises an ArchiveException that says what is wrong with the arguments.
CommandLine parseCommandLine(const std::vector<CString>& arguments);
} // namespace archive
