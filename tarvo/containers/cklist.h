#pragma once

#include <tarvo/containers/cklistbaseintermediate.h>

/// A linked list whose nodes come from a pool: `CkList<T, 17, unsigned int>` is double-linked, `CkList<T, 9, …>`
/// single-linked; both count their elements in a `C`. Without the 1 they do not.
///
/// Threads: one at a time, also for all lists that share a pool.
/// Lifetime: an element stays where it is until it is removed; positions and iterators stay valid that long. It is
/// unlinked before it is destroyed, so its destructor may use the list, and so may its constructor; but neither may
/// give the list another pool, nor move, assign or destroy it.
/// Failure: adding raises `CkExceptionOutOfMemory` when the pool has no node, and what the constructor of the element
/// throws; the list is as before then.
template <class T, int Flags, class C>
class CkList final : public CkListBaseIntermediate<T, Flags, C>,
                     public CkListPolicyNotCloseable<T, Flags, C>,
                     public CkListPolicySerializable<T, Flags, 0, C>,
                     public CkListPolicyComparable<T, Flags, 0, C>
{
    using Base = CkListBaseIntermediate<T, Flags, C>;

public:
    using typename Base::PlexManager;

    /// A list with a pool of its own that obtains `blockSize` nodes at a time; 0 raises
    /// `CkExceptionPreconditionViolation`.
    explicit CkList(C blockSize = 10) : CkList(CkSmartPointer<PlexManager>(new PlexManager(blockSize))) {}

    /// A list that shares `pool`. One whose pool is null takes no elements before `SetPlexManager`.
    explicit CkList(const CkSmartPointer<PlexManager>& pool) noexcept : Base(pool) {}

    /// The elements and the pool move; `other` is empty then and has no pool.
    CkList(CkList&& other) noexcept : Base(std::move(other)) {}

    CkList& operator=(CkList&& other) noexcept
    {
        if (this != &other)
        {
            const CkList old(std::move(*this));
            this->take(other);
        }
        return *this;
    }
};
