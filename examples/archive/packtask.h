#pragma once

#include "budget.h"
#include "records.h"

#include <tarvo/tarvo.h>

#include <exception>
#include <list>
#include <optional>

namespace archive
{
/// A piece of the archive, ready to be written: an entry's record, the record of some contents behind it, or both.
struct Block
{
    Bytes entry{};
    Checksum entryChecksum = 0; ///< The one that the entry's record ends in, if there is one.
    Bytes contents{};
    bool hasContents = false;
    Checksum contentsChecksum = 0; ///< The same of the contents.
    unsigned __int64 cost = 0;     ///< What has been taken from the budget for it.

    unsigned __int64 GetSize() const noexcept
    {
        return entry.GetCount() + (hasContents ? contentsRecordSize(contents.GetCount()) : 0u);
    }
};

/// Makes a piece that has no contents.
Block makeBlock(const ArchiveEntry& entry);

/// What the tasks of one archive share.
struct PackContext
{
    std::atomic<bool> abandoned{false};           ///< Nobody wants the archive any more.
    std::atomic<unsigned __int64> awaitedTask{0}; ///< The number of the one that sets the event.
    CkEvent arrived{false}; ///< Set when that task has something to tell, or another waits for memory.
    Budget budget{24u << 20, arrived};
    platform::Status output;                ///< The file that the archive is written to.
    std::optional<platform::Status> former; ///< The archive that is there already.
};

/// Reads one file, checks that it doesn't change meanwhile, and makes the blocks of it.
///
/// Threads: runs on a worker of the pool; `Take` is for the one thread that writes.
/// Lifetime: the context outlives the task.
class PackTask : public CkTask
{
public:
    enum class State
    {
        working,
        hasBlock,
        done,
        passedOver, ///< The file is the archive itself.
        failed
    };

    PackTask(PackContext& context, unsigned __int64 number, platform::Folder::Pointer folder, const CString& name,
             const CString& path)
        : m_context(context), m_number(number), m_folder(std::move(folder)), m_name(name), m_path(path)
    {
    }

    const CString& GetPath() const noexcept { return m_path; }

    /// The next block, or why there is none.
    State Take(Block& block);

    /// Waits a while until the task has something to tell; false, and at once, if it has already.
    bool Await();

    /// Raises what has made the task fail.
    [[noreturn]] void RaiseFailure() const;

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override;

    /// Declines once the archive is abandoned.
    bool doNotRun() const override { return m_context.abandoned.load(std::memory_order_relaxed); }

    void onException(const CkException* exception) override;

private:
    bool readContents(platform::File& file, const platform::Status& status, Block& block);
    bool readPart(platform::File& file, unsigned __int64 rest, Block& block);
    [[noreturn]] void raiseChanged(unsigned int line) const;
    void deliver(Block&& block, bool isLast);
    void finish(State state);
    void tell();

    PackContext& m_context;
    const unsigned __int64 m_number;
    const platform::Folder::Pointer m_folder;
    const CString m_name;
    const CString m_path;

    CkCriticalSection m_lock; ///< Guards what follows.
    std::list<Block> m_blocks;
    State m_state = State::working; ///< What comes after the blocks.
    std::exception_ptr m_failure;
};
} // namespace archive
