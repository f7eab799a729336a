#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/streams/ckstreamtypes.h>

/// Gives back, in the same order, the values that a CkStreamWrite took.
///
/// Widths, `long` and `using CkStreamRead::operator>>;` as for CkStreamWrite.
///
/// Threads: a stream is for one thread at a time.
/// Failure: whatever the concrete stream raises; `ReadAndCompareVersion` adds its own.
class TARVO_API CkStreamRead
{
public:
    static const CkRTTI RTTI;

    CkStreamRead() = default;
    CkStreamRead(const CkStreamRead&) = default;
    CkStreamRead& operator=(const CkStreamRead&) = default;

    virtual const CkRTTI& GetRTTI() const;
    virtual ~CkStreamRead();

    virtual CkStreamRead& operator>>(CString& value) = 0;
    virtual CkStreamRead& operator>>(double& value) = 0;
    virtual CkStreamRead& operator>>(float& value) = 0;
    virtual CkStreamRead& operator>>(__int64& value) = 0;
    virtual CkStreamRead& operator>>(unsigned __int64& value) = 0;
    virtual CkStreamRead& operator>>(int& value) = 0;
    virtual CkStreamRead& operator>>(unsigned int& value) = 0;
    virtual CkStreamRead& operator>>(short& value) = 0;
    virtual CkStreamRead& operator>>(unsigned short& value) = 0;
    virtual CkStreamRead& operator>>(signed char& value) = 0;
    virtual CkStreamRead& operator>>(unsigned char& value) = 0;
    virtual CkStreamRead& operator>>(bool& value) = 0;

    CkStreamRead& operator>>(char& value)
    {
        *this >> reinterpret_cast<unsigned char&>(value);
        return *this;
    }

    CkStreamRead& operator>>(WCHAR& value) { return readAs<unsigned short>(value); }
    CkStreamRead& operator>>(tarvo::detail::Long32& value) { return readAs<int>(value); }
    CkStreamRead& operator>>(tarvo::detail::ULong32& value) { return readAs<unsigned int>(value); }

    template <tarvo::detail::Long64 T>
    CkStreamRead& operator>>(T& value) = delete;

    /// Reads the version of the record that follows, written by `WriteVersion`, and returns it, so that the reader can
    /// branch to an older layout. Raises `CkExceptionWrongFileVersion` when it is newer than `currentVersion`, the
    /// reader's own; the version has been read then and nothing else.
    unsigned int ReadAndCompareVersion(unsigned int currentVersion);

    const CString& GetClassNameW() const { return GetRTTI().GetName(); }
    bool Is(const CkRTTI& rtti) const { return GetRTTI().Is(rtti); }
    bool IsKindOf(const CkRTTI& rtti) const { return GetRTTI().IsKindOf(rtti); }

private:
    template <class Stored, class T>
    CkStreamRead& readAs(T& value)
    {
        if constexpr (std::is_integral_v<T>) // there is no `NoLong` to read
        {
            Stored read = 0;
            *this >> read;
            value = static_cast<T>(read);
        }
        return *this;
    }
};
