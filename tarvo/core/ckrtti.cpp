#include <tarvo/core/ckrtti.h>

#include <tarvo/core/detail/ckrttiregistration.h>

#include <algorithm>

namespace
{
/// The table that `GetBaseClassRTTI` describes.
std::unique_ptr<const CkRTTI*[]> makeTable(std::initializer_list<const CkRTTI*> bases)
{
    if (bases.size() == 0)
        return nullptr;
    auto table = std::make_unique<const CkRTTI*[]>(bases.size() + 1);
    table[0] = reinterpret_cast<const CkRTTI*>(bases.size());
    std::ranges::copy(bases, &table[1]);
    return table;
}
} // namespace

CkRTTI::CkRTTI(const CString& name, std::initializer_list<const CkRTTI*> bases, CreateFunction create,
               CloneFunction clone)
    : m_bases(makeTable(bases)), m_name(name)
{
    CkRTTIRegistration::Register(*this, create, clone);
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

CkRTTI::~CkRTTI() = default;

bool CkRTTI::isKindOfFurtherBase(const CkRTTI& rtti) const noexcept
{
    const CkRTTI* const* const first = &m_bases[2];
    return std::any_of(first, first + (countBases() - 1), [&rtti](const CkRTTI* base) { return base->IsKindOf(rtti); });
}
