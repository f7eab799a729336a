#include <tarvo/streams/ckiserializable.h>

#include <tarvo/core/detail/ckrttiregistration.h>

CkISerializable::CkISerializable() noexcept = default;
CkISerializable::CkISerializable(const CkISerializable&) noexcept = default;
CkISerializable::~CkISerializable() = default;

const CkRTTI& CkISerializable::GetRTTI() const
{
    return RTTI;
}

CkSmartPointer<CkISerializable> CkISerializable::CreateByName(const CString& className)
{
    // Record and function from one look-up: between two another module might take over the name.
    const auto registration = CkRTTIRegistration::Find(className);
    if (registration.create == nullptr || !registration.record->IsKindOf(RTTI))
        return nullptr;
    return static_cast<CkISerializable*>(registration.create());
}
