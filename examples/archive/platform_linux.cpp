#include "platform.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

// Names are bytes here, by custom UTF-8. Bytes that are none become the units DC80 to DCFF, of which there is no UTF-8,
// and come out again as they were.

namespace archive::platform
{
namespace
{
constexpr unsigned int firstEscape = 0xDC80;
constexpr unsigned int lastEscape = 0xDCFF;

[[noreturn]] void raise(unsigned int line, const CString& path, const CString& what, int error = errno)
{
    const CString reason(std::system_category().message(error).c_str());
    throw ArchiveException(CK_SOURCE_FILE, line,
                           CString::FromUtf8(makePrintable(path)) + CK_T(": ") + what + CK_T(": ") + reason);
}

int descriptorOf(Handle handle)
{
    return static_cast<int>(handle);
}

/// The length of the valid UTF-8 sequence that `bytes` begins with, and its character; 0 when there is none.
std::size_t decodeOne(std::string_view bytes, char32_t& character)
{
    const auto byteAt = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char first = byteAt(0);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length == 0 || length > bytes.size())
        return 0;
    character = length == 1 ? first : first & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i)
    {
        if ((byteAt(i) & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (byteAt(i) & 0x3Fu);
    }
    const bool tooLong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
    const bool none = (character >= 0xD800 && character < 0xE000) || character > 0x10FFFF;
    return tooLong || none ? 0 : length;
}

CString decodeName(std::string_view bytes)
{
    std::u16string units;
    units.reserve(bytes.size());
    while (!bytes.empty())
    {
        char32_t character = 0;
        const std::size_t length = decodeOne(bytes, character);
        if (length == 0)
            units += static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(bytes[0]));
        else if (character < 0x10000)
            units += static_cast<char16_t>(character);
        else
        {
            units += static_cast<char16_t>(0xD7C0 + (character >> 10));
            units += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
        }
        bytes.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return CString(units.data(), static_cast<int>(units.size()));
}

void appendUtf8(std::string& bytes, char32_t character)
{
    const auto append = [&bytes](char32_t byte) { bytes += static_cast<char>(byte); };
    if (character < 0x80)
        append(character);
    else if (character < 0x800)
        append(0xC0 | character >> 6);
    else if (character < 0x10000)
        append(0xE0 | character >> 12);
    else
    {
        append(0xF0 | character >> 18);
        append(0x80 | (character >> 12 & 0x3F));
    }
    if (character >= 0x800)
        append(0x80 | (character >> 6 & 0x3F));
    if (character >= 0x80)
        append(0x80 | (character & 0x3F));
}

/// Units that neither stand for a character nor for a byte become what UTF-8 would make of them if they did.
std::string encodeName(const CString& name)
{
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(name.GetLength()));
    for (const WCHAR* unit = name.begin(); unit != name.end(); ++unit)
    {
        if (isHighSurrogate(*unit) && unit + 1 != name.end() && isLowSurrogate(unit[1]))
        {
            appendUtf8(bytes, 0x10000u + ((*unit & 0x3FFu) << 10) + (unit[1] & 0x3FFu));
            ++unit;
        }
        else if (*unit >= firstEscape && *unit <= lastEscape)
            bytes += static_cast<char>(*unit & 0xFF);
        else
            appendUtf8(bytes, *unit);
    }
    return bytes;
}

Kind kindOf(mode_t mode)
{
    return S_ISREG(mode) ? Kind::file : S_ISDIR(mode) ? Kind::folder : S_ISLNK(mode) ? Kind::link : Kind::other;
}

Status statusOf(const struct stat& found)
{
    Status status;
    status.kind = kindOf(found.st_mode);
    status.size = static_cast<unsigned __int64>(found.st_size);
    status.permissions = found.st_mode & 07777;
    status.modified = {found.st_mtim.tv_sec, static_cast<unsigned int>(found.st_mtim.tv_nsec)};
    status.changed = {found.st_ctim.tv_sec, static_cast<unsigned int>(found.st_ctim.tv_nsec)};
    status.device = found.st_dev;
    status.number = found.st_ino;
    return status;
}

timespec timeOf(const Time& time)
{
    return {static_cast<time_t>(time.seconds), static_cast<long>(time.nanoseconds)};
}

std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

/// Calls `readSome(done)`, which reads on behind the first `done` bytes, until all are there or the file ends.
template <class ReadSome>
unsigned __int64 readAll(const File& file, unsigned __int64 size, ReadSome readSome)
{
    unsigned __int64 done = 0;
    while (done < size)
    {
        const ssize_t count = readSome(done);
        if (count < 0 && errno != EINTR)
            raise(__LINE__, file.GetPath(), CK_T("can't be read"));
        if (count == 0)
            break;
        done += count > 0 ? static_cast<unsigned __int64>(count) : 0;
    }
    return done;
}

void noteInterrupt(int)
{
    g_interrupted.store(true, std::memory_order_relaxed);
}
} // namespace

