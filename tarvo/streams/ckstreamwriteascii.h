#pragma once

#include <tarvo/streams/ckstreamwrite.h>

class CkFormat;
class CkStreamWriteASCIIString;

/// Turns values into text, UTF-16 despite the name, and hands each piece to the `write` of a derived class. Adds no
/// separators: 1 and then 2 is 12.
///
/// | value                         | text                                                        |
/// |-------------------------------|-------------------------------------------------------------|
/// | bool                          | true or false                                               |
/// | integers, char among them     | decimal; char as unsigned                                   |
/// | float, double                 | fixed, six digits behind a `.` whatever the locale; inf, nan |
/// | CString, wide text            | itself                                                      |
///
/// Failure: none of its own; what `write` raises passes on, and allocation may fail as the text's does.
class TARVO_API CkStreamWriteASCII : public CkStreamWrite
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    ~CkStreamWriteASCII() override;

    using CkStreamWrite::operator<<;

    CkStreamWrite& operator<<(const CString& value) override;
    CkStreamWrite& operator<<(double value) override;
    CkStreamWrite& operator<<(float value) override;
    CkStreamWrite& operator<<(__int64 value) override;
    CkStreamWrite& operator<<(unsigned __int64 value) override;
    CkStreamWrite& operator<<(int value) override;
    CkStreamWrite& operator<<(unsigned int value) override;
    CkStreamWrite& operator<<(short value) override;
    CkStreamWrite& operator<<(unsigned short value) override;
    CkStreamWrite& operator<<(signed char value) override;
    CkStreamWrite& operator<<(unsigned char value) override;
    CkStreamWrite& operator<<(bool value) override;

    CkStreamWriteASCII& operator<<(const CkStreamWriteASCIIString& stream);
    CkStreamWriteASCII& operator<<(const CkFormat& format);

    /// Writes "0x" and the address in 16 upper-case hexadecimal digits.
    void WriteAddress(const void* address);

protected:
    /// Receives the next piece of text.
    virtual CkStreamWrite& write(const CString& text) = 0;

private:
    template <class T>
    TARVO_HIDDEN CkStreamWrite& writeNumber(T value);
    template <class T>
    [[gnu::noinline]] TARVO_HIDDEN CkStreamWrite& writePiece(T value);
};

/// Collects the text.
class TARVO_API CkStreamWriteASCIIString : public CkStreamWriteASCII
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;

    CkStreamWriteASCIIString() = default;
    explicit CkStreamWriteASCIIString(const CString& text) : m_text(text) {}
    CkStreamWriteASCIIString(const CkStreamWriteASCIIString&) = default;
    CkStreamWriteASCIIString& operator=(const CkStreamWriteASCIIString&) = default;
    ~CkStreamWriteASCIIString() override;

    /// In UTF-16 units.
    unsigned int GetLength() const noexcept { return static_cast<unsigned int>(m_text.GetLength()); }

    void Empty() { m_text.Empty(); }

    // The text so far; valid until the next write.
    operator const CString&() const noexcept { return m_text; }
    const CString* operator->() const noexcept { return &m_text; }
    const CString& operator*() const noexcept { return m_text; }

    /// Writes the text to `stream` as one value. Into this stream itself it doubles the text.
    void Serialize(CkStreamWrite& stream) const { stream << m_text; }

protected:
    CkStreamWrite& write(const CString& text) override;

private:
    // Numbers go straight into the text, without a CString in between.
    friend class CkStreamWriteASCII;

    CString m_text;
};

/// Discards the text: where a trace would go.
class TARVO_API CkStreamWriteASCIITrace : public CkStreamWriteASCII
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    ~CkStreamWriteASCIITrace() override;

protected:
    CkStreamWrite& write(const CString& text) override;
};

/// Discards the text: where a trace to the diagnostics client would go.
class TARVO_API CkStreamWriteASCIITraceDiagnostic : public CkStreamWriteASCII
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    ~CkStreamWriteASCIITraceDiagnostic() override;

protected:
    CkStreamWrite& write(const CString& text) override;
};
