#include <tarvo/streams/ckpolylinebase.h>

CkPolyLineBase::CkPolyLineBase() noexcept = default;
CkPolyLineBase::CkPolyLineBase(const CkPolyLineBase&) noexcept = default;
CkPolyLineBase::~CkPolyLineBase() = default;

const CkRTTI& CkPolyLineBase::GetRTTI() const
{
    return RTTI;
}
