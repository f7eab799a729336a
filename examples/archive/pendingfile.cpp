#include "pendingfile.h"

#include <atomic>

namespace archive
{
CString makePendingName(const platform::Folder& folder)
{
    // What it is for is not part of it: that may be as long as a name can be.
    static std::atomic<unsigned int> s_count{0};
    for (;;)
    {
        const unsigned int number = s_count.fetch_add(1, std::memory_order_relaxed);
        const CString name = CkFormat(CK_T(".tarvo-%u-%u.part"), platform::getProcessNumber(), number);
        // One may be left over from a process of the same number that was ended by force.
        if (!folder.Exists(name))
            return name;
    }
}

PendingFile::PendingFile(platform::Folder::Pointer folder, const CString& name, bool shared)
    : m_folder(std::move(folder)), m_name(name)
{
    const CString pendingName = makePendingName(*m_folder);
    m_file = m_folder->MakeFile(pendingName, m_name, shared);
    m_pendingName = pendingName;
}

PendingFile::~PendingFile()
{
    if (m_pendingName.IsEmpty())
        return;
    m_file = platform::File(); // some systems remove no file that is open
    m_folder->TryRemove(m_pendingName);
}

void PendingFile::Commit(bool replace)
{
    m_file.Close();
    m_folder->Rename(m_pendingName, m_name, replace);
    m_pendingName.Empty();
}
} // namespace archive
