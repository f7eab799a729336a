#pragma once

#include <tarvo/containers/ckarray.h>
#include <tarvo/platform/framework/cstring.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

/// Whether an object stays valid when its bytes are moved. What points into itself does not, as texts do whose short ones
/// lie within the object. The compiler cannot tell for a class with such a member, and believes it unless the class says
/// so: `template <> struct CkIsMovedAsBytes<Entry> : std::false_type {};`
template <class T>
struct CkIsMovedAsBytes : std::true_type
{
};

template <>
struct CkIsMovedAsBytes<CString> : std::false_type
{
};

template <class Unit, class Traits, class Allocator>
struct CkIsMovedAsBytes<std::basic_string<Unit, Traits, Allocator>> : std::false_type
{
};

/// A growable array of objects that own something: every element is constructed, copied and destroyed as an object.
///
/// An element stays valid when its bytes are moved (see CkIsMovedAsBytes): that is how elements make room for others, close gaps, turn and go
/// into new arrays, without being copied. Where the array takes new storage, it constructs the elements in it, assigns
/// them from the old ones and destroys those. Elements have a default, can be copied, and don't throw when destroyed.
/// Values passed by reference may be elements of the array itself. There is no stored form.
///
/// The array alone destroys its elements. Who else holds the block (`GetMemoryBlock`) keeps its bytes, but no objects:
/// what was destroyed or moved away is only the shadow of an element there.
///
/// Threads: one at a time. Takes no lock; the elements may.
/// Lifetime: as for every array. A class that derives and overrides `destruct` calls `RemoveAll` in its destructor: the
/// array's own comes too late.
/// Failure: what the elements raise, and `CkExceptionOutOfMemory`; the array is as before then. Only `Reset` leaves the
/// elements replaced that it had come to, as taking them back might fail again.
///
/// The slots behind the last element hold no object:
///
/// | slot    | construct, copyconstruct | destruct | moved in | moved away |
/// |---------|--------------------------|----------|----------|------------|
/// | empty   | element                  | -        | element  | -          |
/// | element | -                        | empty    | -        | empty      |
template <class T, int N>
class CkArrayManaged : public CkArray<T, N, CkArrayPolicyConstructDefault>
{
    static_assert(std::is_default_constructible_v<T> && std::is_copy_constructible_v<T>);
    static_assert(std::is_nothrow_destructible_v<T>);
    static_assert(CkIsMovedAsBytes<T>::value, "the array moves the bytes of its elements; let a list have these");

    using Base = CkArray<T, N, CkArrayPolicyConstructDefault>;

public:
    CkArrayManaged() noexcept : Base(typename Base::Managed()) {}

    /// `count` default elements.
    explicit CkArrayManaged(unsigned int count) : CkArrayManaged() { CkArrayManaged::SetCountManaged(count, 0); }

    /// A copy of the elements and the way of growing, with storage for just these.
    CkArrayManaged(const CkArrayManaged& other) : CkArrayManaged()
    {
        CkArrayManaged::SetMemoryElementCount(other.m_elementCount, 0);
        CkArrayManaged::AddTail(other);
        this->m_growStep = other.m_growStep;
    }

    CkArrayManaged(CkArrayManaged&& other) noexcept : CkArrayManaged() { this->take(other); }

    ~CkArrayManaged() override { CkArrayManaged::RemoveAll(); }

    /// Takes copies of the elements and the way of growing; the storage is then for just these.
    CkArrayManaged& operator=(const Base& other) override
    {
        if (static_cast<const Base*>(this) == &other)
            return *this;
        replaceStorage(other.m_elementCount, other.m_elementCount, other.m_data, other.m_elementCount);
        this->m_growStep = other.m_growStep;
        return *this;
    }

    CkArrayManaged& operator=(CkArrayManaged&& other) noexcept
    {
        Base::operator=(static_cast<Base&&>(other));
        return *this;
    }

    /// Assigns `value` to every element, or makes each a default one.
    void Reset(const T& value) override { Base::Reset(value); }