File::~File()
{
    if (IsOpen())
        ::close(descriptorOf(m_handle));
}

Status File::GetStatus() const
{
    struct stat found;
    if (::fstat(descriptorOf(m_handle), &found) != 0)
        raise(__LINE__, GetPath(), CK_T("can't be examined"));
    return statusOf(found);
}

unsigned __int64 File::Read(void* data, unsigned __int64 size)
{
    return readAll(*this, size,
                   [&](unsigned __int64 done)
                   { return ::read(descriptorOf(m_handle), static_cast<char*>(data) + done, size - done); });
}

unsigned __int64 File::ReadAt(unsigned __int64 position, void* data, unsigned __int64 size) const
{
    return readAll(*this, size,
                   [&](unsigned __int64 done)
                   {
                       return ::pread(descriptorOf(m_handle), static_cast<char*>(data) + done, size - done,
                                      static_cast<off_t>(position + done));
                   });
}

void File::Write(const void* data, unsigned __int64 size)
{
    unsigned __int64 done = 0;
    while (done < size)
    {
        const ssize_t count = ::write(descriptorOf(m_handle), static_cast<const char*>(data) + done, size - done);
        if (count < 0 && errno != EINTR)
            raise(__LINE__, GetPath(), CK_T("can't be written"));
        done += count > 0 ? static_cast<unsigned __int64>(count) : 0;
    }
}

void File::Flush()
{
    if (::fsync(descriptorOf(m_handle)) != 0)
        raise(__LINE__, GetPath(), CK_T("can't be written to the disk"));
}

void File::SetPermissionsAndTime(unsigned int permissions, const Time& modified)
{
    const timespec times[] = {{0, UTIME_NOW}, timeOf(modified)};
    if (::fchmod(descriptorOf(m_handle), permissions) != 0 || ::futimens(descriptorOf(m_handle), times) != 0)
        raise(__LINE__, GetPath(), CK_T("can't get its permissions and time"));
}

void File::Close()
{
    if (IsOpen() && ::close(descriptorOf(std::exchange(m_handle, noHandle))) != 0)
        raise(__LINE__, GetPath(), CK_T("can't be written"));
}

