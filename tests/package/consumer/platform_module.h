#pragma once

#include <tarvo/tarvo.h>

#include <string>

#if !defined(_WIN32)
#    include <dlfcn.h>
#endif

/// A module that is loaded as long as the object lives.
class Module
{
public:
#if defined(_WIN32)
    explicit Module(const std::string& path) : m_module(LoadLibraryW(CString(path.c_str()).GetString())) {}
    ~Module() { FreeLibrary(m_module); }
#else
    explicit Module(const std::string& path) : m_module(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~Module()
    {
        if (m_module != nullptr)
            dlclose(m_module);
    }
#endif

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    explicit operator bool() const { return m_module != nullptr; }

private:
    const HMODULE m_module;
};
