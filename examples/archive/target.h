#pragma once

#include "platform.h"

#include <tarvo/tarvo.h>

namespace archive
{
/// The folder that an archive is unpacked into. What is found or made in it is really within it: no link is followed on
/// the way.
///
/// Threads: one at a time.
/// Failure: an ArchiveException where a folder can't be opened or made, or is none but a link for instance.
class Target
{
public:
    /// Opens the folder, if it is there.
    explicit Target(const CString& path);

    bool IsThere() const noexcept { return static_cast<bool>(m_root); }

    /// Makes the folder, unless it is there.
    void Make();

    /// The folder in which `path` names something, and that name. With `make`, folders that are missing are made;
    /// without, the result is empty then.
    platform::Folder::Pointer OpenParent(const CString& path, CString& name, bool make);

    platform::Folder::Pointer OpenFolder(const CString& path);

private:
    platform::Folder::Pointer descend(platform::Folder::Pointer folder, const CString& path, bool make) const;

    const CString m_path;
    platform::Folder::Pointer m_root;

    // The latest parent, which is that of most that follows.
    CString m_parentPath;
    platform::Folder::Pointer m_parent;
};
} // namespace archive
