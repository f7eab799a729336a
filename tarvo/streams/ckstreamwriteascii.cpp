#include <tarvo/streams/ckstreamwriteascii.h>

#include <tarvo/core/ckformat.h>
#include <tarvo/platform/framework/numbertext.h>

#include <typeinfo>

using tarvo::framework::NumberText;

namespace
{
/// Narrow integers as `int`, which holds them all, and float as double.
template <class T>
auto widened(T value) noexcept
{
    return +value;
}

double widened(float value) noexcept
{
    return value;
}
} // namespace

CkStreamWriteASCII::~CkStreamWriteASCII() = default;

const CkRTTI& CkStreamWriteASCII::GetRTTI() const
{
    return RTTI;
}

template <class T>
inline CkStreamWrite& CkStreamWriteASCII::writeNumber(T value)
{
    // Exactly this class: one that derives from it may want to see every piece in its `write`.
    if (&typeid(*this) != &typeid(CkStreamWriteASCIIString))
        return writePiece(value);
    static_cast<CkStreamWriteASCIIString*>(this)->m_text.appendNumber(value);
    return *this;
}

template <class T>
CkStreamWrite& CkStreamWriteASCII::writePiece(T value)
{
    const NumberText text(value);
    return write(CString(text.Text(), text.Length()));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(const CString& value)
{
    return write(value);
}

CkStreamWrite& CkStreamWriteASCII::operator<<(bool value)
{
    return write(value ? CK_T("true") : CK_T("false"));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(double value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(float value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(__int64 value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(unsigned __int64 value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(int value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(unsigned int value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(short value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(unsigned short value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(signed char value)
{
    return writeNumber(widened(value));
}

CkStreamWrite& CkStreamWriteASCII::operator<<(unsigned char value)
{
    return writeNumber(widened(value));
}

CkStreamWriteASCII& CkStreamWriteASCII::operator<<(const CkStreamWriteASCIIString& stream)
{
    *this << *stream;
    return *this;
}

CkStreamWriteASCII& CkStreamWriteASCII::operator<<(const CkFormat& format)
{
    write(format);
    return *this;
}

void CkStreamWriteASCII::WriteAddress(const void* address)
{
    const NumberText digits(address);
    write(CK_T("0x") + CString(digits.Text(), digits.Length()));
}

CkStreamWriteASCIIString::~CkStreamWriteASCIIString() = default;

const CkRTTI& CkStreamWriteASCIIString::GetRTTI() const
{
    return RTTI;
}

CkStreamWrite& CkStreamWriteASCIIString::write(const CString& text)
{
    m_text.Append(text);
    return *this;
}

CkStreamWriteASCIITrace::~CkStreamWriteASCIITrace() = default;

const CkRTTI& CkStreamWriteASCIITrace::GetRTTI() const
{
    return RTTI;
}

CkStreamWrite& CkStreamWriteASCIITrace::write(const CString&)
{
    return *this;
}

CkStreamWriteASCIITraceDiagnostic::~CkStreamWriteASCIITraceDiagnostic() = default;

const CkRTTI& CkStreamWriteASCIITraceDiagnostic::GetRTTI() const
{
    return RTTI;
}

CkStreamWrite& CkStreamWriteASCIITraceDiagnostic::write(const CString&)
{
    return *this;
}
