#include "platform_module.h"

#include <stdexcept>

#if defined(_WIN32)
#    include <tarvo/core/cklatesterror.h>
#else
#    include <dlfcn.h>
#    include <filesystem>
#endif

#if defined(_WIN32)
Module::Module(const std::string& name) : m_handle(LoadLibraryA((name + ".dll").c_str()))
{
    const CkLatestError error;
    if (m_handle == nullptr)
        throw std::runtime_error(name + ": " + error.GetLatestErrorMessage().ToUtf8());
}

Module::~Module()
{
    FreeLibrary(static_cast<HMODULE>(m_handle));
}
#else
Module::Module(const std::string& name)
{
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    m_handle = dlopen((folder / (name + ".so")).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_handle == nullptr)
        throw std::runtime_error(dlerror());
}

Module::~Module()
{
    dlclose(m_handle);
}
#endif
