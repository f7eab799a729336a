#pragma once

#include "platform.h"

namespace archive
{
/// A name that nothing in the folder has, for what will get its own name when it is complete.
CString makePendingName(const platform::Folder& folder);

/// A file that is being written, under a name that is not the one it will have. It is removed unless it gets that name.
class PendingFile
{
public:
    /// `shared` as for `platform::Folder::MakeFile`.
    PendingFile(platform::Folder::Pointer folder, const CString& name, bool shared);
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile();

    platform::File& GetFile() noexcept { return m_file; }

    /// Closes the file and gives it its name; what has that name is replaced or the reason to fail.
    void Commit(bool replace);

private:
    const platform::Folder::Pointer m_folder;
    const CString m_name;
    CString m_pendingName; ///< Empty when there is nothing to remove.
    platform::File m_file;
};
} // namespace archive
