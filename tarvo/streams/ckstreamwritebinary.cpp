#include <tarvo/streams/ckstreamwritebinary.h>

#include <tarvo/streams/detail/stringheader.h>

#include <new>

CkStreamWriteBinary::~CkStreamWriteBinary() = default;

const CkRTTI& CkStreamWriteBinary::GetRTTI() const
{
    return RTTI;
}

void CkStreamWriteBinary::writeStringLength(unsigned __int64 length)
{
    using namespace tarvo::detail::stringheader;
    *this << wideTagByte << wideTagWord;
    if (length < longerThanByte)
    {
        *this << static_cast<unsigned char>(length);
        return;
    }
    *this << longerThanByte;
    if (length < wordLimit)
    {
        *this << static_cast<unsigned short>(length);
        return;
    }
    *this << longerThanWord;
    if (length < longerThanInt)
        *this << static_cast<unsigned int>(length);
    else
        *this << longerThanInt << length;
}

CkStreamWriteBinary* CkStreamWriteBinary::createChunkStream() const
{
    return new (std::nothrow) CkStreamWriteBinaryByteCount;
}

unsigned __int64 CkStreamWriteBinary::getChunkSize(const CkStreamWriteBinary& chunk) const
{
    return static_cast<const CkStreamWriteBinaryByteCount&>(chunk).GetByteCount();
}

CkStreamWriteBinaryByteCount::~CkStreamWriteBinaryByteCount() = default;

const CkRTTI& CkStreamWriteBinaryByteCount::GetRTTI() const
{
    return RTTI;
}

CkStreamWrite& CkStreamWriteBinaryByteCount::write(const void*, unsigned __int64 size)
{
    m_byteCount += size;
    return *this;
}
