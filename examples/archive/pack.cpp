#include "commands.h"
#include "console.h"
#include "names.h"
#include "packtask.h"
#include "pendingfile.h"
#include "progress.h"
#include "treewalk.h"

#include <algorithm>
#include <deque>

namespace archive
{
namespace
{
/// Adds up what there is to pack, so that the progress can tell what is left. Whatever goes wrong with that, packing
/// will find as well.
class CountTask : public CkTask
{
public:
    CountTask(const PackContext& context, Progress& progress, const std::vector<CString>& paths)
        : m_context(context), m_progress(progress), m_paths(paths)
    {
    }

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        TreeWalk walk(m_paths);
        unsigned __int64 total = 0;
        for (TreeWalk::Item item; walk.Next(item);)
        {
            if (doNotRun())
                return false;
            if (item.kind == platform::Kind::file)
                total += allContentsSize(item.folder->GetStatus(item.name).size);
        }
        m_progress.SetTotal(total);
        return true;
    }

    bool doNotRun() const override { return m_context.abandoned.load(std::memory_order_relaxed); }

private:
    const PackContext& m_context;
    Progress& m_progress;
    const std::vector<CString> m_paths;
};

/// Makes one archive. The calling thread walks through the folders and writes; tasks of the pool read the files ahead
/// of it and compute the checksums.
class Packer
{
public:
    Packer(PendingFile& output, const std::optional<platform::Status>& former, Progress& progress);
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;
    ~Packer();

    void Pack(const std::vector<CString>& paths);
    unsigned __int64 GetEntryCount() const noexcept { return m_trailer.entryCount; }

private:
    /// A task, or without one a block that is ready.
    struct Slot
    {
        CkSmartPointer<PackTask> task;
        Block block;
    };

    /// So many files may be under way; enough for the workers not to wait for the writer and the other way round.
    static constexpr std::size_t maximumSlots = 512;

    /// So many are to be ready when the writer is woken.
    static constexpr std::size_t slotsAhead = 64;

    void add(const TreeWalk::Item& item);
    void addTask(const TreeWalk::Item& item);
    void writeSlot();
    void writeTask(PackTask& task);
    void await(PackTask& task);
    void write(const Block& block);
    void requireInterest();

