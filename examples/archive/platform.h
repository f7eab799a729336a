#pragma once

#include <tarvo/tarvo.h>

#include <compare>
#include <cstdint>
#include <vector>

// What the program asks of the system: files, folders, the terminal and the user's wish to stop. One source for each
// system implements it. What the system refuses is raised as an ArchiveException that names the file.

namespace archive::platform
{
/// The system's handle of an open file or folder.
using Handle = std::intptr_t;
inline constexpr Handle noHandle = -1;

enum class Kind
{
    file,
    folder,
    link,
    other
};

/// Since the beginning of 1970 in UTC.
struct Time
{
    __int64 seconds = 0;
    unsigned int nanoseconds = 0;

    bool operator==(const Time&) const = default;
};

struct Status
{
    Kind kind = Kind::other;
    unsigned __int64 size = 0;
    unsigned int permissions = 0; ///< The lower 12 bits of a Unix file mode.
    Time modified;
    Time changed; ///< Of the file's description, where the system knows that.
    unsigned __int64 device = 0;
    unsigned __int64 number = 0;

    bool operator==(const Status&) const = default;
    bool IsSameFile(const Status& other) const noexcept { return device == other.device && number == other.number; }
};

class Folder;

/// An open file, which goes with the object.
///
/// Threads: one at a time, except for `ReadAt` and `GetStatus`.
class File
{
public:
    File() = default;
    File(Handle handle, CkSmartPointer<const Folder> folder, const CString& name) noexcept;
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    ~File();

    bool IsOpen() const noexcept { return m_handle != noHandle; }

    /// For messages.
    CString GetPath() const;

    Status GetStatus() const;

    /// Reads on until there are `size` bytes or the file ends, and returns how many there are.
    unsigned __int64 Read(void* data, unsigned __int64 size);
    unsigned __int64 ReadAt(unsigned __int64 position, void* data, unsigned __int64 size) const;

    void Write(const void* data, unsigned __int64 size);

    /// Waits until the disk has it all.
    void Flush();

    void SetPermissionsAndTime(unsigned int permissions, const Time& modified);

    /// Reports what the system has kept back so far.
    void Close();

private:
    Handle m_handle = noHandle;
    CkSmartPointer<const Folder> m_folder;
    CString m_name;
};

/// An open folder. Names are those of things directly in it, and links in the folder are never followed.
///
/// Threads: every operation may be called from any thread.
class Folder : public CkReferenceCountedClass<Folder, 0>
{
public:
    using Pointer = CkSmartPointer<const Folder>;

    struct Item
    {
        CString name;
        Kind kind = Kind::other;

        bool operator<(const Item& other) const noexcept { return name < other.name; }
    };

    /// Opens what the user has named, through links if need be.
    static Pointer Open(const CString& path);

    Folder(Handle handle, const CString& path) : m_handle(handle), m_path(path) {}
    ~Folder() override;

    const CString& GetPath() const noexcept { return m_path; }
    CString GetPathOf(const CString& name) const;

    Pointer OpenFolder(const CString& name) const;
    File OpenToRead(const CString& name) const;

    /// As `OpenToRead`, for what the user has named: through a link if need be.
    File OpenNamedToRead(const CString& name) const;

    /// What is in the folder, in no order.
    std::vector<Item> GetItems() const;

    Status GetStatus(const CString& name) const;
    bool Exists(const CString& name) const;
    CString ReadLink(const CString& name) const;

    /// A new file for the user alone, which must not be there yet; `shared` as the user's settings say. Messages speak
    /// of `finalName`.
    File MakeFile(const CString& name, const CString& finalName, bool shared) const;

    /// False when there is a folder of that name already.
    bool MakeFolder(const CString& name) const;
    void MakeLink(const CString& name, const CString& target) const;

    /// Gives a file another name in the same folder; what has that name is replaced or, if `replace` is not set, the
    /// reason to fail.
    void Rename(const CString& from, const CString& to, bool replace) const;

    /// Nothing is reported.
    void TryRemove(const CString& name) const noexcept;

    void SetPermissionsAndTime(unsigned int permissions, const Time& modified) const;
    void SetLinkTime(const CString& name, const Time& modified) const noexcept;

    /// Waits until the disk knows the names in the folder, where the system can do that.
    void Flush() const;

private:
    Handle m_handle;
    CString m_path;
};

/// Whether links can be made.
bool canMakeLinks() noexcept;

/// Splits what the user has typed at the separators of the system; a root, and a drive, is no part.
std::vector<CString> splitPath(const CString& path);

/// The path of the folder that `path` names something in, and that name: "a/b" gives "a" and "b", "b" gives "." and
/// "b". The name is empty where the path ends in none, as "/" and "a/.." do.
void splitName(const CString& path, CString& folder, CString& name);

/// The same for the path of a file; raises where there is no name.
void splitFilePath(const CString& path, CString& folder, CString& name);

/// Whether a name from an archive can be the name of one file here.
bool isPossibleName(const CString& name) noexcept;

/// The arguments of the program without its name.
std::vector<CString> getArguments(int argc, char** argv);

/// UTF-8 on standard output and error; what would end the program without a word is reported as a failure instead.
void prepareProcess() noexcept;

/// From here on the user's wish to stop is noted; a second one ends the program at once.
void catchInterrupts() noexcept;
bool isInterrupted() noexcept;

bool isTerminal() noexcept;

/// A number that another process will not have as well.
unsigned int getProcessNumber() noexcept;
} // namespace archive::platform
