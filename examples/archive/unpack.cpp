#include "commands.h"
#include "console.h"
#include "names.h"
#include "pendingfile.h"
#include "target.h"
#include "verifier.h"

#include <algorithm>
#include <unordered_set>

namespace archive
{
namespace
{
constexpr unsigned int patienceMs = 100;

/// What is restored of the permissions: not whose rights a program runs with.
constexpr unsigned int permissionMask = 0777;

[[noreturn]] void raise(unsigned int line, const CString& path, const WCHAR* text)
{
    throw ArchiveException(CK_SOURCE_FILE, line, CString::FromUtf8(makePrintable(path)) + text);
}

/// What the tasks of one archive share.
struct UnpackContext
{
    WorkspaceStore workspaces;
    std::atomic<bool> abandoned{false};
    bool force = false;
};

/// Makes one file again.
///
/// Threads: runs on a worker of the pool.
/// Lifetime: the context outlives the task.
class UnpackTask : public CkTask
{
public:
    UnpackTask(UnpackContext& context, platform::Folder::Pointer folder, const CString& name, const FoundEntry& found)
        : m_context(context), m_folder(std::move(folder)), m_name(name), m_entry(found.entry),
          m_place(found.contentsPlace)
    {
    }

    /// Raises what has made the task fail.
    void RequireSuccess() const
    {
        if (m_failure)
            std::rethrow_exception(m_failure);
        if (!IsSuccessful())
            throw InterruptException(CK_SOURCE_FILE, __LINE__);
    }

    unsigned __int64 GetSize() const { return m_entry->GetSize(); }

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        PendingFile pending(m_folder, m_name, false);
        const CkSmartPointer<Workspace> workspace = m_context.workspaces.Take();
        for (unsigned __int64 rest = m_entry->GetSize(); rest != 0;)
        {
            if (doNotRun())
                return false;
            const auto size = static_cast<unsigned int>(std::min<unsigned __int64>(rest, maximumContents));
            loadContents(workspace->loader, m_place, size, m_entry->path, workspace->contents);
            pending.GetFile().Write(workspace->contents.begin(), size);
            rest -= size;
        }
        m_context.workspaces.GiveBack(workspace);
        pending.GetFile().SetPermissionsAndTime(m_entry->permissions & permissionMask, m_entry->modified);
        pending.Commit(m_context.force);
        return true;
    }

    bool doNotRun() const override { return m_context.abandoned.load(std::memory_order_relaxed); }
    void onException(const CkException*) override { m_failure = std::current_exception(); }

private:
    UnpackContext& m_context;
    const platform::Folder::Pointer m_folder;
    const CString m_name;
    const CkSmartPointer<ArchiveEntry> m_entry;
    RecordPlace m_place;
    std::exception_ptr m_failure;
};

/// Makes what an archive has been verified to contain. The calling thread makes folders and links, tasks of the pool
/// make the files.
class Unpacker
{
public:
    Unpacker(ArchiveScanner& scanner, Target& target, Progress& progress, bool force);
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;
    ~Unpacker();

    void Unpack();

private:
    /// A folder gets its permissions and its time when nothing more is made in it.
    struct MadeFolder
    {
        CString path;
        unsigned int permissions;
        platform::Time modified;
    };

    static constexpr std::size_t maximumTasks = 256;

    void make(const FoundEntry& found);
    void makeFolder(const ArchiveEntry& entry, const platform::Folder& parent, const CString& name);
    void makeLink(const ArchiveLink& link, const platform::Folder& parent, const CString& name) const;
    void addTask(const FoundEntry& found, const platform::Folder::Pointer& parent, const CString& name);
    void finishTask();
    static void requireInterest();

