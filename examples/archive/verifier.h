#pragma once

#include "archivefile.h"
#include "progress.h"

#include <deque>
#include <exception>
#include <functional>
#include <vector>

namespace archive
{
/// What it takes to check contents: some memory, which is worth keeping.
struct Workspace : CkReferenceCountedClass<Workspace, 0>
{
    Workspace(const platform::File& file, unsigned __int64 fileSize) : loader(file, fileSize) {}

    RecordLoader loader;
    Bytes contents;
};

/// The workspaces that are not in use. There are never more in all than tasks that run at once.
///
/// Threads: any number at once.
class WorkspaceStore
{
public:
    WorkspaceStore(const platform::File& file, unsigned __int64 fileSize) : m_file(file), m_fileSize(fileSize) {}

    CkSmartPointer<Workspace> Take();
    void GiveBack(const CkSmartPointer<Workspace>& workspace);

private:
    const platform::File& m_file;
    const unsigned __int64 m_fileSize;
    CkCriticalSection m_lock;
    std::vector<CkSmartPointer<Workspace>> m_workspaces;
};

/// Reads one part of a file's contents from the record at `place`, which becomes that of the next record. Raises a
/// DamageException that names the record.
Record loadContents(RecordLoader& loader, RecordPlace& place, unsigned int size, const CString& path, Bytes& contents);

/// Checks the contents of one file, or a part of those of a large one.
///
/// Threads: runs on a worker of the pool; the result is for whoever has waited for the end.
/// Lifetime: the workspaces and the flag outlive the task.
class VerifyTask : public CkTask
{
public:
    /// For `size` bytes of the file, from its contents record of the number `firstPart` on.
    VerifyTask(WorkspaceStore& workspaces, const std::atomic<bool>& abandoned, const FoundEntry& found,
               unsigned __int64 firstPart, unsigned __int64 size);

    /// The checksums that the records end in; raises what is wrong with them.
    const std::vector<Checksum>& GetChecksums() const;

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override;

    /// Declines once nobody wants the result any more.
    bool doNotRun() const override { return m_abandoned.load(std::memory_order_relaxed); }
    void onException(const CkException* exception) override;

private:
    WorkspaceStore& m_workspaces;
    const std::atomic<bool>& m_abandoned;
    const CkSmartPointer<ArchiveEntry> m_entry;
    const unsigned __int64 m_size;
    RecordPlace m_place;
    std::vector<Checksum> m_checksums;
    std::exception_ptr m_failure;
};

/// Checks every byte of an archive. The calling thread goes from entry to entry, tasks of the pool check the contents.
///
/// Failure: the DamageException of the first record that is damaged; an ArchiveException where the archive can't be
/// read; an InterruptException.
class Verifier
{
public:
    /// `look` is called with every entry, in order, before anything is known about its contents. What it raises counts
    /// as wrong with the entry.
    Verifier(ArchiveScanner& scanner, Progress& progress, std::function<void(const FoundEntry&)> look);
    Verifier(const Verifier&) = delete;
    Verifier& operator=(const Verifier&) = delete;
    ~Verifier();

    void Verify();

private:
    /// An entry's record, or a task for some of its contents.
    struct Slot
    {
        Checksum checksum = 0; ///< The one that the entry's record ends in.
        unsigned __int64 size = 0;
        CkSmartPointer<VerifyTask> task{};
    };

    /// A task checks at most so many records, so that several share a large file.
    static constexpr unsigned __int64 partsPerTask = 8;

    static constexpr std::size_t maximumSlots = 1024;

    bool next(FoundEntry& found);
    void pushTask(const FoundEntry& found, unsigned __int64 firstPart, unsigned __int64 size);
    void push(const Slot& slot);
    void finishSlot();
    void add(Checksum checksum) noexcept { m_checksum = addChecksum(m_checksum, checksum); }
    static void requireInterest();

    ArchiveScanner& m_scanner;
    Progress& m_progress;
    const std::function<void(const FoundEntry&)> m_look;
    WorkspaceStore m_workspaces;
    std::atomic<bool> m_abandoned{false};
    std::deque<Slot> m_slots;
    std::exception_ptr m_failure; ///< Of the scanner, told when all in front of it is finished.
    Checksum m_checksum = 0;      ///< Of those of the records so far.
};
} // namespace archive
