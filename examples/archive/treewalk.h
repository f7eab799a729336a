#pragma once

#include "platform.h"

#include <tarvo/tarvo.h>

#include <vector>

namespace archive
{
/// Goes through what the user has named and all that is in it: a folder before what it contains, names in the order of
/// their UTF-16 units.
///
/// Threads: one at a time.
/// Failure: an ArchiveException where a folder can't be read.
class TreeWalk
{
public:
    struct Item
    {
        platform::Folder::Pointer folder; ///< The one that it is in.
        CString name;
        CString path; ///< The path within the archive.
        platform::Kind kind = platform::Kind::other;
    };

    /// Checks that no two of the paths would be stored under one name, or one within another.
    explicit TreeWalk(const std::vector<CString>& paths);

    /// False when there is nothing more.
    bool Next(Item& item);

private:
    /// A folder on the way from what the user has named down to where the walk is.
    struct Level
    {
        platform::Folder::Pointer folder;
        CString path;
        std::vector<platform::Folder::Item> items; ///< From the last to the first.
    };

    void enter(platform::Folder::Pointer folder, const CString& path);
    bool begin(const CString& path, Item& item);

    std::vector<CString> m_paths; ///< Those to come, from the last to the first.
    std::vector<Level> m_levels;
};
} // namespace archive