Folder::Pointer Folder::Open(const CString& path)
{
    const int descriptor = ::open(encodeName(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        raise(__LINE__, path, CK_T("can't be opened"));
    return new Folder(descriptor, path);
}

Folder::~Folder()
{
    ::close(descriptorOf(m_handle));
}

CString Folder::GetPathOf(const CString& name) const
{
    if (m_path == CK_T("."))
        return name;
    return m_path[m_path.GetLength() - 1] == CK_T('/') ? m_path + name : m_path + CK_T("/") + name;
}

Folder::Pointer Folder::OpenFolder(const CString& name) const
{
    const int descriptor =
        ::openat(descriptorOf(m_handle), encodeName(name).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        raise(__LINE__, GetPathOf(name), CK_T("can't be opened as a folder"));
    return new Folder(descriptor, GetPathOf(name));
}

File Folder::OpenToRead(const CString& name) const
{
    // Without blocking: what was a file a moment ago may be a pipe now.
    const int descriptor =
        ::openat(descriptorOf(m_handle), encodeName(name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        raise(__LINE__, GetPathOf(name), CK_T("can't be opened"));
    return File(descriptor, this, name);
}

File Folder::OpenNamedToRead(const CString& name) const
{
    const int descriptor =
        ::openat(descriptorOf(m_handle), encodeName(name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        raise(__LINE__, GetPathOf(name), CK_T("can't be opened"));
    return File(descriptor, this, name);
}

std::vector<Folder::Item> Folder::GetItems() const
{
    // A descriptor of its own, which goes with the stream.
    const int descriptor = ::openat(descriptorOf(m_handle), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(descriptor < 0 ? nullptr : ::fdopendir(descriptor), &::closedir);
    if (!stream)
        raise(__LINE__, m_path, CK_T("can't be listed"));
    std::vector<Item> items;
    for (errno = 0; const dirent* const entry = ::readdir(stream.get()); errno = 0)
    {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        Item item{decodeName(name), kindOf(DTTOIF(entry->d_type))};
        if (entry->d_type == DT_UNKNOWN)
            item.kind = GetStatus(item.name).kind;
        items.push_back(std::move(item));
    }
    if (errno != 0)
        raise(__LINE__, m_path, CK_T("can't be listed"));
    return items;
}

Status Folder::GetStatus(const CString& name) const
{
    struct stat found;
    if (::fstatat(descriptorOf(m_handle), encodeName(name).c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0)
        raise(__LINE__, GetPathOf(name), CK_T("can't be examined"));
    return statusOf(found);
}

bool Folder::Exists(const CString& name) const
{
    struct stat found;
    if (::fstatat(descriptorOf(m_handle), encodeName(name).c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0)
        return true;
    if (errno != ENOENT)
        raise(__LINE__, GetPathOf(name), CK_T("can't be examined"));
    return false;
}

CString Folder::ReadLink(const CString& name) const
{
    std::string target(256, '\0');
    for (;;)
    {
        const ssize_t length =
            ::readlinkat(descriptorOf(m_handle), encodeName(name).c_str(), target.data(), target.size());
        if (length < 0)
            raise(__LINE__, GetPathOf(name), CK_T("the link can't be read"));
        if (static_cast<std::size_t>(length) < target.size())
            return decodeName({target.data(), static_cast<std::size_t>(length)});
        target.resize(2 * target.size());
    }
}

File Folder::MakeFile(const CString& name, const CString& finalName, bool shared) const
{
    const int descriptor = ::openat(descriptorOf(m_handle), encodeName(name).c_str(),
                                    O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, shared ? 0666 : 0600);
    if (descriptor < 0)
        raise(__LINE__, GetPathOf(finalName), CK_T("can't be made"));
    return File(descriptor, this, finalName);
}

bool Folder::MakeFolder(const CString& name) const
{
    if (::mkdirat(descriptorOf(m_handle), encodeName(name).c_str(), 0777) == 0)
        return true;
    struct stat found;
    const int error = errno;
    if (error != EEXIST ||
        ::fstatat(descriptorOf(m_handle), encodeName(name).c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(found.st_mode))
        raise(__LINE__, GetPathOf(name), CK_T("the folder can't be made"), error);
    return false;
}

void Folder::MakeLink(const CString& name, const CString& target) const
{
    if (::symlinkat(encodeName(target).c_str(), descriptorOf(m_handle), encodeName(name).c_str()) != 0)
        raise(__LINE__, GetPathOf(name), CK_T("the link can't be made"));
}

void Folder::Rename(const CString& from, const CString& to, bool replace) const
{
    const int folder = descriptorOf(m_handle);
    const std::string oldName = encodeName(from);
    const std::string newName = encodeName(to);
    int result = ::renameat2(folder, oldName.c_str(), folder, newName.c_str(), replace ? 0 : RENAME_NOREPLACE);
    // Some file systems can't promise to replace nothing; what can be done there is to look.
    if (result != 0 && !replace && (errno == EINVAL || errno == ENOSYS))
        result = Exists(to) ? (errno = EEXIST, -1) : ::renameat(folder, oldName.c_str(), folder, newName.c_str());
    if (result != 0)
        raise(__LINE__, GetPathOf(to), CK_T("can't be made"));
}

void Folder::TryRemove(const CString& name) const noexcept
{
    static_cast<void>(::unlinkat(descriptorOf(m_handle), encodeName(name).c_str(), 0));
}

void Folder::SetPermissionsAndTime(unsigned int permissions, const Time& modified) const
{
    const timespec times[] = {{0, UTIME_NOW}, timeOf(modified)};
    if (::fchmod(descriptorOf(m_handle), permissions) != 0 || ::futimens(descriptorOf(m_handle), times) != 0)
        raise(__LINE__, m_path, CK_T("can't get its permissions and time"));
}

void Folder::SetLinkTime(const CString& name, const Time& modified) const noexcept
{
    const timespec times[] = {{0, UTIME_NOW}, timeOf(modified)};
    static_cast<void>(::utimensat(descriptorOf(m_handle), encodeName(name).c_str(), times, AT_SYMLINK_NOFOLLOW));
}

void Folder::Flush() const
{
    // Some file systems refuse this for folders; then there is nothing more to be done.
    if (::fsync(descriptorOf(m_handle)) != 0 && errno != EINVAL && errno != EROFS)
        raise(__LINE__, m_path, CK_T("can't be written to the disk"));
}

bool canMakeLinks() noexcept
{
    return true;
}

std::vector<CString> splitPath(const CString& path)
{
    return splitStoredPath(path);
}

void splitName(const CString& path, CString& folder, CString& name)
{
    int end = path.GetLength();
    while (end > 1 && path[end - 1] == CK_T('/'))
        --end;
    const CString trimmed = path.Left(end);
    const int slash = trimmed.ReverseFind(CK_T('/'));
    name = trimmed.Mid(slash + 1);
    folder = slash < 0 ? CString(CK_T(".")) : slash == 0 ? CString(CK_T("/")) : trimmed.Left(slash);
    if (name == CK_T(".") || name == CK_T("..") || name.IsEmpty())
    {
        folder = trimmed;
        name.Empty();
    }
}

bool isPossibleName(const CString& name) noexcept
{
    return name.Find(CK_T('/')) < 0;
}

std::vector<CString> getArguments(int argc, char** argv)
{
    std::vector<CString> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.push_back(decodeName(argv[i]));
    return arguments;
}

void prepareProcess() noexcept
{
    // A file that has become too large for the user's limit is an error like any other.
    std::signal(SIGXFSZ, SIG_IGN);
    // What is read is freed on another thread and soon asked for again. The system's pages need not come and go for it.
    ::mallopt(M_MMAP_THRESHOLD, 8 << 20);
    ::mallopt(M_TRIM_THRESHOLD, 16 << 20);
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        limit.rlim_cur = limit.rlim_max;
        static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    }
}

void catchInterrupts() noexcept
{
    struct sigaction action = {};
    action.sa_handler = &noteInterrupt;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        // A program that was started to ignore a signal goes on doing so.
        struct sigaction former = {};
        if (::sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
            static_cast<void>(::sigaction(signal, &action, nullptr));
    }
}

bool isInterrupted() noexcept
{
    return g_interrupted.load(std::memory_order_relaxed);
}

bool isTerminal() noexcept
{
    return ::isatty(STDERR_FILENO) == 1;
}

unsigned int getProcessNumber() noexcept
{
    return static_cast<unsigned int>(::getpid());
}
} // namespace archive::platform
