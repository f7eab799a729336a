#include <tarvo/platform/kernel/osrelease.h>

#include <algorithm>
#include <string>

namespace
{
/// A word of the shell, as far as such files may use its language.
std::string unquoted(std::string_view word)
{
    std::string text;
    char quote = 0;
    for (std::size_t i = 0; i < word.size(); ++i)
    {
        const char character = word[i];
        if (quote == 0 && (character == '"' || character == '\''))
            quote = character;
        else if (quote != 0 && character == quote)
            quote = 0;
        else if (quote == 0 && (character == ' ' || character == '\t' || character == '\r'))
            break;
        else if (character == '\\' && quote != '\'' && i + 1 < word.size())
            text += word[++i];
        else
            text += character;
    }
    return text;
}
} // namespace

CString tarvo::kernel::prettyName(std::string_view osRelease)
{
    constexpr std::string_view key = "PRETTY_NAME=";
    std::string_view value;
    while (!osRelease.empty())
    {
        const std::string_view line = osRelease.substr(0, osRelease.find('\n'));
        if (line.starts_with(key))
            value = line.substr(key.size());
        osRelease.remove_prefix(std::min(line.size() + 1, osRelease.size()));
    }
    return CString::FromUtf8(unquoted(value));
}
