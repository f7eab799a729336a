#pragma once

#include <tarvo/core/cksmartpointer.h>

/// Knows a reference-counted object without owning it, and learns of its end.
///
/// Threads: a weak pointer is a value for one thread at a time, except that several may call `Lock` on it at once. The
/// object may meanwhile be used, released for the last time and destroyed on any threads.
/// Locks: one of a few process-wide locks, for some instructions; no code of a client runs under it.
/// Failure: nothing raises.
template <class T>
class CkWeakPointer
{
public:
    constexpr CkWeakPointer() noexcept = default;

    /// `object` is owned by a smart pointer of the caller's, or lives until the constructor has returned for another
    /// reason; null gives an empty weak pointer.
    explicit CkWeakPointer(T* object) noexcept { attach(object); }

    template <class U>
        requires std::convertible_to<U*, T*>
    CkWeakPointer(const CkSmartPointer<U>& pointer) noexcept : CkWeakPointer(static_cast<T*>(pointer.Get()))
    {
    }

    /// A copy needs no owner: the entry of `other` keeps the object from going meanwhile.
    CkWeakPointer(const CkWeakPointer& other) noexcept
    {
        other.whileAlive([this](T* object) { attachLocked(object); });
    }

    ~CkWeakPointer() { Reset(); }

    CkWeakPointer& operator=(const CkWeakPointer& other) noexcept
    {
        if (this != &other)
        {
            Reset();
            other.whileAlive([this](T* object) { attachLocked(object); });
        }
        return *this;
    }

    CkWeakPointer& operator=(const CkSmartPointer<T>& pointer) noexcept
    {
        Reset();
        attach(pointer.Get());
        return *this;
    }

    /// An owning pointer to the object; empty when the object's last reference has gone, or none was ever taken.
    CkSmartPointer<T> Lock() const noexcept
    {
        T* owned = nullptr;
        whileAlive(
            [&owned](T* object)
            {
                if (tryAdd(*object))
                    owned = object;
            });
        return CkSmartPointer<T>(owned, typename CkSmartPointer<T>::Adopt());
    }

    /// Whether the object has gone or none was given. False may be outdated at once: use `Lock`.
    bool IsExpired() const noexcept { return m_reference.target.load(std::memory_order_acquire) == nullptr; }

    /// Forgets the object.
    void Reset() noexcept
    {
        whileAlive([this](T* object) { static_cast<const Base*>(object)->detach(m_reference); });
    }

private:
    using Base = CkReferenceCountedClassBase;

    /// Calls `action` with the object, which cannot go meanwhile; does nothing when it has gone.
    template <class Action>
    void whileAlive(Action action) const noexcept
    {
        // Only the address is used until the lock is held: the object's end needs the lock to empty the entry.
        const Base* const target = m_reference.target.load(std::memory_order_acquire);
        if (target == nullptr)
            return;
        const Base::WeakLock lock(target);
        if (m_reference.target.load(std::memory_order_relaxed) != nullptr)
            action(m_object);
    }

    template <class U, int M>
    static bool tryAdd(const CkReferenceCountedClass<U, M>& object) noexcept
    {
        return object.tryAddReference();
    }

    void attach(T* object) noexcept
    {
        if (object == nullptr)
            return;
        const Base::WeakLock lock(object);
        attachLocked(object);
    }

    void attachLocked(T* object) noexcept
    {
        m_object = object;
        static_cast<const Base*>(object)->attach(m_reference);
    }

    CkWeakReference m_reference;
    T* m_object = nullptr; ///< Valid while the reference has a target.
};
