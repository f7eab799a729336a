#include <tarvo/streams/ckstreamwrite.h>

CkStreamWrite::~CkStreamWrite() = default;

const CkRTTI& CkStreamWrite::GetRTTI() const
{
    return RTTI;
}
