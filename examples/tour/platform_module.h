#pragma once

#include <string>

/// A module that lies beside the program, loaded as long as the object lives. `name` is that of the file without the
/// extension.
///
/// Failure: a module that cannot be loaded raises `std::runtime_error` with the system's words.
class Module
{
public:
    explicit Module(const std::string& name);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module();

private:
    void* m_handle;
};
