#pragma once

#include <filesystem>

#if defined(_WIN32)
#    include <windows.h>
#endif

/// The folder of the running program, where the tests' libraries and plug-ins lie.
inline std::filesystem::path programFolder()
{
#if defined(_WIN32)
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
#else
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
#endif
}

/// Makes the folder of the program the working directory while this lives.
class InProgramFolder
{
public:
    InProgramFolder() { std::filesystem::current_path(programFolder()); }
    InProgramFolder(const InProgramFolder&) = delete;
    InProgramFolder& operator=(const InProgramFolder&) = delete;
    ~InProgramFolder() { std::filesystem::current_path(m_before); }

private:
    const std::filesystem::path m_before = std::filesystem::current_path();
};
