#include <tarvo/containers/ckarray.h>

#include <tarvo/core/ckexception.h>

#include <cstdlib>
#include <new>

// Exported with every member. Clients instantiate what they use themselves all the same: not every platform exports
// members that are defined in their class.
template class TARVO_API CkArray<unsigned char, 0, CkArrayPolicyConstructDefault>;

namespace tarvo::detail
{
namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\containers\\ckarray");
constexpr unsigned int lineOutOfMemory = 10;
constexpr unsigned int lineValueCount = 20;
constexpr unsigned int lineFormat = 30;
constexpr unsigned int lineShortRead = 40;
} // namespace

CkSmartPointer<CkMemoryBlock<0, unsigned int>> newArrayBlock(unsigned __int64 size)
{
    void* const storage = std::malloc(size);
    if (storage != nullptr)
    {
        if (auto* const block = new (std::nothrow) CkMemoryBlock<0, unsigned int>(storage))
            return block;
        std::free(storage);
    }
    raiseArrayOutOfMemory();
}

void raiseArrayOutOfMemory()
{
    throw CkExceptionOutOfMemory(source, lineOutOfMemory);
}

void raiseArrayValueCount()
{
    throw CkExceptionPreconditionViolation(source, lineValueCount);
}

void raiseArrayFormat()
{
    throw CkExceptionWrongFileVersion(source, lineFormat);
}

void raiseArrayShortRead()
{
    throw CkExceptionStream(source, lineShortRead);
}
} // namespace tarvo::detail
