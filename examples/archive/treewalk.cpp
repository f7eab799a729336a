#include "treewalk.h"

#include "exceptions.h"
#include "names.h"

#include <algorithm>

namespace archive
{
namespace
{
/// Raises an ArchiveException if two of the paths are the same, or one leads to something within another.
void requireDistinct(const std::vector<CString>& paths)
{
    std::vector<CString> sorted;
    for (const CString& path : paths)
    {
        const CString stored = makeStoredPath(path);
        sorted.push_back(stored.IsEmpty() ? stored : stored + CK_T("/"));
    }
    std::sort(sorted.begin(), sorted.end());
    // With a "/" at the end of each, what is within a path comes right behind it.
    const auto isInside = [](const CString& outer, const CString& inner)
    { return inner.Left(outer.GetLength()) == outer; };
    const auto found = std::adjacent_find(sorted.begin(), sorted.end(), isInside);
    if (found != sorted.end())
    {
        const CString path = found[1].Left(found[1].GetLength() - 1);
        throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                               CString::FromUtf8(makePrintable(path)) + CK_T(": would be in the archive twice"));
    }
}
} // namespace

TreeWalk::TreeWalk(const std::vector<CString>& paths) : m_paths(paths.rbegin(), paths.rend())
{
    requireDistinct(paths);
}

bool TreeWalk::Next(Item& item)
{
    for (;;)
    {
        while (!m_levels.empty() && m_levels.back().items.empty())
            m_levels.pop_back();
        if (m_levels.empty())
        {
            if (m_paths.empty())
                return false;
            const CString path = m_paths.back();
            m_paths.pop_back();
            if (begin(path, item))
                return true;
            continue;
        }
        Level& level = m_levels.back();
        item.folder = level.folder;
        item.name = std::move(level.items.back().name);
        item.kind = level.items.back().kind;
        item.path = joinPath(level.path, item.name);
        level.items.pop_back();
        if (item.kind == platform::Kind::folder)
            enter(item.folder->OpenFolder(item.name), item.path);
        return true;
    }
}

/// Whether what the user has named is an item itself; of ".", for instance, only what is in it is.
bool TreeWalk::begin(const CString& path, Item& item)
{
    CString folder;
    platform::splitName(path, folder, item.name);
    item.folder = platform::Folder::Open(folder);
    item.path = makeStoredPath(path);
    if (item.name.IsEmpty())
    {
        enter(item.folder, item.path);
        return false;
    }
    item.kind = item.folder->GetStatus(item.name).kind;
    if (item.kind == platform::Kind::folder)
        enter(item.folder->OpenFolder(item.name), item.path);
    return true;
}

void TreeWalk::enter(platform::Folder::Pointer folder, const CString& path)
{
    Level level{folder, path, folder->GetItems()};
    std::sort(level.items.rbegin(), level.items.rend());
    m_levels.push_back(std::move(level));
}
} // namespace archive
