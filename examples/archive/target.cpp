#include "target.h"

#include "names.h"

namespace archive
{
Target::Target(const CString& path) : m_path(path)
{
    CString parent;
    CString name;
    platform::splitName(path, parent, name);
    if (name.IsEmpty() || platform::Folder::Open(parent)->Exists(name))
        m_root = platform::Folder::Open(path);
}

void Target::Make()
{
    if (m_root)
        return;
    CString parent;
    CString name;
    platform::splitName(m_path, parent, name);
    platform::Folder::Open(parent)->MakeFolder(name);
    m_root = platform::Folder::Open(m_path);
}

platform::Folder::Pointer Target::OpenParent(const CString& path, CString& name, bool make)
{
    const int slash = path.ReverseFind(CK_T('/'));
    const CString parentPath = path.Left(slash);
    name = path.Mid(slash + 1);
    if (!m_parent || parentPath != m_parentPath)
    {
        m_parent = descend(m_root, parentPath, make);
        m_parentPath = parentPath;
    }
    return m_parent;
}

platform::Folder::Pointer Target::OpenFolder(const CString& path)
{
    return descend(m_root, path, false);
}

platform::Folder::Pointer Target::descend(platform::Folder::Pointer folder, const CString& path, bool make) const
{
    for (const CString& part : splitStoredPath(path))
    {
        if (make)
            folder->MakeFolder(part);
        else if (!folder->Exists(part))
            return nullptr;
        folder = folder->OpenFolder(part);
    }
    return folder;
}
} // namespace archive
