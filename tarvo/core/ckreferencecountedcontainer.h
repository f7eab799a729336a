#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckinoncopyable.h>
#include <tarvo/core/ckreferencecountedclass.h>

#include <concepts>

/// A value of its own that smart and weak pointers count, but do not delete.
template <class T, class C>
class CkReferenceCountedContainer : public CkReferenceCountedClass<CkReferenceCountedContainer<T, C>, 1>,
                                    public CkINonCopyable
{
    static_assert(std::same_as<C, unsigned int>, "references are counted in 32 bits");

public:
    CkReferenceCountedContainer() noexcept = default;

    T& GetValue() noexcept { return m_value; }
    const T& GetValue() const noexcept { return m_value; }

private:
    T m_value{};
};

/// A new `CkReferenceCountedContainer<int, unsigned int>` of count 0 and value 0 from the pool of the process.
///
/// Threads: both functions may be called from any thread; the pool has a lock of its own.
/// Lifetime: smart pointers that let go of a container leave it in place until it is given back. When the library is
/// unloaded, the memory of all goes.
/// Failure: `CkExceptionOutOfMemory` when the pool cannot grow.
TARVO_API CkReferenceCountedClassBase* CreateReferenceCountedContainer();

/// Gives a container back, to which nobody holds a reference any more; null does nothing.
TARVO_API void ReleaseReferenceCountedContainer(const CkReferenceCountedClassBase* container);
