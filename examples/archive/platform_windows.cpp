#include "platform.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

// A folder is a path here. Its handle is not used: nothing can be opened relative to one without going below Win32.

namespace archive::platform
{
namespace
{
constexpr unsigned int filePermissions = 0644;
constexpr unsigned int folderPermissions = 0755;
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

[[noreturn]] void raise(unsigned int line, const CString& path, const CString& what)
{
    const CkLatestError error;
    throw ArchiveException(CK_SOURCE_FILE, line,
                           CString::FromUtf8(makePrintable(path)) + CK_T(": ") + what + CK_T(": ") +
                               error.GetLatestErrorMessage());
}

HANDLE systemHandleOf(Handle handle)
{
    return reinterpret_cast<HANDLE>(handle);
}

Handle handleOf(HANDLE handle)
{
    return reinterpret_cast<Handle>(handle);
}

CString replaceAll(CString text, WCHAR from, WCHAR to)
{
    for (int i = 0; i < text.GetLength(); ++i)
    {
        if (text[i] == from)
            text.SetAt(i, to);
    }
    return text;
}

/// The absolute path in the form that knows no limit of 260 units and no special names.
CString fullPathOf(const CString& path)
{
    std::vector<WCHAR> buffer(MAX_PATH);
    DWORD length = GetFullPathNameW(path, static_cast<DWORD>(buffer.size()), buffer.data(), nullptr);
    if (length >= buffer.size())
    {
        buffer.resize(length);
        length = GetFullPathNameW(path, length, buffer.data(), nullptr);
    }
    if (length == 0)
        raise(__LINE__, path, CK_T("is no path"));
    const CString full(buffer.data(), static_cast<int>(length));
    if (full.Left(4) == CK_T("\\\\?\\") || full.Left(4) == CK_T("\\\\.\\"))
        return full;
    return full.Left(2) == CK_T("\\\\") ? CK_T("\\\\?\\UNC\\") + full.Mid(2) : CK_T("\\\\?\\") + full;
}

/// The same for something in a folder, whose name is taken as it is.
CString fullPathOf(const Folder& folder, const CString& name)
{
    const CString parent = fullPathOf(folder.GetPath());
    return parent[parent.GetLength() - 1] == CK_T('\\') ? parent + name : parent + CK_T("\\") + name;
}

constexpr __int64 ticksPerSecond = 10000000;
constexpr __int64 secondsFrom1601To1970 = 11644473600;

Time timeOf(const FILETIME& time)
{
    const auto ticks =
        static_cast<__int64>(static_cast<unsigned __int64>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
    return {ticks / ticksPerSecond - secondsFrom1601To1970,
            static_cast<unsigned int>(ticks % ticksPerSecond * (1000000000 / ticksPerSecond))};
}

/// Times that the system can't keep become the nearest that it can.
FILETIME fileTimeOf(const Time& time)
{
    constexpr __int64 maximumSeconds = 0x7FFFFFFFFFFFFFFF / ticksPerSecond - 1;
    const __int64 seconds = std::clamp(time.seconds, -secondsFrom1601To1970, maximumSeconds - secondsFrom1601To1970);
    const auto ticks = static_cast<unsigned __int64>((seconds + secondsFrom1601To1970) * ticksPerSecond +
                                                     time.nanoseconds / (1000000000 / ticksPerSecond));
    return {static_cast<DWORD>(ticks & 0xFFFFFFFF), static_cast<DWORD>(ticks >> 32)};
}

/// What leads elsewhere is neither a file nor a folder: links of whatever kind.
Kind kindOf(DWORD attributes)
{
    if ((attributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE)) != 0)
        return Kind::other;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? Kind::folder : Kind::file;
}

bool getStatus(HANDLE handle, Status& status)
{
    BY_HANDLE_FILE_INFORMATION found;
    if (GetFileInformationByHandle(handle, &found) == FALSE)
        return false;
    status.kind = GetFileType(handle) == FILE_TYPE_DISK ? kindOf(found.dwFileAttributes) : Kind::other;
    status.size =
        status.kind == Kind::file ? static_cast<unsigned __int64>(found.nFileSizeHigh) << 32 | found.nFileSizeLow : 0;
    status.permissions = status.kind == Kind::folder ? folderPermissions : filePermissions;
    status.modified = timeOf(found.ftLastWriteTime);
    status.device = found.dwVolumeSerialNumber;
    status.number = static_cast<unsigned __int64>(found.nFileIndexHigh) << 32 | found.nFileIndexLow;
    return true;
}

/// Opens a file, a folder or a link itself for its description.
File openDescription(const Folder* folder, const CString& fullPath, const CString& name, DWORD access)
{
    const HANDLE handle = CreateFileW(fullPath, access, shareAll, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    return File(handle == INVALID_HANDLE_VALUE ? noHandle : handleOf(handle), folder, name);
}

std::atomic<bool> g_interrupted{false};

BOOL WINAPI noteInterrupt(DWORD)
{
    // A second one goes on to the system's own handler, which ends the program.
    return g_interrupted.exchange(true, std::memory_order_relaxed) ? FALSE : TRUE;
}
} // namespace

File::~File()
{
    if (IsOpen())
        CloseHandle(systemHandleOf(m_handle));
}

Status File::GetStatus() const
{
    Status status;
    if (!getStatus(systemHandleOf(m_handle), status))
        raise(__LINE__, GetPath(), CK_T("can't be examined"));
    return status;
}

unsigned __int64 File::Read(void* data, unsigned __int64 size)
{
    unsigned __int64 done = 0;
    while (done < size)
    {
        DWORD count = 0;
        const auto asked = static_cast<DWORD>(std::min<unsigned __int64>(size - done, 1u << 30));
        if (ReadFile(systemHandleOf(m_handle), static_cast<char*>(data) + done, asked, &count, nullptr) == FALSE)
            raise(__LINE__, GetPath(), CK_T("can't be read"));
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

unsigned __int64 File::ReadAt(unsigned __int64 position, void* data, unsigned __int64 size) const
{
    unsigned __int64 done = 0;
    while (done < size)
    {
        const unsigned __int64 start = position + done;
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(start & 0xFFFFFFFF);
        place.OffsetHigh = static_cast<DWORD>(start >> 32);
        DWORD count = 0;
        const auto asked = static_cast<DWORD>(std::min<unsigned __int64>(size - done, 1u << 30));
        if (ReadFile(systemHandleOf(m_handle), static_cast<char*>(data) + done, asked, &count, &place) == FALSE &&
            GetLastError() != ERROR_HANDLE_EOF)
            raise(__LINE__, GetPath(), CK_T("can't be read"));
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

void File::Write(const void* data, unsigned __int64 size)
{
    unsigned __int64 done = 0;
    while (done < size)
    {
        DWORD count = 0;
        const auto asked = static_cast<DWORD>(std::min<unsigned __int64>(size - done, 1u << 30));
        if (WriteFile(systemHandleOf(m_handle), static_cast<const char*>(data) + done, asked, &count, nullptr) == FALSE)
            raise(__LINE__, GetPath(), CK_T("can't be written"));
        done += count;
    }
}

void File::Flush()
{
    if (FlushFileBuffers(systemHandleOf(m_handle)) == FALSE)
        raise(__LINE__, GetPath(), CK_T("can't be written to the disk"));
}

void File::SetPermissionsAndTime(unsigned int, const Time& modified)
{
    const FILETIME time = fileTimeOf(modified);
    if (SetFileTime(systemHandleOf(m_handle), nullptr, nullptr, &time) == FALSE)
        raise(__LINE__, GetPath(), CK_T("can't get its time"));
}

void File::Close()
{
    if (IsOpen() && CloseHandle(systemHandleOf(std::exchange(m_handle, noHandle))) == FALSE)
        raise(__LINE__, GetPath(), CK_T("can't be written"));
}

Folder::Pointer Folder::Open(const CString& path)
{
    const DWORD attributes = GetFileAttributesW(fullPathOf(path));
    if (attributes == INVALID_FILE_ATTRIBUTES)
        raise(__LINE__, path, CK_T("can't be opened"));
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                               CString::FromUtf8(makePrintable(path)) + CK_T(": is no folder"));
    return new Folder(noHandle, path);
}

Folder::~Folder() = default;

CString Folder::GetPathOf(const CString& name) const
{
    if (m_path == CK_T("."))
        return name;
    const WCHAR last = m_path[m_path.GetLength() - 1];
    return last == CK_T('/') || last == CK_T('\\') ? m_path + name : m_path + CK_T("/") + name;
}

Folder::Pointer Folder::OpenFolder(const CString& name) const
{
    const DWORD attributes = GetFileAttributesW(fullPathOf(*this, name));
    if (attributes == INVALID_FILE_ATTRIBUTES)
        raise(__LINE__, GetPathOf(name), CK_T("can't be opened as a folder"));
    if (kindOf(attributes) != Kind::folder)
        throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                               CString::FromUtf8(makePrintable(GetPathOf(name))) + CK_T(": is no folder"));
    return new Folder(noHandle, GetPathOf(name));
}

File Folder::OpenToRead(const CString& name) const
{
    const HANDLE handle = CreateFileW(fullPathOf(*this, name), GENERIC_READ, shareAll, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        raise(__LINE__, GetPathOf(name), CK_T("can't be opened"));
    return File(handleOf(handle), this, name);
}

File Folder::OpenNamedToRead(const CString& name) const
{
    const HANDLE handle =
        CreateFileW(fullPathOf(*this, name), GENERIC_READ, shareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        raise(__LINE__, GetPathOf(name), CK_T("can't be opened"));
    return File(handleOf(handle), this, name);
}

std::vector<Folder::Item> Folder::GetItems() const
{
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(fullPathOf(*this, CK_T("*")), &found);
    if (search == INVALID_HANDLE_VALUE)
        raise(__LINE__, m_path, CK_T("can't be listed"));
    const std::unique_ptr<void, BOOL (*)(HANDLE)> guard(search, [](HANDLE handle) { return FindClose(handle); });
    std::vector<Item> items;
    do
    {
        Item item{found.cFileName, kindOf(found.dwFileAttributes)};
        if (item.name != CK_T(".") && item.name != CK_T(".."))
            items.push_back(std::move(item));
    } while (FindNextFileW(search, &found) != FALSE);
    if (GetLastError() != ERROR_NO_MORE_FILES)
        raise(__LINE__, m_path, CK_T("can't be listed"));
    return items;
}

Status Folder::GetStatus(const CString& name) const
{
    const File file = openDescription(this, fullPathOf(*this, name), name, FILE_READ_ATTRIBUTES);
    if (!file.IsOpen())
        raise(__LINE__, GetPathOf(name), CK_T("can't be examined"));
    return file.GetStatus();
}

bool Folder::Exists(const CString& name) const
{
    if (GetFileAttributesW(fullPathOf(*this, name)) != INVALID_FILE_ATTRIBUTES)
        return true;
    if (GetLastError() != ERROR_FILE_NOT_FOUND)
        raise(__LINE__, GetPathOf(name), CK_T("can't be examined"));
    return false;
}

CString Folder::ReadLink(const CString& name) const
{
    throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                           CString::FromUtf8(makePrintable(GetPathOf(name))) + CK_T(": links are not read here"));
}

File Folder::MakeFile(const CString& name, const CString& finalName, bool) const
{
    const HANDLE handle = CreateFileW(fullPathOf(*this, name), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        raise(__LINE__, GetPathOf(finalName), CK_T("can't be made"));
    return File(handleOf(handle), this, finalName);
}

bool Folder::MakeFolder(const CString& name) const
{
    const CString path = fullPathOf(*this, name);
    if (CreateDirectoryW(path, nullptr) != FALSE)
        return true;
    const DWORD error = GetLastError();
    const DWORD attributes = GetFileAttributesW(path);
    if (attributes != INVALID_FILE_ATTRIBUTES && kindOf(attributes) == Kind::folder)
        return false;
    SetLastError(error);
    raise(__LINE__, GetPathOf(name), CK_T("the folder can't be made"));
}

void Folder::MakeLink(const CString& name, const CString&) const
{
    throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                           CString::FromUtf8(makePrintable(GetPathOf(name))) + CK_T(": links are not made here"));
}

void Folder::Rename(const CString& from, const CString& to, bool replace) const
{
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (replace ? MOVEFILE_REPLACE_EXISTING : 0);
    if (MoveFileExW(fullPathOf(*this, from), fullPathOf(*this, to), flags) == FALSE)
        raise(__LINE__, GetPathOf(to), CK_T("can't be made"));
}

void Folder::TryRemove(const CString& name) const noexcept
{
    DeleteFileW(fullPathOf(*this, name));
}

void Folder::SetPermissionsAndTime(unsigned int, const Time& modified) const
{
    File folder = openDescription(nullptr, fullPathOf(m_path), m_path, FILE_WRITE_ATTRIBUTES);
    if (!folder.IsOpen())
        raise(__LINE__, m_path, CK_T("can't get its time"));
    folder.SetPermissionsAndTime(0, modified);
}

void Folder::SetLinkTime(const CString&, const Time&) const noexcept {}

/// The system does that when a file gets its name.
void Folder::Flush() const {}

bool canMakeLinks() noexcept
{
    return false;
}

std::vector<CString> splitPath(const CString& path)
{
    const bool hasDrive = path.GetLength() >= 2 && path[1] == CK_T(':');
    return splitStoredPath(replaceAll(hasDrive ? path.Mid(2) : path, CK_T('\\'), CK_T('/')));
}

void splitName(const CString& path, CString& folder, CString& name)
{
    const CString plain = replaceAll(path, CK_T('\\'), CK_T('/'));
    int end = plain.GetLength();
    while (end > 1 && plain[end - 1] == CK_T('/'))
        --end;
    const CString trimmed = plain.Left(end);
    const int slash = trimmed.ReverseFind(CK_T('/'));
    const bool hasDrive = trimmed.GetLength() >= 2 && trimmed[1] == CK_T(':');
    const bool isInRoot = slash == 0 || (hasDrive && slash == 2);
    name = trimmed.Mid(slash + 1);
    folder = slash < 0 ? CString(CK_T(".")) : trimmed.Left(isInRoot ? slash + 1 : slash);
    if (hasDrive && slash < 0)
    {
        // In the drive's current folder, or the drive itself.
        folder = trimmed.Left(2) + (end == plain.GetLength() ? CK_T("") : CK_T("/"));
        name = trimmed.Mid(2);
    }
    if (name == CK_T(".") || name == CK_T("..") || name.IsEmpty())
    {
        folder = name.IsEmpty() ? folder : trimmed;
        name.Empty();
    }
}

bool isPossibleName(const CString& name) noexcept
{
    constexpr std::array devices = {CK_T("con"), CK_T("prn"), CK_T("aux"), CK_T("nul"), CK_T("com"), CK_T("lpt")};
    for (const WCHAR unit : name)
    {
        if (unit < 32 || CString(CK_T("<>:\"/\\|?*")).Find(unit) >= 0)
            return false;
    }
    const WCHAR last = name[name.GetLength() - 1];
    if (last == CK_T('.') || last == CK_T(' '))
        return false;
    const int dot = name.Find(CK_T('.'));
    const CString stem = CString(dot < 0 ? name : name.Left(dot)).MakeLower().TrimRight();
    return std::none_of(devices.begin(), devices.end(),
                        [&stem](const WCHAR* device)
                        {
                            const bool hasNumber = device[0] == CK_T('l') || device[2] == CK_T('m');
                            return stem.Left(3) == device && stem.GetLength() == (hasNumber ? 4 : 3);
                        });
}

std::vector<CString> getArguments(int, char**)
{
    int count = 0;
    const std::unique_ptr<LPWSTR, HLOCAL (*)(HLOCAL)> texts(CommandLineToArgvW(GetCommandLineW(), &count),
                                                            [](HLOCAL memory) { return LocalFree(memory); });
    std::vector<CString> arguments;
    for (int i = 1; i < count; ++i)
        arguments.emplace_back(texts.get()[i]);
    return arguments;
}

void prepareProcess() noexcept
{
    SetConsoleOutputCP(CP_UTF8);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

void catchInterrupts() noexcept
{
    SetConsoleCtrlHandler(&noteInterrupt, TRUE);
}

bool isInterrupted() noexcept
{
    return g_interrupted.load(std::memory_order_relaxed);
}

bool isTerminal() noexcept
{
    DWORD mode = 0;
    const HANDLE terminal = GetStdHandle(STD_ERROR_HANDLE);
    return GetConsoleMode(terminal, &mode) != FALSE &&
           SetConsoleMode(terminal, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

unsigned int getProcessNumber() noexcept
{
    return GetCurrentProcessId();
}
} // namespace archive::platform