    void Reset() override
    {
        for (T& element : *this)
        {
            Place place;
            Pending fresh(*this, place.bytes);
            fresh.Construct();
            destruct(&element);
            fresh.MoveTo(&element);
        }
    }

    /// `SetCountManaged`.
    void SetCount(unsigned int count, int keep) override { SetCountManaged(count, keep); }

    // As for every array, these return 1 when they replaced the storage, else 0.

    int AddTail(const Base& other) override
    {
        const unsigned int added = other.m_elementCount;
        if (added == 0)
            return 0;
        const unsigned int sum = Base::checkedCount(std::size_t{this->m_elementCount} + added);
        const bool replaces = sum > this->m_memoryElementCount;
        // Where the storage goes, the copies are made aside: until all are there, nothing has changed.
        const typename Base::MemoryBlock aside =
            replaces ? tarvo::detail::newArrayBlock(Base::bytesOf(added)) : typename Base::MemoryBlock();
        Pending copies(*this, replaces ? aside->GetStorage() : this->end());
        for (const T* source = other.m_data; copies.GetCount() != added; ++source)
            copies.Copyconstruct(*source);
        if (replaces)
            enlarge(sum, 1);
        copies.MoveTo(this->end());
        this->m_elementCount = sum;
        return replaces ? 1 : 0;
    }

    int AddTail(const T& value) override { return insert(this->m_elementCount, &value, 1); }

    /// Appends a default element.
    int AddTail() override { return insert(this->m_elementCount, nullptr, 1); }

    /// As for every array, with a default element in the place of undefined content. But with `grow` 0 and without a
    /// value nothing is inserted before the last element, which would be the one to go.
    int InsertBefore(ULONG index, const T& value, int grow) override
    {
        return insert(this->before(index), &value, grow);
    }
    int InsertBefore(ULONG index, int grow) override { return insert(this->before(index), nullptr, grow); }
    int InsertAfter(ULONG index, const T& value, int grow) override
    {
        return insert(this->behind(index), &value, grow);
    }
    int InsertAfter(ULONG index, int grow) override { return insert(this->behind(index), nullptr, grow); }

    void Remove(ULONG index) override
    {
        destruct(&(*this)[index]);
        --this->m_elementCount;
        this->moveElements(index + std::size_t{1}, index, this->m_elementCount - index);
    }

    void RemoveAll() override { truncate(0); }

    /// As for every array. Without `keep` the elements that stay are default ones.
    int SetMemoryElementCount(ULONG count, int keep) override
    {
        if (count < this->m_elementCount && keep != 0)
            count = this->m_elementCount;
        const bool changes = count != this->m_memoryElementCount;
        if (changes)
            enlarge(count, keep);
        else if (count < this->m_elementCount)
            truncate(count);
        return changes ? 1 : 0;
    }

protected:
    /// Makes it storage for `count` elements. Those that have room are kept, or made anew if `keep` is 0.
    void enlarge(ULONG count, int keep) override
    {
        const unsigned int elements = std::min<unsigned int>(this->m_elementCount, count);
        replaceStorage(count, elements, this->m_data, keep != 0 ? elements : 0);
    }

public:
    /// As the assignment of any array.
    virtual CkArrayManaged& operator=(const CkArrayManaged& other) { return *this = static_cast<const Base&>(other); }

    /// Makes it `count` elements: default ones are added at the end, or those at the end destroyed. Where that takes
    /// new storage, it is for just these, and without `keep` all of them are default ones.
    virtual void SetCountManaged(ULONG count, int keep)
    {
        if (count > this->m_memoryElementCount)
            return replaceStorage(count, count, this->m_data, keep != 0 ? this->m_elementCount : 0);
        if (count < this->m_elementCount)
            return truncate(count);
        Pending added(*this, this->end());
        added.Construct(count - this->m_elementCount);
        added.MoveTo(this->end());
        this->m_elementCount = count;
    }

protected:
    /// The only ways in which a slot becomes an element and stops being one. Null: nothing.
    virtual void copyconstruct(T* slot, const T& source)
    {
        if (slot != nullptr)
            ::new (static_cast<void*>(slot)) T(source);
    }

