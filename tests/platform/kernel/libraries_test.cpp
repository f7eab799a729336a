#include <tarvo/platform/kernel/kernel.h>

#include <support/programfolder.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace
{
/// The call and the last error after it, 12345 when it left that alone.
template <class Call>
DWORD errorOf(Call call)
{
    SetLastError(12345);
    return call() ? DWORD{12345} : GetLastError();
}
} // namespace

TEST(KernelLibraries, say_why_they_are_not_loaded)
{
    const InProgramFolder folder;
    // In the working directory, under names that Windows reads as a path, too.
    std::ofstream("./not_a_library.dll") << "a text";
    struct Row
    {
        const char* what;
        const WCHAR* name;
        DWORD lastError;
    };
    const Row rows[] = {
        {"no such name", CK_T("tarvo_no_such_library.dll"), ERROR_MOD_NOT_FOUND},
        {"no such file", CK_T("./tarvo_no_such_library.dll"), ERROR_MOD_NOT_FOUND},
        {"no such folder", CK_T("./tarvo_no_such_folder/library.dll"), ERROR_MOD_NOT_FOUND},
        {"no library", CK_T("./not_a_library.dll"), ERROR_BAD_EXE_FORMAT},
        {"null", nullptr, ERROR_INVALID_PARAMETER},
        {"beside the program", CK_T("tarvo_shared.dll"), 12345},
        {"without extension", CK_T("tarvo_shared"), 12345},
        {"other case", CK_T("tarvo_shared.DLL"), 12345},
        {"a path", CK_T("./tarvo_shared.dll"), 12345},
        {"one that needs another", CK_T("./diagnostics/dependent/Vistrel.dll"), ERROR_MOD_NOT_FOUND},
        {"that other", CK_T("./diagnostics/needed.dll"), 12345},
    };
    for (const Row& row : rows)
        EXPECT_EQ(errorOf([&row] { return LoadLibraryW(row.name) != nullptr; }), row.lastError) << row.what;
    std::filesystem::remove("./not_a_library.dll");
}

TEST(KernelLibraries, find_what_they_export)
{
    const InProgramFolder folder;
    const HMODULE library = LoadLibraryW(CK_T("./diagnostics/needed.dll"));
    ASSERT_NE(library, nullptr);
    struct Row
    {
        const char* what;
        HMODULE library;
        const char* name;
        DWORD lastError;
    };
    const Row rows[] = {
        {"a function", library, "needed", 12345},
        {"no such function", library, "no_such_function", ERROR_PROC_NOT_FOUND},
        {"other case", library, "Needed", ERROR_PROC_NOT_FOUND},
        {"no library", nullptr, "needed", ERROR_PROC_NOT_FOUND},
    };
    for (const Row& row : rows)
        EXPECT_EQ(errorOf([&row] { return GetProcAddress(row.library, row.name) != nullptr; }), row.lastError)
            << row.what;
}
