#include <tarvo/streams/ckbasetypes.h>

namespace tarvo::detail
{
BaseTypeRecord::BaseTypeRecord() noexcept = default;
BaseTypeRecord::BaseTypeRecord(const BaseTypeRecord&) noexcept = default;
BaseTypeRecord::~BaseTypeRecord() = default;

const CkRTTI& BaseTypeRecord::GetRTTI() const
{
    return RTTI;
}
} // namespace tarvo::detail

CkBool::~CkBool() = default;
CkInt8::~CkInt8() = default;
CkInt16::~CkInt16() = default;
CkInt32::~CkInt32() = default;
CkLong::~CkLong() = default;
CkInt64::~CkInt64() = default;
CkUInt8::~CkUInt8() = default;
CkUInt16::~CkUInt16() = default;
CkUInt32::~CkUInt32() = default;
CkULong::~CkULong() = default;
CkUInt64::~CkUInt64() = default;
CkFloat32::~CkFloat32() = default;
CkFloat64::~CkFloat64() = default;
CkChar::~CkChar() = default;
CkString::~CkString() = default;
