#pragma once

#include <tarvo/streams/ckstreamwrite.h>

#include <cstddef>

/// Turns values into the storage format and hands the bytes to the `write` of a derived class, in order: one call for
/// each value; for a text those of its header and one for all its characters. Buffers nothing and allocates nothing.
///
/// Numbers are little-endian, without tags, alignment or padding; float and double are the IEEE 754 bit patterns; bool
/// is one byte, 0 or 1. A text is a header and then its UTF-16 units, without a terminator. The header, for n units:
///
/// | n          | header                                              |
/// |------------|-----------------------------------------------------|
/// | < 255      | FF FE FF, n in 1 byte                               |
/// | < 65534    | FF FE FF, FF, n in 2 bytes                          |
/// | < 2^32 - 1 | FF FE FF, FF, FF FF, n in 4 bytes                   |
/// | else       | FF FE FF, FF, FF FF, FF FF FF FF, n in 8 bytes      |
///
/// Failure: none of its own; what `write` raises passes on.
class TARVO_API CkStreamWriteBinary : public CkStreamWrite
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    ~CkStreamWriteBinary() override;

    using CkStreamWrite::operator<<;

    CkStreamWrite& operator<<(const CString& value) override
    {
        const auto length = static_cast<unsigned __int64>(value.GetLength());
        writeStringLength(length);
        return write(value.GetString(), length * sizeof(WCHAR));
    }

    CkStreamWrite& operator<<(double value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(float value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(__int64 value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(unsigned __int64 value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(int value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(unsigned int value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(short value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(unsigned short value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(signed char value) override { return write(&value, sizeof value); }
    CkStreamWrite& operator<<(unsigned char value) override { return write(&value, sizeof value); }

    CkStreamWrite& operator<<(bool value) override
    {
        const unsigned char byte = value ? 1 : 0;
        return write(&byte, sizeof byte);
    }

    /// Writes the bytes as they are, without their number.
    void WriteBuffer(const void* data, unsigned __int64 size) { write(data, size); }

protected:
    /// Delivers `size` bytes from `data`, which is valid for the call only.
    virtual CkStreamWrite& write(const void* data, unsigned __int64 size) = 0;

private:
    friend struct CkStreamWriteBinaryPeer;

    /// Writes the header of a text of `length` UTF-16 units.
    void writeStringLength(unsigned __int64 length);

    /// A stream that measures: what a serialisation into it counts is what the same serialisation writes to this one.
    /// The caller deletes it. Null when there is no memory.
    CkStreamWriteBinary* createChunkStream() const;

    /// The bytes that a stream made by `createChunkStream` has counted.
    unsigned __int64 getChunkSize(const CkStreamWriteBinary& chunk) const;
};

/// Counts the bytes that a serialisation makes, without looking at them.
class TARVO_API CkStreamWriteBinaryByteCount : public CkStreamWriteBinary
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;

    CkStreamWriteBinaryByteCount() = default;
    CkStreamWriteBinaryByteCount(const CkStreamWriteBinaryByteCount&) = default;
    CkStreamWriteBinaryByteCount& operator=(const CkStreamWriteBinaryByteCount&) = default;
    ~CkStreamWriteBinaryByteCount() override;

    /// Bytes since construction.
    unsigned __int64 GetByteCount() const noexcept { return m_byteCount; }

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override;

private:
    unsigned __int64 m_byteCount = 0;
};
