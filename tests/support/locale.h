#pragma once

#include <support/programfolder.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>

/// A locale with a decimal comma, as the program's own while this lives.
class CommaLocale
{
public:
    CommaLocale()
    {
        for (const char* const name : {"de_DE.UTF-8", "de-DE", "German_Germany"})
            m_set = m_set || std::setlocale(LC_ALL, name) != nullptr;
        m_set = m_set || make();
    }

    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    ~CommaLocale() { std::setlocale(LC_ALL, "C"); }

    bool IsSet() const { return m_set; }

private:
#if defined(_WIN32)
    static bool make() { return false; }
#else
    /// Compiles the locale beside the program, which needs no rights, from the definitions of the package `locales`.
    static bool make()
    {
        const std::string folder = programFolder().string();
        const std::string command = "localedef -i de_DE -f UTF-8 '" + folder + "/de_DE.UTF-8' >/dev/null 2>&1";
        if (!std::filesystem::exists(folder + "/de_DE.UTF-8") && std::system(command.c_str()) != 0)
            return false;
        setenv("LOCPATH", folder.c_str(), 1);
        return std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    }
#endif

    bool m_set = false;
};
