#include "platform.h"

#include "exceptions.h"
#include "names.h"

#include <utility>

// What is the same on both systems.

namespace archive::platform
{
File::File(Handle handle, CkSmartPointer<const Folder> folder, const CString& name) noexcept
    : m_handle(handle), m_folder(std::move(folder)), m_name(name)
{
}

File::File(File&& other) noexcept
    : m_handle(std::exchange(other.m_handle, noHandle)), m_folder(std::move(other.m_folder)),
      m_name(std::move(other.m_name))
{
}

File& File::operator=(File&& other) noexcept
{
    std::swap(m_handle, other.m_handle);
    m_folder.swap(other.m_folder);
    m_name.swap(other.m_name);
    return *this;
}

CString File::GetPath() const
{
    return m_folder ? m_folder->GetPathOf(m_name) : m_name;
}

void splitFilePath(const CString& path, CString& folder, CString& name)
{
    splitName(path, folder, name);
    if (name.IsEmpty())
        throw ArchiveException(CK_SOURCE_FILE, __LINE__,
                               CString::FromUtf8(makePrintable(path)) + CK_T(": is a folder"));
}
} // namespace archive::platform
