#pragma once

#include <tarvo/streams/ckstreamread.h>

/// Reads the storage format of CkStreamWriteBinary from the `read` of a derived class: one call for each value; for a
/// text those of its header and one for all its characters.
///
/// Failure: `CkExceptionStream` where the data ends early, a text does not begin with the wide-text tag, or its
/// characters cannot be had. A number that is cut short leaves its target with the bytes that did arrive, a bool and a
/// text leave it unchanged. What `read` raises passes on, except within the characters of a text. Where even an
/// exception cannot be had for want of memory, that failure is raised in its place.
class TARVO_API CkStreamReadBinary : public CkStreamRead
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    ~CkStreamReadBinary() override;

    using CkStreamRead::operator>>;

    /// Ends at the first zero unit, if one was stored.
    CkStreamRead& operator>>(CString& value) override;
    CkStreamRead& operator>>(double& value) override { return readScalar(value); }
    CkStreamRead& operator>>(float& value) override { return readScalar(value); }
    CkStreamRead& operator>>(__int64& value) override { return readScalar(value); }
    CkStreamRead& operator>>(unsigned __int64& value) override { return readScalar(value); }
    CkStreamRead& operator>>(int& value) override { return readScalar(value); }
    CkStreamRead& operator>>(unsigned int& value) override { return readScalar(value); }
    CkStreamRead& operator>>(short& value) override { return readScalar(value); }
    CkStreamRead& operator>>(unsigned short& value) override { return readScalar(value); }
    CkStreamRead& operator>>(signed char& value) override { return readScalar(value); }
    CkStreamRead& operator>>(unsigned char& value) override { return readScalar(value); }

    /// Any byte but 0 is true.
    CkStreamRead& operator>>(bool& value) override
    {
        unsigned char byte = 0;
        readScalar(byte);
        value = byte != 0;
        return *this;
    }

    /// Reads up to `size` bytes as they are and returns how many there were.
    virtual unsigned __int64 ReadBuffer(void* data, unsigned __int64 size);

protected:
    /// Copies up to `size` bytes to `data` and returns how many; fewer say that the data has ended.
    virtual unsigned __int64 read(void* data, unsigned __int64 size) = 0;

private:
    friend struct CkStreamReadBinaryPeer;

    template <class T>
    CkStreamRead& readScalar(T& value)
    {
        if (read(&value, sizeof value) != sizeof value)
            raiseShortRead();
        return *this;
    }

    /// Reads the header of a text and returns the number of its UTF-16 units.
    unsigned __int64 readStringLength();

    /// Reads `length` units and assigns those before the first zero; false where that cannot be done.
    bool readCharacters(CString& value, unsigned __int64 length);

    [[noreturn]] static void raiseShortRead();
};
