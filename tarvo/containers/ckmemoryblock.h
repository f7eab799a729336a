#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckreferencecountedclass.h>

#include <concepts>
#include <cstddef>
#include <cstdlib>

/// Storage from the heap (`malloc`), shared by reference count. Does not know its size.
///
/// Threads: references as for every reference-counted object; the storage for one thread at a time.
template <int N, class C>
class CkMemoryBlock : public CkReferenceCountedClass<CkMemoryBlock<N, C>, 0>
{
    static_assert(N == 0 && std::same_as<C, unsigned int>, "there is one kind of block");

public:
    /// Takes over `storage`.
    explicit CkMemoryBlock(void* storage) noexcept : m_storage(storage) {}
    CkMemoryBlock(const CkMemoryBlock&) = delete;
    CkMemoryBlock& operator=(const CkMemoryBlock&) = delete;
    ~CkMemoryBlock() override { std::free(m_storage); }

    void* GetStorage() const noexcept { return m_storage; }

    /// Changes the size to `size` bytes, not 0, and keeps the bytes up to the smaller size. False when there is no
    /// memory; the storage is as before then. For the only holder: others would go on using the old address.
    bool Resize(std::size_t size) noexcept
    {
        void* const resized = std::realloc(m_storage, size);
        if (resized == nullptr)
            return false;
        m_storage = resized;
        return true;
    }

private:
    void* m_storage;
};
