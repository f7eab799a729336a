#include <tarvo/core/ckrtti.h>

#include <tarvo/core/detail/ckrttiregistration.h>

#include <algorithm>

CkRTTI::CkRTTI(const CString& name, std::initializer_list<const CkRTTI*> bases, CreateFunction create,
               CloneFunction clone)
{
    if (bases.size() != 0)
    {
        m_bases = m_table.data();
        m_bases[0] = reinterpret_cast<const CkRTTI*>(bases.size());
        std::ranges::copy(bases, &m_bases[1]);
    }
    // Complete before others can find it.
    m_name.object = name;
    try
    {
        CkRTTIRegistration::Register(*this, create, clone);
    }
    catch (...)
    {
        forgetName();
        throw;
    }
}

CkRTTI::CkRTTI(const CString& name, CreateFunction create, CloneFunction clone) : CkRTTI(name, {}, create, clone) {}

CkRTTI::CkRTTI(const CString& name, const CkRTTI& base, CreateFunction create, CloneFunction clone)
    : CkRTTI(name, {&base}, create, clone)
{
}

CkRTTI::CkRTTI(const CString& name, const CkRTTI& base1, const CkRTTI& base2, CreateFunction create,
               CloneFunction clone)
    : CkRTTI(name, {&base1, &base2}, create, clone)
{
}

CkRTTI::CkRTTI(const CString& name, const CkRTTI& base1, const CkRTTI& base2, const CkRTTI& base3,
               CreateFunction create, CloneFunction clone)
    : CkRTTI(name, {&base1, &base2, &base3}, create, clone)
{
}

CkRTTI::~CkRTTI()
{
    if (tarvo::detail::isLeftToProcess())
        return;
    CkRTTIRegistration::Unregister(*this);
    forgetName();
}

const CkRTTI* CkRTTI::Find(const CString& name)
{
    return CkRTTIRegistration::Find(name).record;
}

CkRTTI::CreateFunction CkRTTI::getCreate(const CString& name)
{
    return CkRTTIRegistration::Find(name).create;
}

CkRTTI::CloneFunction CkRTTI::getClone(const CString& name)
{
    return CkRTTIRegistration::Find(name).clone;
}

bool CkRTTI::IsKindOf(const CString& name) const
{
    const CkRTTI* const rtti = Find(name);
    return rtti != nullptr && IsKindOf(*rtti);
}

void CkRTTI::forgetName() noexcept
{
    CString().swap(m_name.object);
}

bool CkRTTI::isKindOfFurtherBase(const CkRTTI& rtti) const noexcept
{
    const CkRTTI* const* const first = &m_bases[2];
    return std::any_of(first, first + (countBases() - 1), [&rtti](const CkRTTI* base) { return base->IsKindOf(rtti); });
}
