#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace tarvo::detail
{
/// The head of a block: the nodes follow, from the first address that suits them.
struct PlexBlock
{
    PlexBlock* previous; ///< The block that was obtained before.
};

/// A node that nobody uses: its first word leads to the next one.
struct PlexFreeNode
{
    PlexFreeNode* next;
};

/// Memory for `count` nodes at `stride` bytes from each other; null when it cannot be had.
TARVO_API PlexBlock* obtainPlexBlock(std::size_t count, std::size_t stride, std::size_t alignment) noexcept;

[[noreturn]] TARVO_API void raisePlexOutOfMemory();
TARVO_API void requirePlexBlockSize(bool positive);
} // namespace tarvo::detail

/// A pool of nodes of one size: hands them out of blocks from the heap and takes them back for the next one who asks,
/// the last returned first. Linked containers take their nodes from one, several of them from the same where they like.
///
/// `A` is 1 for a pool that locks itself, 0 for one that relies on a lock of its users. `C` counts the nodes of a
/// block.
///
/// Threads: with `A` = 1 every operation may be called from any thread and takes the pool's own lock, under which
/// nothing of the client runs; with `A` = 0 one thread at a time.
/// Lifetime: shared by reference. Blocks stay until the pool goes, and go whether or not their nodes are in use: what
/// is constructed in them must have been destroyed. The pool's memory only grows, unless `Take` replaces all of it.
/// Failure: `CkExceptionOutOfMemory` when no block can be had, the pool as it was; with `A` = 1 also what entering and
/// leaving a `CkCriticalSection` raises.
template <class Node, int A, int B, class C>
class CkPlexManager : public CkReferenceCountedClass<CkPlexManager<Node, A, B, C>, 0>, public CkCriticalSectionPolicy<A>
{
    static_assert(A == 0 || A == 1, "a pool locks itself (1) or does not (0)");
    static_assert(B == 0, "there is one kind of pool");
    static_assert(std::unsigned_integral<C> && sizeof(C) >= 4, "elements are counted in 32 or 64 bits");

public:
    /// `blockSize` nodes make one block; 0 raises `CkExceptionPreconditionViolation`. Obtains none yet.
    explicit CkPlexManager(C blockSize) : m_blockSize(blockSize)
    {
        tarvo::detail::requirePlexBlockSize(blockSize != 0);
    }

    CkPlexManager(const CkPlexManager&) = delete;
    CkPlexManager& operator=(const CkPlexManager&) = delete;

    ~CkPlexManager() override { freeBlocks(); }

    /// A node's memory, nothing constructed in it.
    void* AllocateNode()
    {
        void* const node = TryAllocateNode();
        // Raised without the lock: the exception is reported, and those who listen may use the pool.
        if (node == nullptr)
            tarvo::detail::raisePlexOutOfMemory();
        return node;
    }

    /// As `AllocateNode`, but null instead of `CkExceptionOutOfMemory`.
    void* TryAllocateNode() noexcept(A == 0)
    {
        const Lock guard(*this);
        if (m_free == nullptr && !obtainBlock())
            return nullptr;
        return std::exchange(m_free, m_free->next);
    }

    /// Takes back the memory of a node; what was constructed in it has been destroyed.
    void ReleaseNode(void* node) noexcept(A == 0)
    {
        const Lock guard(*this);
        pushFree(node);
    }

    /// Constructs a node; one whose constructor throws goes back.
    template <class... Arguments>
    Node* Create(Arguments&&... arguments)
    {
        return constructAt(AllocateNode(), std::forward<Arguments>(arguments)...);
    }

    /// As `Create`, but null instead of `CkExceptionOutOfMemory`.
    template <class... Arguments>
    Node* TryCreate(Arguments&&... arguments)
    {
        void* const memory = TryAllocateNode();
        return memory != nullptr ? constructAt(memory, std::forward<Arguments>(arguments)...) : nullptr;
    }

    /// Destroys a node made by one of the two.
    void Destroy(Node* node) noexcept(A == 0)
    {
        node->~Node();
        ReleaseNode(node);
    }

    /// Obtains one block unless a block's worth of nodes is free already.
    void PreallocateBlock()
    {
        if (!tryPreallocateBlock())
            tarvo::detail::raisePlexOutOfMemory();
    }

    /// Gives its blocks, none of whose nodes is in use, back to the heap and takes those of `other` and their size.
    /// `other` obtains new ones when it needs them.
    void Take(CkPlexManager& other) noexcept
        requires(A == 0)
    {
        freeBlocks();
        m_blocks = std::exchange(other.m_blocks, nullptr);
        m_free = std::exchange(other.m_free, nullptr);
        m_blockSize = other.m_blockSize;
    }

private:
    using Lock = typename CkCriticalSectionPolicy<A>::Lock;
    using FreeNode = tarvo::detail::PlexFreeNode;

    static constexpr std::size_t alignment = std::max(alignof(Node), alignof(FreeNode));
    static constexpr std::size_t stride = (std::max(sizeof(Node), sizeof(FreeNode)) + alignment - 1) & ~(alignment - 1);

    template <class... Arguments>
    Node* constructAt(void* memory, Arguments&&... arguments)
    {
        try
        {
            return ::new (memory) Node(std::forward<Arguments>(arguments)...);
        }
        catch (...)
        {
            ReleaseNode(memory);
            throw;
        }
    }

    void freeBlocks() noexcept
    {
        while (m_blocks != nullptr)
            std::free(std::exchange(m_blocks, m_blocks->previous));
    }

    void pushFree(void* node) noexcept { m_free = ::new (node) FreeNode{m_free}; }

    bool hasBlockOfFreeNodes() const noexcept
    {
        C missing = m_blockSize;
        for (const FreeNode* node = m_free; node != nullptr && missing != 0; node = node->next)
            --missing;
        return missing == 0;
    }

    bool tryPreallocateBlock()
    {
        const Lock guard(*this);
        return hasBlockOfFreeNodes() || obtainBlock();
    }

    /// Puts the nodes of a new block on the free list, the one at the highest address first.
    bool obtainBlock() noexcept
    {
        tarvo::detail::PlexBlock* const block = tarvo::detail::obtainPlexBlock(m_blockSize, stride, alignment);
        if (block == nullptr)
            return false;
        block->previous = std::exchange(m_blocks, block);
        const auto behindLink = reinterpret_cast<std::size_t>(block + 1);
        auto* node = reinterpret_cast<std::byte*>((behindLink + alignment - 1) & ~(alignment - 1));
        for (C left = m_blockSize; left != 0; --left, node += stride)
            pushFree(node);
        return true;
    }

    tarvo::detail::PlexBlock* m_blocks = nullptr; ///< The newest block.
    FreeNode* m_free = nullptr;
    C m_blockSize;
};
