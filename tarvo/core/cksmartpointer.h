#pragma once

#include <tarvo/core/ckreferencecountedclass.h>

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

/// Owns a share of a reference-counted object; the last owner's end is the object's (see CkReferenceCountedClass).
///
/// `T` derives from `CkReferenceCountedClass` and may be const: a const object is counted as well. The other two
/// parameters name the form of counting; there is one, interlocked with 32 bits.
///
/// Threads: a smart pointer is a value for one thread at a time; pointers to the same object may be used on any
/// threads.
/// Failure: nothing raises. `->` and `*` of an empty pointer are the caller's error.
template <class T, int N = 1, class C = unsigned int>
class CkSmartPointer
{
    static_assert(N == 1 && std::same_as<C, unsigned int>, "interlocked 32-bit counting is the one form");

public:
    using element_type = T;

    constexpr CkSmartPointer() noexcept = default;
    constexpr CkSmartPointer(std::nullptr_t) noexcept {}

    /// Takes a reference to `object`, unless that is null.
    CkSmartPointer(T* object) noexcept : m_object(object)
    {
        if (m_object != nullptr)
            add(*m_object);
    }

    CkSmartPointer(const CkSmartPointer& other) noexcept : CkSmartPointer(other.m_object) {}
    CkSmartPointer(CkSmartPointer&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}

    template <class U>
        requires std::convertible_to<U*, T*>
    CkSmartPointer(const CkSmartPointer<U, N, C>& other) noexcept : CkSmartPointer(other.Get())
    {
    }

    template <class U>
        requires std::convertible_to<U*, T*>
    CkSmartPointer(CkSmartPointer<U, N, C>&& other) noexcept : m_object(std::exchange(other.m_object, nullptr))
    {
    }

    ~CkSmartPointer() { Reset(); }

    /// Take the new reference before they drop the old one, so the new object may belong to the old one; nothing is
    /// counted where both are the same object.
    CkSmartPointer& operator=(const CkSmartPointer& other) noexcept { return *this = other.m_object; }

    CkSmartPointer& operator=(T* object) noexcept
    {
        if (object != m_object)
            CkSmartPointer(object).swap(*this);
        return *this;
    }

    CkSmartPointer& operator=(CkSmartPointer&& other) noexcept
    {
        CkSmartPointer(std::move(other)).swap(*this);
        return *this;
    }

    CkSmartPointer& operator=(std::nullptr_t) noexcept
    {
        Reset();
        return *this;
    }

    /// Drops the reference. The pointer is empty before the object goes.
    void Reset() noexcept
    {
        if (T* const object = std::exchange(m_object, nullptr))
            drop(*object);
    }

    T* Get() const noexcept { return m_object; }

    T* operator->() const noexcept
    {
        if (TARVO_CHECKED && m_object == nullptr)
            tarvo::detail::trap("an empty smart pointer is used");
        return m_object;
    }

    T& operator*() const noexcept { return *operator->(); }

    explicit operator bool() const noexcept { return m_object != nullptr; }
    bool operator!() const noexcept { return m_object == nullptr; }

    void swap(CkSmartPointer& other) noexcept { std::swap(m_object, other.m_object); }

private:
    template <class U, int M, class D>
    friend class CkSmartPointer;
    template <class U>
    friend class CkWeakPointer;

    struct Adopt
    {
    };

    // By the base class, as `T` may have operations of the same names.
    template <class U, int M>
    static void add(const CkReferenceCountedClass<U, M>& object) noexcept
    {
        object.GetReference();
    }

    template <class U, int M>
    static void drop(const CkReferenceCountedClass<U, M>& object) noexcept
    {
        object.release();
    }

    /// Takes over a reference that was counted already.
    CkSmartPointer(T* object, Adopt) noexcept : m_object(object) {}

    T* m_object = nullptr;
};

template <class T, class U>
bool operator==(const CkSmartPointer<T>& left, const CkSmartPointer<U>& right) noexcept
{
    return left.Get() == right.Get();
}

template <class T, class U>
bool operator==(const CkSmartPointer<T>& left, const U* right) noexcept
{
    return left.Get() == right;
}

template <class T>
bool operator==(const CkSmartPointer<T>& left, std::nullptr_t) noexcept
{
    return !left;
}

/// By address.
template <class T, class U>
std::strong_ordering operator<=>(const CkSmartPointer<T>& left, const CkSmartPointer<U>& right) noexcept
{
    return std::compare_three_way()(left.Get(), right.Get());
}

template <class T>
struct std::hash<CkSmartPointer<T>>
{
    std::size_t operator()(const CkSmartPointer<T>& pointer) const noexcept { return std::hash<T*>()(pointer.Get()); }
};
