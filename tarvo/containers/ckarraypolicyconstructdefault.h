#pragma once

#include <cstring>
#include <type_traits>

/// How an array treats elements that are no more than their bytes: a new slot holds what its memory held, an element is
/// copied as bytes, and one that goes leaves nothing to do.
///
/// In the range of `copyconstruct` source and destination may overlap.
template <class T, int N>
class CkArrayPolicyConstructDefault
{
protected:
    void construct(T&) const noexcept {}
    void construct(T*, unsigned int) const noexcept {}
    void destruct(T&) const noexcept {}
    void destruct(T*, unsigned int) const noexcept {}

    void copyconstruct(T& destination, const T& source) const noexcept(std::is_nothrow_copy_assignable_v<T>)
    {
        destination = source;
    }

    void copyconstruct(const T* source, T* destination, unsigned int count) const noexcept
    {
        if (count != 0)
            std::memmove(static_cast<void*>(destination), source, std::size_t{count} * sizeof(T));
    }

    /// Fills the elements with zero bytes.
    void reset(T* elements, unsigned int count) const noexcept
    {
        if (count != 0)
            std::memset(static_cast<void*>(elements), 0, std::size_t{count} * sizeof(T));
    }
};
