#pragma once

#include <tarvo/config.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <atomic>

class CkReferenceCountedClassBase;

template <class T, int N, class C>
class CkSmartPointer;

template <class T>
class CkWeakPointer;

/// What the holder of a weak reference enters in the object's list. Belongs to the holder.
struct CkWeakReference
{
    /// Null when the object is dead or none was given.
    std::atomic<const CkReferenceCountedClassBase*> target{nullptr};
    CkWeakReference* next = nullptr;
    CkWeakReference* previous = nullptr;
};

/// The part of a reference-counted object that does not depend on its class.
///
/// Threads: see CkReferenceCountedClass.
class TARVO_API CkReferenceCountedClassBase
{
public:
    CkReferenceCountedClassBase() noexcept = default;

    /// Copying an object copies neither its references nor its weak references.
    CkReferenceCountedClassBase(const CkReferenceCountedClassBase&) noexcept : CkReferenceCountedClassBase() {}
    CkReferenceCountedClassBase& operator=(const CkReferenceCountedClassBase&) noexcept { return *this; }

    virtual ~CkReferenceCountedClassBase() { clearWeakReferences(); }

    /// Whether the last release leaves the object to its owner instead of deleting it.
    virtual bool IsExternalManagement() const = 0;

protected:
    /// A lock that comes with the object, for the state of derived classes. Counting references never takes it: a lock
    /// inside an object cannot guard the end of that object.
    CkCriticalSection& objectLock() const noexcept { return m_lock; }

    /// Whether there ever was a weak reference to the object. One that has let go may have become a reference before.
    bool hadWeakReferences() const noexcept { return m_weakReferences.load(std::memory_order_relaxed) != nullptr; }

    /// Empties the weak references; the object is about to go.
    void clearWeakReferences() const noexcept
    {
        if (hadWeakReferences())
            clearWeakList();
    }

    /// Takes one reference off `count`; where that was the last, empties the weak references and does not touch the
    /// object again after its owner can know.
    void releaseExternal(std::atomic<LONG>& count) const noexcept;

private:
    template <class T>
    friend class CkWeakPointer;

    /// Guards the weak references of an object. A few such locks serve all objects of the process, because a holder
    /// that asks for an object's life must not touch a lock inside the object. Held for a few instructions; spins.
    class TARVO_API WeakLock
    {
    public:
        explicit WeakLock(const CkReferenceCountedClassBase* object) noexcept;
        WeakLock(const WeakLock&) = delete;
        WeakLock& operator=(const WeakLock&) = delete;
        ~WeakLock();

    private:
        CkCriticalSection& m_section;
    };

    /// The two are called under the object's WeakLock.
    void attach(CkWeakReference& reference) const noexcept;
    void detach(CkWeakReference& reference) const noexcept;

    void clearWeakList() const noexcept;
    void unlinkAll() const noexcept;

    /// Null until the first weak reference is registered; a mark that is none while the list is empty again.
    mutable std::atomic<CkWeakReference*> m_weakReferences{nullptr};
    mutable CkCriticalSection m_lock;
};

/// Base of objects that several owners share: `class Task : public CkReferenceCountedClass<Task, 0>`, held through
/// `CkSmartPointer`.
///
/// `N` is 0 for objects that the last release deletes, and 1 for those that it leaves to their owner. It alone decides;
/// `IsExternalManagement` tells it to those who know only the base.
///
/// Threads: references may be added and released on any threads at once. Takes no lock, except while weak references to
/// the object exist: then the last release takes a process-wide lock for a few instructions.
/// Lifetime: born with count 0; an object that no smart pointer ever held is destroyed by its owner in the ordinary
/// way.
///
/// | count | add | release                                                      | weak reference |
/// |-------|-----|--------------------------------------------------------------|----------------|
/// | 0     | 1   | never done                                                   | gives none     |
/// | 1     | 2   | 0: weak references are emptied; `N` 0: the object is deleted | gives one more |
/// | n     | n+1 | n - 1: the releasing thread must not touch the object again  | gives one more |
template <class T, int N>
class CkReferenceCountedClass : public CkReferenceCountedClassBase
{
    static_assert(N == 0 || N == 1);

public:
    CkReferenceCountedClass() noexcept = default;
    CkReferenceCountedClass(const CkReferenceCountedClass& other) noexcept : CkReferenceCountedClassBase(other) {}
    CkReferenceCountedClass& operator=(const CkReferenceCountedClass&) noexcept { return *this; }
    ~CkReferenceCountedClass() override = default;

    bool IsExternalManagement() const final { return N == 1; }

    /// The number of references at this moment; another thread may change it at once.
    LONG GetReferenceCount() const noexcept { return m_referenceCount.load(std::memory_order_acquire); }

private:
    template <class U, int M, class C>
    friend class CkSmartPointer;
    template <class U>
    friend class CkWeakPointer;
    friend struct CkReferenceCountedClassPeer;

    /// Add a reference and return the object.
    T& GetReference() noexcept
    {
        m_referenceCount.fetch_add(1, std::memory_order_relaxed);
        return static_cast<T&>(*this);
    }

    const T& GetReference() const noexcept
    {
        m_referenceCount.fetch_add(1, std::memory_order_relaxed);
        return static_cast<const T&>(*this);
    }

    /// Takes one reference off and does nothing else; returns the count after. Release orders what this thread did with
    /// the object before the deletion, acquire the deletion after what all others did.
    LONG ReleaseReference() const noexcept { return m_referenceCount.fetch_sub(1, std::memory_order_acq_rel) - 1; }

    /// Adds a reference unless there is none; a count that has reached 0 stays there. Under the object's WeakLock.
    bool tryAddReference() const noexcept
    {
        LONG count = m_referenceCount.load(std::memory_order_relaxed);
        while (count != 0)
        {
            if (m_referenceCount.compare_exchange_weak(count, count + 1, std::memory_order_relaxed))
                return true;
        }
        return false;
    }

    /// Whether nobody but the caller, who holds a reference, can reach the object: no other reference exists, and from
    /// no weak reference can one come. Then the last release needs no interlocked operation. The order matters: a weak
    /// reference that came after the look at the count would have been made by another reference's holder.
    bool isSoleReference() const noexcept
    {
        return m_referenceCount.load(std::memory_order_acquire) == 1 && !hadWeakReferences();
    }

    /// Gives up one reference, and the object with the last one.
    void release() const noexcept
    {
        if constexpr (N == 1)
            releaseExternal(m_referenceCount);
        else if (isSoleReference())
        {
            m_referenceCount.store(0, std::memory_order_relaxed);
            delete this;
        }
        else if (ReleaseReference() == 0)
        {
            clearWeakReferences();
            delete this;
        }
    }

    mutable std::atomic<LONG> m_referenceCount{0};
};
