#include "packtask.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>

namespace archive
{
namespace
{
/// How long the writer waits before it looks whether the user has asked it to stop.
constexpr unsigned int patienceMs = 100;

/// What a block costs beside its contents, so that many small ones count as well.
constexpr unsigned __int64 blockCost = 512;
} // namespace

Block makeBlock(const ArchiveEntry& entry)
{
    MemoryWriter memory;
    Block block;
    block.entryChecksum = appendEntry(memory, entry);
    block.entry = memory.TakeBytes();
    return block;
}

CkCheckReturn<bool, CkCheckReturnPolicyAssert> PackTask::doRun()
{
    platform::File file = m_folder->OpenToRead(m_name);
    const platform::Status status = file.GetStatus();
    if (status.kind != platform::Kind::file)
        raiseChanged(__LINE__);
    if (status.IsSameFile(m_context.output) || (m_context.former && status.IsSameFile(*m_context.former)))
    {
        finish(State::passedOver);
        return true;
    }
    ArchiveFile entry;
    entry.path = m_path;
    entry.permissions = status.permissions;
    entry.modified = status.modified;
    entry.size = status.size;
    Block block = makeBlock(entry);
    return readContents(file, status, block);
}

/// Delivers the block that has been begun and those after it. False when the archive is abandoned.
bool PackTask::readContents(platform::File& file, const platform::Status& status, Block& block)
{
    unsigned __int64 rest = status.size;
    do
    {
        const bool isLast = rest <= maximumContents;
        if (!readPart(file, rest, block))
            return false;
        rest -= block.contents.GetCount();
        // In front of the last delivery: after that the task might still fail, but not be heard.
        if (isLast && file.GetStatus() != status)
            raiseChanged(__LINE__);
        deliver(std::move(block), isLast);
        block = Block();
    } while (rest != 0);
    return true;
}

bool PackTask::readPart(platform::File& file, unsigned __int64 rest, Block& block)
{
    const auto size = static_cast<unsigned int>(std::min<unsigned __int64>(rest, maximumContents));
    block.cost = blockCost + size;
    if (!m_context.budget.Acquire(m_number, block.cost) || doNotRun())
        return false;
    // Of the last part one byte more is asked for, which isn't there unless the file has grown.
    const unsigned int asked = size + (rest == size ? 1 : 0);
    block.contents.SetCount(asked, 0);
    if (file.Read(block.contents.begin(), asked) != size)
        raiseChanged(__LINE__);
    block.contents.SetCount(size, 1);
    block.hasContents = size != 0;
    if (block.hasContents)
        block.contentsChecksum = checksumOfContents(block.contents);
    return true;
}

void PackTask::raiseChanged(unsigned int line) const
{
    throw ArchiveException(CK_SOURCE_FILE, line,
                           CString::FromUtf8(makePrintable(m_folder->GetPathOf(m_name))) +
                               CK_T(": the file has changed while it was read"));
}

void PackTask::onException(const CkException*)
{
    // Of whatever kind it was, the one who waits for the blocks raises it again.
    m_failure = std::current_exception();
    finish(State::failed);
}

void PackTask::deliver(Block&& block, bool isLast)
{
    {
        const CkCriticalSectionAuto guard(m_lock);
        m_blocks.push_back(std::move(block));
        if (isLast)
            m_state = State::done;
    }
    tell();
}

void PackTask::finish(State state)
{
    {
        const CkCriticalSectionAuto guard(m_lock);
        m_state = state;
    }
    tell();
}

/// Wakes the writer if it waits for this task. It says so first and looks for news then, under the lock that has just
/// been left: either it finds what is new there, or what it has said is seen here.
void PackTask::tell()
{
    if (m_context.awaitedTask.load(std::memory_order_relaxed) == m_number)
        m_context.arrived.Set();
}

PackTask::State PackTask::Take(Block& block)
{
    const CkCriticalSectionAuto guard(m_lock);
    if (m_blocks.empty())
        return m_state;
    block = std::move(m_blocks.front());
    m_blocks.pop_front();
    return State::hasBlock;
}

bool PackTask::Await()
{
    m_context.awaitedTask.store(m_number, std::memory_order_relaxed);
    {
        const CkCriticalSectionAuto guard(m_lock);
        if (!m_blocks.empty() || m_state != State::working)
            return false;
    }
    static_cast<void>(m_context.arrived.Wait(patienceMs));
    return true;
}

void PackTask::RaiseFailure() const
{
    std::rethrow_exception(m_failure);
}
} // namespace archive
