#include <tarvo/platform/kernel/linux/libraries.h>

#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/framework/cstring.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <limits.h>
#include <link.h>
#include <string>
#include <unistd.h>
#include <vector>

/// The header of this library, put there by the linker.
extern const ElfW(Ehdr) __ehdr_start __attribute__((visibility("hidden")));

namespace
{
std::nullptr_t fail(DWORD code) noexcept
{
    SetLastError(code);
    return nullptr;
}

/// The names under which a library is looked for: the one that is asked for, and those that this system gives to such.
std::vector<std::string> candidatesFor(const std::string& name)
{
    constexpr std::string_view suffix = ".dll";
    const std::size_t fileAt = name.rfind('/') + 1;
    std::string stem = name.substr(fileAt);
    if (CString::FromUtf8(stem).MakeLower().Right(4) == CK_T(".dll"))
        stem.resize(stem.size() - suffix.size());
    const std::string folder = name.substr(0, fileAt);
    return {name, folder + "lib" + stem + ".so", folder + stem + ".so"};
}

std::string programFolder()
{
    std::array<char, PATH_MAX> path;
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    const std::string program(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return program.substr(0, program.rfind('/') + 1);
}

bool exists(const std::string& path) noexcept
{
    return access(path.c_str(), F_OK) == 0;
}

/// The folders of the standard order that the loader tells of; it keeps to itself what its cache knows.
std::vector<std::string> standardFolders()
{
    std::vector<std::string> folders;
    Dl_info own;
    link_map* map = nullptr;
    if (dladdr1(&__ehdr_start, &own, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0)
        return folders;
    Dl_serinfo size;
    if (dlinfo(map, RTLD_DI_SERINFOSIZE, &size) != 0)
        return folders;
    std::vector<std::max_align_t> memory(size.dls_size / sizeof(std::max_align_t) + 1);
    auto* const info = reinterpret_cast<Dl_serinfo*>(memory.data());
    if (dlinfo(map, RTLD_DI_SERINFOSIZE, info) != 0 || dlinfo(map, RTLD_DI_SERINFO, info) != 0)
        return folders;
    for (unsigned int i = 0; i < info->dls_cnt; ++i)
        folders.push_back(std::string(info->dls_serpath[i].dls_name) + "/");
    return folders;
}

/// Why a file could not be loaded. Where it begins as libraries for this process do, one that it needs is missing.
DWORD errorOfFile(const std::string& path) noexcept
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_MOD_NOT_FOUND;
    ElfW(Ehdr) header{};
    const ssize_t length = read(file, &header, sizeof header);
    const bool readable = length >= 0;
    const off_t size = lseek(file, 0, SEEK_END);
    close(file);
    if (!readable)
        return ERROR_ACCESS_DENIED;
    const bool fits = length == sizeof header && std::memcmp(header.e_ident, __ehdr_start.e_ident, EI_OSABI) == 0 &&
                      header.e_type == ET_DYN && header.e_machine == __ehdr_start.e_machine &&
                      header.e_phentsize == sizeof(ElfW(Phdr)) && size > 0 &&
                      header.e_phoff < static_cast<ElfW(Off)>(size) &&
                      header.e_phnum <= (static_cast<ElfW(Off)>(size) - header.e_phoff) / sizeof(ElfW(Phdr));
    return fits ? ERROR_MOD_NOT_FOUND : ERROR_BAD_EXE_FORMAT;
}

void* open(const std::string& path)
{
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

/// Loads a file that is there.
HMODULE loadFile(const std::string& path)
{
    void* const library = open(path);
    return library != nullptr ? library : fail(errorOfFile(path));
}

HMODULE loadFromStandardFolders(const std::vector<std::string>& candidates)
{
    for (const std::string& candidate : candidates)
    {
        if (void* const library = open(candidate))
            return library;
    }
    for (const std::string& folder : standardFolders())
    {
        for (const std::string& candidate : candidates)
        {
            if (exists(folder + candidate))
                return fail(errorOfFile(folder + candidate));
        }
    }
    return fail(ERROR_MOD_NOT_FOUND);
}

HMODULE load(const std::string& name)
{
    const std::vector<std::string> candidates = candidatesFor(name);
    const bool isPath = name.find('/') != std::string::npos;
    const std::string folder = isPath ? std::string() : programFolder();
    for (const std::string& candidate : candidates)
    {
        if (exists(folder + candidate))
            return loadFile(folder + candidate);
    }
    return isPath ? fail(ERROR_MOD_NOT_FOUND) : loadFromStandardFolders(candidates);
}
} // namespace

HMODULE LoadLibraryW(LPCWSTR name) noexcept
try
{
    if (name == nullptr || *name == 0)
        return fail(ERROR_INVALID_PARAMETER);
    return load(CString(name).ToUtf8());
}
catch (...)
{
    tarvo::framework::discardException();
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

FARPROC GetProcAddress(HMODULE library, LPCSTR name) noexcept
{
    // For the loader null is no library but all of them.
    void* const address = library != nullptr ? dlsym(library, name) : nullptr;
    if (address == nullptr)
        return fail(ERROR_PROC_NOT_FOUND);
    return reinterpret_cast<FARPROC>(address);
}

int MessageBoxW(HWND, LPCWSTR text, LPCWSTR caption, UINT) noexcept
try
{
    const std::string line = CString(caption).ToUtf8() + ": " + CString(text).ToUtf8() + "\n";
    std::fputs(line.c_str(), stderr);
    return IDOK;
}
catch (...)
{
    tarvo::framework::discardException();
    return 0;
}
