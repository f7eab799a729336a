#pragma once

#include <support/programfolder.h>

#include <string>

#if defined(_WIN32)
#    include <windows.h>
#else
#    include <dlfcn.h>
#endif

/// Modules that lie beside the running program, by name without prefix and extension.
namespace dynamiclibrary
{
#if defined(_WIN32)
inline constexpr const char* tarvo = "Tarvo";

inline void* load(const std::string& name)
{
    return reinterpret_cast<void*>(LoadLibraryA((name + ".dll").c_str()));
}

inline bool isLoaded(const std::string& name)
{
    return GetModuleHandleA((name + ".dll").c_str()) != nullptr;
}

inline void unload(void* module)
{
    FreeLibrary(static_cast<HMODULE>(module));
}

template <class Function>
Function* find(void* module, const char* symbol)
{
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), symbol)));
}

/// The module that `address` lies in.
inline void* moduleOf(const void* address)
{
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<const char*>(address), &module);
    return reinterpret_cast<void*>(module);
}
#else
inline constexpr const char* tarvo = "libTarvo";

inline void* moduleOf(const void* address)
{
    Dl_info info = {};
    dladdr(address, &info);
    return info.dli_fbase;
}

inline std::string pathOf(const std::string& name)
{
    return (programFolder() / (name + ".so")).string();
}

inline void* load(const std::string& name)
{
    return dlopen(pathOf(name).c_str(), RTLD_NOW | RTLD_LOCAL);
}

inline bool isLoaded(const std::string& name)
{
    void* const module = dlopen(pathOf(name).c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (module != nullptr)
        dlclose(module);
    return module != nullptr;
}

inline void unload(void* module)
{
    dlclose(module);
}

template <class Function>
Function* find(void* module, const char* symbol)
{
    return reinterpret_cast<Function*>(dlsym(module, symbol));
}
#endif
} // namespace dynamiclibrary
