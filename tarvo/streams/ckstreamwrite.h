#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/streams/ckstreamtypes.h>

/// Takes values one by one; the concrete stream decides what becomes of them.
///
/// Every operator returns the stream, so writes chain. A derived stream that implements operators brings the others
/// along with `using CkStreamWrite::operator<<;`, or the missing types would convert to the wrong ones.
///
/// Integers have the same width on every platform: `LONG` and `ULONG` are 32 bits. Where C++'s own `long` has 64,
/// writing one does not compile; say `LONG` or `__int64`. Neither do pointers other than to wide text, nor characters
/// other than `char` and `WCHAR`.
///
/// Threads: a stream is for one thread at a time.
/// Failure: whatever the concrete stream raises.
class TARVO_API CkStreamWrite
{
public:
    static const CkRTTI RTTI;

    CkStreamWrite() = default;
    CkStreamWrite(const CkStreamWrite&) = default;
    CkStreamWrite& operator=(const CkStreamWrite&) = default;

    virtual const CkRTTI& GetRTTI() const;
    virtual ~CkStreamWrite();

    virtual CkStreamWrite& operator<<(const CString& value) = 0;
    virtual CkStreamWrite& operator<<(double value) = 0;
    virtual CkStreamWrite& operator<<(float value) = 0;
    virtual CkStreamWrite& operator<<(__int64 value) = 0;
    virtual CkStreamWrite& operator<<(unsigned __int64 value) = 0;
    virtual CkStreamWrite& operator<<(int value) = 0;
    virtual CkStreamWrite& operator<<(unsigned int value) = 0;
    virtual CkStreamWrite& operator<<(short value) = 0;
    virtual CkStreamWrite& operator<<(unsigned short value) = 0;
    virtual CkStreamWrite& operator<<(signed char value) = 0;
    virtual CkStreamWrite& operator<<(unsigned char value) = 0;
    virtual CkStreamWrite& operator<<(bool value) = 0;

    /// Writes the same 8 bits as an unsigned character.
    CkStreamWrite& operator<<(char value)
    {
        *this << static_cast<unsigned char>(value);
        return *this;
    }

    /// Writes the unit as an unsigned 16-bit number.
    CkStreamWrite& operator<<(WCHAR value)
    {
        *this << static_cast<unsigned short>(value);
        return *this;
    }

    // `long` and `unsigned long` where they have 32 bits; see `NoLong` for elsewhere.
    CkStreamWrite& operator<<(tarvo::detail::Long32 value)
    {
        *this << static_cast<int>(value);
        return *this;
    }

    CkStreamWrite& operator<<(tarvo::detail::ULong32 value)
    {
        *this << static_cast<unsigned int>(value);
        return *this;
    }

    /// Zero-terminated; null writes the empty text.
    CkStreamWrite& operator<<(const WCHAR* text) { return *this << CString(text); }
    CkStreamWrite& operator<<(const unsigned short* text) { return *this << CString(text); }

    template <tarvo::detail::Long64 T>
    CkStreamWrite& operator<<(T value) = delete;
    template <tarvo::detail::OtherCharacter T>
    CkStreamWrite& operator<<(T value) = delete;
    template <tarvo::detail::PointerButNotText P>
    CkStreamWrite& operator<<(P pointer) = delete;
    template <tarvo::detail::ConvertsToPointer T>
    CkStreamWrite& operator<<(const T& value) = delete;

    /// Marks the record that follows with the version of its format; see `CkStreamRead::ReadAndCompareVersion`.
    void WriteVersion(unsigned int version) { *this << version; }

    const CString& GetClassNameW() const { return GetRTTI().GetName(); }
    bool Is(const CkRTTI& rtti) const { return GetRTTI().Is(rtti); }
    bool IsKindOf(const CkRTTI& rtti) const { return GetRTTI().IsKindOf(rtti); }
};