    PackContext m_context;
    Progress& m_progress;
    FileWriter m_writer;
    std::deque<Slot> m_slots;
    unsigned __int64 m_firstSlot = 0; ///< The number of the first of the slots.
    ArchiveTrailer m_trailer;
};

Packer::Packer(PendingFile& output, const std::optional<platform::Status>& former, Progress& progress)
    : m_progress(progress), m_writer(output.GetFile())
{
    m_context.output = output.GetFile().GetStatus();
    m_context.former = former;
}

/// The tasks use what goes now: those that run are waited for, those that don't yet decline.
Packer::~Packer()
{
    m_context.abandoned.store(true, std::memory_order_relaxed);
    m_context.budget.Cancel();
    CkThreadPool::GetInstance().WaitUntilIdle(INFINITE);
}

void Packer::Pack(const std::vector<CString>& paths)
{
    MemoryWriter header;
    const Checksum checksum = appendHeader(header);
    write({.entry = header.TakeBytes(), .entryChecksum = checksum});
    TreeWalk walk(paths);
    if (m_progress.IsShown())
        CkThreadPool::GetInstance().AddTask(new CountTask(m_context, m_progress, paths),
                                            CkThreadPool::eTaskPriorityHigh);
    for (TreeWalk::Item item; walk.Next(item);)
    {
        requireInterest();
        add(item);
        while (m_slots.size() > maximumSlots)
            writeSlot();
    }
    while (!m_slots.empty())
        writeSlot();
    m_trailer.size = m_writer.GetPosition();
    MemoryWriter trailer;
    appendTrailer(trailer, m_trailer);
    m_writer.WriteBuffer(trailer.GetBytes().begin(), trailer.GetBytes().GetCount());
    m_writer.Finish();
}

void Packer::add(const TreeWalk::Item& item)
{
    if (item.kind == platform::Kind::file)
        return addTask(item);
    if (item.kind == platform::Kind::other)
        return note(CString::FromUtf8(makePrintable(item.folder->GetPathOf(item.name))) +
                    CK_T(": is no file, folder or link, and passed over"));
    const platform::Status status = item.folder->GetStatus(item.name);
    CkSmartPointer<ArchiveEntry> entry;
    if (item.kind == platform::Kind::link)
    {
        auto* const link = new ArchiveLink;
        entry = link;
        link->target = item.folder->ReadLink(item.name);
    }
    else
        entry = new ArchiveFolder;
    entry->path = item.path;
    entry->permissions = status.permissions;
    entry->modified = status.modified;
    m_slots.push_back({nullptr, makeBlock(*entry)});
}

void Packer::addTask(const TreeWalk::Item& item)
{
    const unsigned __int64 number = m_firstSlot + m_slots.size();
    const CkSmartPointer<PackTask> task(new PackTask(m_context, number, item.folder, item.name, item.path));
    if (!CkThreadPool::GetInstance().AddTask(task, CkThreadPool::eTaskPriorityNormal))
        throw ArchiveException(CK_SOURCE_FILE, __LINE__, CK_T("no thread can be started"));
    m_slots.push_back({task, Block()});
}

void Packer::writeSlot()
{
    const Slot slot = std::move(m_slots.front());
    if (slot.task)
        writeTask(*slot.task);
    else
    {
        write(slot.block);
        ++m_trailer.entryCount;
    }
    m_slots.pop_front();
    ++m_firstSlot;
}

void Packer::writeTask(PackTask& task)
{
    m_context.budget.SetTurn(m_firstSlot);
    for (;;)
    {
        requireInterest();
        Block block;
        switch (task.Take(block))
        {
        case PackTask::State::working: await(task); break;
        case PackTask::State::failed: task.RaiseFailure();
        case PackTask::State::done: ++m_trailer.entryCount; return;
        case PackTask::State::passedOver:
            note(CString::FromUtf8(makePrintable(task.GetPath())) + CK_T(": is the archive, and passed over"));
            return;
        case PackTask::State::hasBlock:
            write(block);
            m_context.budget.Release(block.cost);
            break;
        }
    }
}

/// Waits for a task further behind first: when that is ready, most in front of it are as well. To wait for one file
/// after the other would wake this thread for each. If it is ready already, this task is one that takes longer; if
/// there is no memory for it, what this one has must be written first.
void Packer::await(PackTask& task)
{
    PackTask* const behind = m_slots[std::min<std::size_t>(slotsAhead, m_slots.size() - 1)].task.Get();
    if (behind == nullptr || m_context.budget.IsExhausted() || !behind->Await())
        task.Await();
}

void Packer::write(const Block& block)
{
    if (block.entry.GetCount() != 0)
    {
        m_writer.WriteBuffer(block.entry.begin(), block.entry.GetCount());
        m_trailer.checksum = addChecksum(m_trailer.checksum, block.entryChecksum);
    }
    if (block.hasContents)
    {
        writeContents(m_writer, block.contents, block.contentsChecksum);
        m_trailer.checksum = addChecksum(m_trailer.checksum, block.contentsChecksum);
    }
    m_progress.Add(block.GetSize());
}

void Packer::requireInterest()
{
    if (platform::isInterrupted())
        throw InterruptException(CK_SOURCE_FILE, __LINE__);
}

/// The archive that is to be replaced, if there is one; anything else that is in its place is left alone.
std::optional<platform::Status> findFormer(const platform::Folder& folder, const CString& name)
{
    if (!folder.Exists(name))
        return std::nullopt;
    const platform::Status status = folder.GetStatus(name);
    if (status.kind != platform::Kind::file)
        throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                               CString::FromUtf8(makePrintable(folder.GetPathOf(name))) +
                                   CK_T(": is there already, and not a file"));
    return status;
}
} // namespace

void pack(const CommandLine& commandLine)
{
    const CString path = commandLine.operands[0];
    CString folderPath;
    CString name;
    platform::splitFilePath(path, folderPath, name);
    const platform::Folder::Pointer folder = platform::Folder::Open(folderPath);
    const std::optional<platform::Status> former = findFormer(*folder, name);
    PendingFile output(folder, name, true);
    Progress progress(CK_T("packing"), !commandLine.quiet);
    unsigned __int64 entryCount = 0;
    {
        Packer packer(output, former, progress);
        packer.Pack({commandLine.operands.begin() + 1, commandLine.operands.end()});
        entryCount = packer.GetEntryCount();
    }
    if (commandLine.flush)
        output.GetFile().Flush();
    if (platform::isInterrupted())
        throw InterruptException(CK_SOURCE_FILE, __LINE__);
    output.Commit(true);
    if (commandLine.flush)
        folder->Flush();
    if (!commandLine.quiet)
        printSummary(path, entryCount, "packed", progress);
}
} // namespace archive