    virtual void construct(T* slot)
    {
        if (slot != nullptr)
            ::new (static_cast<void*>(slot)) T();
    }

    virtual void destruct(T* element) noexcept
    {
        if (element != nullptr)
            element->~T();
    }

private:
    /// Memory on the stack for an element on its way into the array.
    struct Place
    {
        alignas(T) unsigned char bytes[sizeof(T)];
    };

    /// Elements that are not the array's yet: destroyed unless they are moved where they belong.
    class Pending
    {
    public:
        Pending(CkArrayManaged& array, void* place) noexcept : m_array(array), m_elements(static_cast<T*>(place)) {}
        Pending(const Pending&) = delete;
        Pending& operator=(const Pending&) = delete;
        ~Pending() { m_array.destroy(m_elements, m_count); }

        unsigned int GetCount() const noexcept { return m_count; }

        void Construct(unsigned int count = 1)
        {
            for (const unsigned int sum = m_count + count; m_count != sum; ++m_count)
                m_array.construct(m_elements + m_count);
        }

        void Copyconstruct(const T& source)
        {
            m_array.copyconstruct(m_elements + m_count, source);
            ++m_count;
        }

        /// Assigns the first ones, which have been constructed.
        void Assign(const T* source, unsigned int count) { std::copy_n(source, count, m_elements); }

        /// `slot` may be where they are.
        void MoveTo(T* slot) noexcept
        {
            if (m_count != 0 && slot != m_elements)
                std::memcpy(static_cast<void*>(slot), m_elements, Base::bytesOf(m_count));
            m_count = 0;
        }

    private:
        CkArrayManaged& m_array;
        T* const m_elements;
        unsigned int m_count = 0;
    };

    void destroy(T* elements, unsigned int count) noexcept
    {
        for (unsigned int i = 0; i != count; ++i)
            destruct(elements + i);
    }

    void truncate(unsigned int count) noexcept
    {
        const unsigned int before = std::exchange(this->m_elementCount, count);
        destroy(this->m_data + count, before - count);
    }

    /// Takes new storage for `memoryCount` elements, with `count` elements in it, of which the first `assigned` are
    /// assigned from `source`. Then destroys the old elements; the source may be among them.
    void replaceStorage(unsigned int memoryCount, unsigned int count, const T* source, unsigned int assigned)
    {
        const typename Base::MemoryBlock oldBlock = this->m_block;
        T* const oldElements = this->m_data;
        const unsigned int oldMemoryCount = this->m_memoryElementCount;
        const unsigned int oldCount = std::exchange(this->m_elementCount, 0); // none are seen meanwhile
        this->release();
        this->m_memoryElementCount = memoryCount;
        try
        {
            this->allocate();
            Pending elements(*this, this->m_data);
            elements.Construct(count);
            elements.Assign(source, assigned);
            elements.MoveTo(this->m_data);
        }
        catch (...)
        {
            this->setMemoryBlock(oldBlock);
            this->m_memoryElementCount = oldMemoryCount;
            this->m_elementCount = oldCount;
            throw;
        }
        this->m_elementCount = count;
        destroy(oldElements, oldCount);
    }

    /// Makes the element first, as `value` may be one that goes and making it may throw, and then room for it.
    int insert(std::size_t position, const T* value, int grow)
    {
        const std::size_t rest = this->m_elementCount - position;
        if (grow == 0 && (rest == 0 || (rest == 1 && value == nullptr)))
            return 0;
        Place place;
        Pending element(*this, place.bytes);
        element.Construct();
        if (value != nullptr)
            element.Assign(value, 1);
        const bool replaces = grow != 0 && this->m_elementCount == this->m_memoryElementCount;
        if (replaces)
            enlarge(this->getNewAllocCount(), 1);
        if (grow == 0)
            truncate(this->m_elementCount - 1);
        this->moveElements(position, position + 1, this->m_elementCount - position);
        element.MoveTo(this->m_data + position);
        ++this->m_elementCount;
        return replaces ? 1 : 0;
    }
};
