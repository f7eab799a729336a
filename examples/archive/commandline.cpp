#include "commandline.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>
#include <array>

namespace archive
{
namespace
{
/// What there is to know about a command.
struct Description
{
    Command command;
    const WCHAR* name;
    std::size_t minimumOperands;
    std::size_t maximumOperands;
    std::vector<const WCHAR*> options; ///< Beside those of every command.
    const char* help;
};

constexpr const char* commonHelp = R"(
  -q, --quiet          say nothing but what goes wrong, and show no progress
  -v, --verbose        note every exception on standard error as it is raised
      --filter REGEX   with --verbose: only those in whose class name the
                       expression is found
  -h, --help           show this text

Exit codes: 0 done; 1 wrong usage, or something could not be read or written;
2 the archive is damaged or not fit to be unpacked; 130 interrupted.)";

constexpr const char* generalHelp = R"(Stores files and folders in an archive in which every byte has a checksum.

  tarvo-archive pack ARCHIVE PATH...     make an archive of files and folders
  tarvo-archive list ARCHIVE             show what is in an archive
  tarvo-archive verify ARCHIVE...        check every byte of archives
  tarvo-archive unpack ARCHIVE FOLDER    make the files and folders again
  tarvo-archive COMMAND --help           show how to use a command
  tarvo-archive --version                show the version

Exit codes: 0 done; 1 wrong usage, or something could not be read or written;
2 the archive is damaged or not fit to be unpacked; 130 interrupted.)";

constexpr const char* packHelp = R"(tarvo-archive pack ARCHIVE PATH...

Stores files, folders with all that is in them, and symbolic links. Paths are
stored without a root and without "." and "..". What is none of these, such as
a socket or a device, is noted and passed over, as is the archive itself.

The archive appears under its name when it is complete and on the disk; until
then one that is there already stays as it is. A file that can't be read, or
that changes while it is read, is a reason to make no archive.

      --no-flush       don't wait until the archive is on the disk)";

constexpr const char* listHelp = R"(tarvo-archive list ARCHIVE

Shows the kind and the permissions, the size, the time of the last change in
UTC and the path of everything in the archive, and where links lead. What is
shown has been checked; the contents of files have not, see verify.)";

constexpr const char* verifyHelp = R"(tarvo-archive verify ARCHIVE...

Checks every byte of each archive. A damaged one is noted together with the
record that is damaged, the class of the exception that found it, and its
error code.)";

constexpr const char* unpackHelp = R"(tarvo-archive unpack ARCHIVE FOLDER

Makes what is in the archive again in the folder, which is made if need be.
The whole archive is verified first: of a damaged one, or of one with a path
that leads out of the folder, nothing is unpacked. Nothing is written by way of
links that are in the folder. Files appear when they are complete. Of their
permissions those to read, write and execute are set.

      --force          replace files and links that are there already, and set
                       permissions and times of folders that are)";

const std::array<Description, 4>& descriptions()
{
    static const std::array<Description, 4> all = {{
        {Command::pack, CK_T("pack"), 2, ~std::size_t{0}, {CK_T("--no-flush")}, packHelp},
        {Command::list, CK_T("list"), 1, 1, {}, listHelp},
        {Command::verify, CK_T("verify"), 1, ~std::size_t{0}, {}, verifyHelp},
        {Command::unpack, CK_T("unpack"), 2, 2, {CK_T("--force")}, unpackHelp},
    }};
    return all;
}

[[noreturn]] void raiseUsage(unsigned int line, const CString& text)
{
    throw ArchiveException(CK_SOURCE_FILE, line, text + CK_T("; see tarvo-archive --help"));
}

CString quoted(const CString& argument)
{
    return CK_T("\"") + CString::FromUtf8(makePrintable(argument)) + CK_T("\"");
}

/// Turns the arguments of one command into its settings, from the first to the last.
class Parser
{
public:
    Parser(const Description& description, const std::vector<CString>& arguments, CommandLine& result)
        : m_description(description), m_arguments(arguments), m_result(result)
    {
    }

    void Parse()
    {
        bool areOptionsOver = false;
        for (m_position = 1; m_position < m_arguments.size(); ++m_position)
        {
            const CString& argument = m_arguments[m_position];
            const bool isOption = !areOptionsOver && argument.GetLength() > 1 && argument[0] == CK_T('-');
            if (!isOption)
                m_result.operands.push_back(argument);
            else if (argument == CK_T("--"))
                areOptionsOver = true;
            else
                parseOption(argument);
        }
    }

private:
    void parseOption(const CString& option)
    {
        const CString filter = CK_T("--filter");
        if (option == CK_T("-q") || option == CK_T("--quiet"))
            m_result.quiet = true;
        else if (option == CK_T("-v") || option == CK_T("--verbose"))
            m_result.verbose = true;
        else if (option == CK_T("-h") || option == CK_T("--help"))
            m_result.command = Command::help;
        else if (option == filter && m_position + 1 < m_arguments.size())
            m_result.filter = m_arguments[++m_position];
        else if (option.Left(filter.GetLength() + 1) == filter + CK_T("="))
            m_result.filter = option.Mid(filter.GetLength() + 1);
        else if (!parseOwnOption(option))
            raiseUsage(__LINE__, m_description.name + CString(CK_T(": there is no option ")) + quoted(option) +
                                     (option == filter ? CK_T(" without an expression") : CK_T("")));
    }

    bool parseOwnOption(const CString& option)
    {
        const auto& own = m_description.options;
        if (std::none_of(own.begin(), own.end(), [&option](const WCHAR* known) { return option == known; }))
            return false;
        m_result.force = m_result.force || option == CK_T("--force");
        m_result.flush = m_result.flush && option != CK_T("--no-flush");
        return true;
    }

    const Description& m_description;
    const std::vector<CString>& m_arguments;
    CommandLine& m_result;
    std::size_t m_position = 0;
};
} // namespace

CommandLine parseCommandLine(const std::vector<CString>& arguments)
{
    CommandLine result;
    result.help = generalHelp;
    if (arguments.empty())
        raiseUsage(__LINE__, CK_T("no command is given"));
    const CString& first = arguments[0];
    if (first == CK_T("--help") || first == CK_T("-h") || first == CK_T("help"))
        return result;
    if (first == CK_T("--version"))
    {
        result.command = Command::version;
        return result;
    }
    const auto& all = descriptions();
    const auto found =
        std::find_if(all.begin(), all.end(), [&first](const Description& one) { return first == one.name; });
    if (found == all.end())
        raiseUsage(__LINE__, CK_T("there is no command ") + quoted(first));
    result.command = found->command;
    result.help = std::string(found->help) + commonHelp;
    Parser(*found, arguments, result).Parse();
    const std::size_t count = result.operands.size();
    if (result.command != Command::help && (count < found->minimumOperands || count > found->maximumOperands))
        raiseUsage(__LINE__, found->name + CString(CK_T(": too ")) +
                                 (count < found->minimumOperands ? CK_T("few") : CK_T("many")) + CK_T(" arguments"));
    const auto isEmpty = [](const CString& operand) { return operand.IsEmpty(); };
    if (std::any_of(result.operands.begin(), result.operands.end(), isEmpty))
        raiseUsage(__LINE__, found->name + CString(CK_T(": a path is empty")));
    return result;
}
} // namespace archive
