#include <tarvo/streams/ckstreamread.h>

#include <tarvo/core/ckexception.h>

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\streams\\ckstreamread");
constexpr unsigned int lineNewerVersion = 43;
} // namespace

CkStreamRead::~CkStreamRead() = default;

const CkRTTI& CkStreamRead::GetRTTI() const
{
    return RTTI;
}

unsigned int CkStreamRead::ReadAndCompareVersion(unsigned int currentVersion)
{
    unsigned int storedVersion = 0;
    *this >> storedVersion;
    if (storedVersion > currentVersion)
        throw CkExceptionWrongFileVersion(source, lineNewerVersion);
    return storedVersion;
}
