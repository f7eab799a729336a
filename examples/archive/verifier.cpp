#include "verifier.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>

namespace archive
{
namespace
{
/// How long to wait before looking whether the user has asked to stop.
constexpr unsigned int patienceMs = 100;
} // namespace

Record loadContents(RecordLoader& loader, RecordPlace& place, unsigned int size, const CString& path, Bytes& contents)
{
    Record record;
    const auto read = [&]
    {
        record = loader.Load(place.position, contentsRecordSize(size));
        if (record.kind != RecordKind::contents)
            throw DamageException(CK_SOURCE_FILE, __LINE__, CK_T("the contents of the file should follow"));
        readContents(record.payload, size, contents);
    };
    atRecord(place, nameOf(RecordKind::contents), path, read);
    place = {place.number + 1, place.position + record.size};
    return record;
}

CkSmartPointer<Workspace> WorkspaceStore::Take()
{
    {
        const CkCriticalSectionAuto guard(m_lock);
        if (!m_workspaces.empty())
        {
            const CkSmartPointer<Workspace> workspace = m_workspaces.back();
            m_workspaces.pop_back();
            return workspace;
        }
    }
    return new Workspace(m_file, m_fileSize);
}

void WorkspaceStore::GiveBack(const CkSmartPointer<Workspace>& workspace)
{
    const CkCriticalSectionAuto guard(m_lock);
    m_workspaces.push_back(workspace);
}

VerifyTask::VerifyTask(WorkspaceStore& workspaces, const std::atomic<bool>& abandoned, const FoundEntry& found,
                       unsigned __int64 firstPart, unsigned __int64 size)
    : m_workspaces(workspaces), m_abandoned(abandoned), m_entry(found.entry), m_size(size),
      m_place{found.contentsPlace.number + firstPart,
              found.contentsPlace.position + firstPart * contentsRecordSize(maximumContents)}
{
}

CkCheckReturn<bool, CkCheckReturnPolicyAssert> VerifyTask::doRun()
{
    const CkSmartPointer<Workspace> workspace = m_workspaces.Take();
    for (unsigned __int64 rest = m_size; rest != 0;)
    {
        if (doNotRun())
            return false;
        const auto size = static_cast<unsigned int>(std::min<unsigned __int64>(rest, maximumContents));
        const Record record = loadContents(workspace->loader, m_place, size, m_entry->path, workspace->contents);
        m_checksums.push_back(record.checksum);
        rest -= size;
    }
    m_workspaces.GiveBack(workspace);
    return true;
}

void VerifyTask::onException(const CkException*)
{
    m_failure = std::current_exception();
}

const std::vector<Checksum>& VerifyTask::GetChecksums() const
{
    if (m_failure)
        std::rethrow_exception(m_failure);
    if (!IsSuccessful())
        throw InterruptException(CK_SOURCE_FILE, __LINE__);
    return m_checksums;
}

Verifier::Verifier(ArchiveScanner& scanner, Progress& progress, std::function<void(const FoundEntry&)> look)
    : m_scanner(scanner), m_progress(progress), m_look(std::move(look)),
      m_workspaces(scanner.GetFile(), scanner.GetFileSize())
{
}

/// The tasks use what goes now: those that run are waited for, those that don't yet decline.
Verifier::~Verifier()
{
    m_abandoned.store(true, std::memory_order_relaxed);
    CkThreadPool::GetInstance().WaitUntilIdle(INFINITE);
}

void Verifier::Verify()
{
    m_progress.SetTotal(m_scanner.GetFileSize());
    add(m_scanner.GetHeaderChecksum());
    m_progress.Add(m_scanner.GetHeaderSize());
    FoundEntry found;
    while (next(found))
    {
        push({.checksum = found.checksum, .size = found.recordSize});
        const unsigned __int64 size = found.entry->GetSize();
        constexpr unsigned __int64 sizePerTask = partsPerTask * maximumContents;
        for (unsigned __int64 start = 0; start < size; start += sizePerTask)
            pushTask(found, start / maximumContents, std::min(size - start, sizePerTask));
    }
    while (!m_slots.empty())
        finishSlot();
    if (m_failure)
        std::rethrow_exception(m_failure);
    m_scanner.RequireChecksum(m_checksum);
}

/// Looks for the next entry. What is wrong with it is told when all in front of it is finished: that may be damaged as
/// well, and the first damage is the one to tell.
bool Verifier::next(FoundEntry& found)
{
    try
    {
        if (!m_scanner.Next(found))
            return false;
        atRecord(found.place, nameOf(RecordKind::entry), found.entry->path, [this, &found] { m_look(found); });
        return true;
    }
    catch (...)
    {
        m_failure = std::current_exception();
        return false;
    }
}

void Verifier::pushTask(const FoundEntry& found, unsigned __int64 firstPart, unsigned __int64 size)
{
    const CkSmartPointer<VerifyTask> task(new VerifyTask(m_workspaces, m_abandoned, found, firstPart, size));
    if (!CkThreadPool::GetInstance().AddTask(task, CkThreadPool::eTaskPriorityNormal))
        throw ArchiveException(CK_SOURCE_FILE, __LINE__, CK_T("no thread can be started"));
    push({.size = allContentsSize(size), .task = task});
}

void Verifier::push(const Slot& slot)
{
    requireInterest();
    m_slots.push_back(slot);
    while (m_slots.size() > maximumSlots)
        finishSlot();
}

void Verifier::finishSlot()
{
    const Slot slot = std::move(m_slots.front());
    m_slots.pop_front();
    requireInterest();
    if (slot.task)
    {
        while (!slot.task->WaitUntilTerminate(patienceMs))
            requireInterest();
        for (const Checksum checksum : slot.task->GetChecksums())
            add(checksum);
    }
    else
        add(slot.checksum);
    m_progress.Add(slot.size);
}

void Verifier::requireInterest()
{
    if (platform::isInterrupted())
        throw InterruptException(CK_SOURCE_FILE, __LINE__);
}
} // namespace archive
