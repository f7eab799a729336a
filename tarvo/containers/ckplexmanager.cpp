#include <tarvo/containers/ckplexmanager.h>

#include <tarvo/core/ckexception.h>

#include <limits>

namespace tarvo::detail
{
namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\containers\\ckplexmanager");
constexpr unsigned int lineBlockSize = 10;
constexpr unsigned int lineOutOfMemory = 20;
} // namespace

PlexBlock* obtainPlexBlock(std::size_t count, std::size_t stride, std::size_t alignment) noexcept
{
    // What the heap returns is aligned for the link, and the first node is at most this much further on.
    const std::size_t head = sizeof(PlexBlock) + (alignment - alignof(PlexBlock));
    if (count > (std::numeric_limits<std::size_t>::max() - head) / stride)
        return nullptr;
    return static_cast<PlexBlock*>(std::malloc(head + count * stride));
}

void raisePlexOutOfMemory()
{
    throw CkExceptionOutOfMemory(source, lineOutOfMemory);
}

void requirePlexBlockSize(bool positive)
{
    if (!positive)
        throw CkExceptionPreconditionViolation(source, lineBlockSize);
}
} // namespace tarvo::detail