    ArchiveScanner& m_scanner;
    Target& m_target;
    Progress& m_progress;
    UnpackContext m_context;
    std::deque<CkSmartPointer<UnpackTask>> m_tasks;
    std::vector<MadeFolder> m_folders;
};

Unpacker::Unpacker(ArchiveScanner& scanner, Target& target, Progress& progress, bool force)
    : m_scanner(scanner), m_target(target), m_progress(progress),
      m_context{WorkspaceStore(scanner.GetFile(), scanner.GetFileSize()), false, force}
{
}

/// The tasks use what goes now: those that run are waited for, those that don't yet decline.
Unpacker::~Unpacker()
{
    m_context.abandoned.store(true, std::memory_order_relaxed);
    CkThreadPool::GetInstance().WaitUntilIdle(INFINITE);
}

/// Whether an entry may be unpacked at all. Looked at once more when it is, as the archive may have changed.
void requireSafe(const ArchiveEntry& entry)
{
    if (!isStoredPath(entry.path))
        throw DamageException(CK_SOURCE_FILE, __LINE__, CK_T("the path leads out of the folder"));
    for (const CString& part : splitStoredPath(entry.path))
    {
        if (!platform::isPossibleName(part))
            raise(__LINE__, entry.path, CK_T(": no file can have that name here"));
    }
}

void Unpacker::Unpack()
{
    m_progress.SetTotal(m_scanner.GetFileSize());
    m_scanner.Rewind();
    for (FoundEntry found; m_scanner.Next(found);)
    {
        requireInterest();
        make(found);
    }
    while (!m_tasks.empty())
        finishTask();
    for (auto folder = m_folders.rbegin(); folder != m_folders.rend(); ++folder)
    {
        if (const platform::Folder::Pointer opened = m_target.OpenFolder(folder->path))
            opened->SetPermissionsAndTime(folder->permissions, folder->modified);
    }
}

void Unpacker::make(const FoundEntry& found)
{
    requireSafe(*found.entry);
    CString name;
    const platform::Folder::Pointer parent = m_target.OpenParent(found.entry->path, name, true);
    if (found.entry->IsKindOf(ArchiveFolder::RTTI))
        makeFolder(*found.entry, *parent, name);
    else if (found.entry->IsKindOf(ArchiveLink::RTTI))
        makeLink(static_cast<const ArchiveLink&>(*found.entry), *parent, name);
    else
        addTask(found, parent, name);
    m_progress.Add(found.recordSize);
}

void Unpacker::makeFolder(const ArchiveEntry& entry, const platform::Folder& parent, const CString& name)
{
    if (parent.MakeFolder(name) || m_context.force)
        m_folders.push_back({entry.path, entry.permissions & permissionMask, entry.modified});
}

void Unpacker::makeLink(const ArchiveLink& link, const platform::Folder& parent, const CString& name) const
{
    if (!platform::canMakeLinks())
        return note(CString::FromUtf8(makePrintable(link.path)) + CK_T(": is a link, and passed over"));
    const CString pendingName = makePendingName(parent);
    parent.MakeLink(pendingName, link.target);
    try
    {
        parent.SetLinkTime(pendingName, link.modified);
        parent.Rename(pendingName, name, m_context.force);
    }
    catch (...)
    {
        parent.TryRemove(pendingName);
        throw;
    }
}

void Unpacker::addTask(const FoundEntry& found, const platform::Folder::Pointer& parent, const CString& name)
{
    const CkSmartPointer<UnpackTask> task(new UnpackTask(m_context, parent, name, found));
    if (!CkThreadPool::GetInstance().AddTask(task, CkThreadPool::eTaskPriorityNormal))
        raise(__LINE__, found.entry->path, CK_T(": no thread can be started"));
    m_tasks.push_back(task);
    while (m_tasks.size() > maximumTasks)
        finishTask();
}

void Unpacker::finishTask()
{
    const CkSmartPointer<UnpackTask> task = std::move(m_tasks.front());
    m_tasks.pop_front();
    requireInterest();
    while (!task->WaitUntilTerminate(patienceMs))
        requireInterest();
    task->RequireSuccess();
    m_progress.Add(allContentsSize(task->GetSize()));
}

void Unpacker::requireInterest()
{
    if (platform::isInterrupted())
        throw InterruptException(CK_SOURCE_FILE, __LINE__);
}

/// The links of an archive, by way of which nothing is to be unpacked.
class Links
{
public:
    /// Raises a DamageException for an entry that would be made through one of the links in front of it.
    void RequireAround(const ArchiveEntry& entry)
    {
        const CString& path = entry.path;
        for (int slash = path.Find(CK_T('/')); !m_paths.empty() && slash >= 0; slash = path.Find(CK_T('/'), slash + 1))
        {
            if (m_paths.contains(path.Left(slash)))
                throw DamageException(CK_SOURCE_FILE, __LINE__, CK_T("the path leads through a link"));
        }
        if (entry.IsKindOf(ArchiveLink::RTTI))
            m_paths.insert(path);
    }

private:
    std::unordered_set<CString> m_paths;
};

/// What has to be known before anything is made: that nothing is damaged, leads elsewhere, or is in the way.
void check(ArchiveScanner& scanner, Target& target, const CommandLine& commandLine)
{
    Progress progress(CK_T("verifying"), !commandLine.quiet);
    Links links;
    const auto look = [&links, &target, &commandLine](const FoundEntry& found)
    {
        requireSafe(*found.entry);
        links.RequireAround(*found.entry);
        if (!target.IsThere() || commandLine.force || found.entry->IsKindOf(ArchiveFolder::RTTI))
            return;
        CString name;
        const platform::Folder::Pointer parent = target.OpenParent(found.entry->path, name, false);
        if (parent && parent->Exists(name))
            raise(__LINE__, parent->GetPathOf(name), CK_T(": is there already; --force replaces it"));
    };
    Verifier(scanner, progress, look).Verify();
}
} // namespace

void unpack(const CommandLine& commandLine)
{
    const CString path = commandLine.operands[0];
    ArchiveScanner scanner(path);
    Target target(commandLine.operands[1]);
    check(scanner, target, commandLine);
    target.Make();
    Progress progress(CK_T("unpacking"), !commandLine.quiet);
    Unpacker(scanner, target, progress, commandLine.force).Unpack();
    if (!commandLine.quiet)
        printSummary(path, scanner.GetEntryCount(), "unpacked", progress);
}
} // namespace archive
