#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/streams/ckstreamread.h>
#include <tarvo/streams/ckstreamwrite.h>

/// Base of classes whose objects have a name that is stored with them. Anybody (1) or only the class itself (0) may
/// change it.
///
/// Threads: one thread at a time, as for the name.
template <int N, class Text>
class CkIClassName;

template <>
class TARVO_API CkIClassName<0, CString>
{
public:
    CkIClassName() = default;
    explicit CkIClassName(const CString& name) : m_name(name) {}
    CkIClassName(const CkIClassName&) = default;
    CkIClassName& operator=(const CkIClassName&) = default;
    ~CkIClassName() = default;

    /// Bytes of the object and of what its name has allocated.
    virtual unsigned __int64 GetMemoryUsage() const;

    const CString& GetName() const noexcept { return m_name; }

    void Serialize(CkStreamWrite& stream) const { stream << m_name; }
    void Serialize(CkStreamRead& stream) { stream >> m_name; }

protected:
    void setName(const CString& name) { m_name = name; }

private:
    CString m_name;
};

template <>
class TARVO_API CkIClassName<1, CString> : public CkIClassName<0, CString>
{
public:
    using CkIClassName<0, CString>::CkIClassName;

    void SetName(const CString& name) { setName(name); }
};
