#include <tarvo/streams/ckstreamreadbinary.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/streams/detail/stringheader.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\streams\\ckstreamreadbinary");
constexpr unsigned int lineShortRead = 60;
constexpr unsigned int lineNotWide = 75;
constexpr unsigned int lineCharacters = 110;

/// The longest text that a CString holds.
constexpr unsigned __int64 maximumLength = 0x7FFFFFFE;

/// Texts of up to this many units are read without an allocation of their own.
constexpr std::size_t shortLength = 256;

struct FreeMemory
{
    void operator()(WCHAR* memory) const noexcept { std::free(memory); }
};
} // namespace

CkStreamReadBinary::~CkStreamReadBinary() = default;

const CkRTTI& CkStreamReadBinary::GetRTTI() const
{
    return RTTI;
}

void CkStreamReadBinary::raiseShortRead()
{
    throw CkExceptionStream(source, lineShortRead);
}

unsigned __int64 CkStreamReadBinary::ReadBuffer(void* data, unsigned __int64 size)
{
    return read(data, size);
}

unsigned __int64 CkStreamReadBinary::readStringLength()
{
    using namespace tarvo::detail::stringheader;
    unsigned char byte = 0;
    unsigned short word = 0;
    *this >> byte >> word;
    if (byte != wideTagByte || word != wideTagWord)
        throw CkExceptionStream(source, lineNotWide);
    *this >> byte;
    if (byte < longerThanByte)
        return byte;
    *this >> word;
    if (word < longerThanWord)
        return word;
    unsigned int length32 = 0;
    *this >> length32;
    if (length32 < longerThanInt)
        return length32;
    unsigned __int64 length64 = 0;
    *this >> length64;
    return length64;
}

CkStreamRead& CkStreamReadBinary::operator>>(CString& value)
{
    const unsigned __int64 length = readStringLength();
    bool complete = false;
    try
    {
        complete = readCharacters(value, length);
    }
    catch (...)
    {
        // Reported below, whatever it was.
        tarvo::framework::discardException();
    }
    if (!complete)
        throw CkExceptionStream(source, lineCharacters);
    return *this;
}

bool CkStreamReadBinary::readCharacters(CString& value, unsigned __int64 length)
{
    if (length > maximumLength)
        return false;
    // Neither is initialised: what was not read is never looked at, and a length that the data does not have costs no
    // time.
    WCHAR nearby[shortLength];
    std::unique_ptr<WCHAR, FreeMemory> allocated;
    WCHAR* characters = nearby;
    const unsigned __int64 size = length * sizeof(WCHAR);
    if (length > shortLength)
    {
        allocated.reset(static_cast<WCHAR*>(std::malloc(size)));
        characters = allocated.get();
    }
    if (characters == nullptr || read(characters, size) != size)
        return false;
    const WCHAR* const end = std::find(characters, characters + length, WCHAR{0});
    value.SetString(characters, static_cast<int>(end - characters));
    return true;
}
