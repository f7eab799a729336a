#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/ckarraypolicyconstructdefault.h>
#include <tarvo/containers/ckcontainer.h>
#include <tarvo/containers/ckmemoryblock.h>
#include <tarvo/core/ckinttotype.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwritebinary.h>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace tarvo::detail
{
/// A block of `size` bytes. Raises `CkExceptionOutOfMemory`.
TARVO_API CkSmartPointer<CkMemoryBlock<0, unsigned int>> newArrayBlock(unsigned __int64 size);

[[noreturn]] TARVO_API void raiseArrayOutOfMemory();
[[noreturn]] TARVO_API void raiseArrayValueCount();
[[noreturn]] TARVO_API void raiseArrayFormat();
[[noreturn]] TARVO_API void raiseArrayShortRead();
} // namespace tarvo::detail

template <class T, int N>
class CkArrayManaged;

/// A growable array of elements that are no more than their bytes: trivially copyable, and as a new slot with whatever
/// its memory held. Arrays of other elements are `CkArrayManaged`s, and can only be used as such arrays.
///
/// `N` selects how elements are compared and stored: 0 all at once as bytes, 1 one by one (compared with the element's
/// own equality). Indexes are below the element count; only checked builds look. Values passed by reference may be
/// elements of the array itself. A class that derives says `using Base::operator=;`, or its own would hide this one.
///
/// The storage is a block of its own that may be shared (`GetMemoryBlock`). The array never resizes a block in place
/// that others hold: it takes a new one, and they keep the old.
///
/// Threads: one at a time. Blocks may be shared between arrays of different threads that only read them.
/// Lifetime: pointers, references and iterators are valid until the storage is replaced, which operations that return
/// an `int` say by returning 1, and until elements in front of theirs are inserted or removed. Removing elements leaves
/// the storage as it is; `SetMemoryElementCount` and assignment make it smaller as well.
/// Failure: `CkExceptionOutOfMemory` when storage cannot be had or there would be more than 2^32 - 1 elements; the
/// array is as before then, except while it is read from a stream.
///
/// | stored form        | bytes         | content                                                |
/// |--------------------|---------------|--------------------------------------------------------|
/// | mark               | 4             | 0xFFFFFFFF; older records begin with the count instead |
/// | version            | 4             | 1                                                      |
/// | count              | 4             | number of elements, below 0xFFFFFFFF                   |
/// | width              | 4             | bytes of one element                                   |
/// | elements           | count * width | as they lie in memory                                  |
template <class T, int N, template <class, int> class Policy>
class CkArray : public Policy<T, N>, public CkContainer<T>
{
    static_assert(N == 0 || N == 1, "elements are treated all at once (0) or one by one (1)");
    static_assert(std::is_copy_assignable_v<T>, "the elements of an array are assigned to");
    static_assert(sizeof(T) <= 0x10000, "values are on the stack while elements move");
    static_assert(alignof(T) <= alignof(std::max_align_t), "the heap aligns for fundamental types");

    static constexpr bool areBytes = std::is_trivially_copyable_v<T>;

public:
    using MemoryBlock = CkSmartPointer<CkMemoryBlock<0, unsigned int>, 1, unsigned int>;
    using iterator = T*;
    using const_iterator = const T*;

    /// Empty, without storage, growing exponentially.
    CkArray() noexcept
        requires(areBytes)
    = default;

    /// `count` elements of undefined content.
    explicit CkArray(unsigned int count)
        requires(areBytes)
        : m_elementCount(count), m_memoryElementCount(count)
    {
        CkArray::allocate();
    }

    /// The values, of which there must be `count`; anything else raises `CkExceptionPreconditionViolation`.
    template <class... Values>
        requires(areBytes && sizeof...(Values) != 0 && (std::convertible_to<Values, T> && ...))
    CkArray(unsigned int count, Values... values) : CkArray(requireCount(count, sizeof...(Values)))
    {
        T* slot = m_data;
        ((*slot++ = static_cast<T>(values)), ...);
    }

    /// A copy of the elements and the way of growing, with storage for just these.
    CkArray(const CkArray& other)
        requires(areBytes)
        : CkArray(other.m_elementCount)
    {
        m_growStep = other.m_growStep;
        this->copyconstruct(other.m_data, m_data, m_elementCount);
    }

    CkArray(CkArray&& other) noexcept
        requires(areBytes)
    {
        take(other);
    }

    void init(void*& position) const override { position = nullptr; }
    bool hasMoreElements(void* const& position) const override { return indexOf(position) < m_elementCount; }
    T& getElementAt(void* const& position) override { return m_data[indexOf(position)]; }
    const T& getElementAt(void* const& position) const override { return m_data[indexOf(position)]; }
    void step(void*& position) const override { position = reinterpret_cast<void*>(indexOf(position) + 1); }

    virtual ~CkArray() = default;

    /// Takes the elements and the way of growing; the storage is then for just these.
    virtual CkArray& operator=(const CkArray& other)
    {
        if (this == &other)
            return *this;
        SetMemoryElementCount(other.m_elementCount, 0);
        m_growStep = other.m_growStep;
        m_elementCount = other.m_elementCount;
        this->copyconstruct(other.m_data, m_data, m_elementCount);
        return *this;
    }

    CkArray& operator=(CkArray&& other) noexcept
    {
        if (this != &other)
        {
            RemoveAll();
            take(other);
        }
        return *this;
    }

    /// Assign `value`, or zero bytes, to every element.
    virtual void Reset(const T& value) { std::fill_n(m_data, m_elementCount, T(value)); }
    virtual void Reset() { this->reset(m_data, m_elementCount); }

    /// Makes it `count` elements; new ones are undefined. Where that takes new storage, it is for just these, and the
    /// old elements are in it if `keep` is not 0, else undefined.
    virtual void SetCount(unsigned int count, int keep)
    {
        if (count > m_memoryElementCount)
            enlarge(count, keep);
        m_elementCount = count;
    }

    // The operations from here to the insertions return 1 when they replaced or resized the storage, else 0.

    /// `AddTail` of an undefined element.
    virtual int Grow() { return AddTail(); }

    /// Appends the elements of `other`, which may be the array itself. New storage is for just the sum.
    virtual int AddTail(const CkArray& other)
    {
        const unsigned int added = other.m_elementCount;
        if (added == 0)
            return 0;
        const unsigned int sum = checkedCount(std::size_t{m_elementCount} + added);
        const bool replaces = sum > m_memoryElementCount;
        if (replaces)
            enlarge(sum, 1);
        this->copyconstruct(other.m_data, m_data + m_elementCount, added);
        m_elementCount = sum;
        return replaces ? 1 : 0;
    }

    virtual int AddTail(const T& value)
    {
        if (m_elementCount == m_memoryElementCount)
            return grow(&value);
        this->copyconstruct(m_data[m_elementCount], value);
        ++m_elementCount;
        return 0;
    }

    /// Appends an element of undefined content.
    virtual int AddTail()
    {
        if (m_elementCount == m_memoryElementCount)
            return grow(nullptr);
        ++m_elementCount;
        return 0;
    }

    /// Insert before or after the element at `index`, a `value` or undefined content. With `grow` 0 the count stays and
    /// the last element falls off the end; what would stand behind the end is then not inserted at all. An empty array
    /// takes what is inserted at 0 as its only element, if `grow` is not 0.
    virtual int InsertBefore(ULONG index, const T& value, int grow) { return insert(before(index), value, grow); }
    virtual int InsertBefore(ULONG index, int grow) { return makeRoom(before(index), grow); }
    virtual int InsertAfter(ULONG index, const T& value, int grow) { return insert(behind(index), value, grow); }
    virtual int InsertAfter(ULONG index, int grow) { return makeRoom(behind(index), grow); }

    virtual void Remove(ULONG index)
    {
        requireIndex(index);
        --m_elementCount;
        moveElements(index + std::size_t{1}, index, m_elementCount - index);
    }

    /// Leaves the storage as it is.
    virtual void RemoveAll() { m_elementCount = 0; }

    /// Makes room for `count` elements in all, and returns 1 when that changed the storage. A count below that of the
    /// elements is raised to it if `keep` is not 0, else it cuts them; without `keep` the content is undefined.
    virtual int SetMemoryElementCount(ULONG count, int keep)
    {
        if (count < m_elementCount && keep != 0)
            count = m_elementCount;
        const bool changes = count != m_memoryElementCount;
        if (changes)
            enlarge(count, keep);
        m_elementCount = std::min(m_elementCount, static_cast<unsigned int>(count));
        return changes ? 1 : 0;
    }

    unsigned int GetCount() const noexcept { return m_elementCount; }

    /// The number of elements that there is storage for.
    unsigned int GetMemoryElementCount() const noexcept { return m_memoryElementCount; }
    bool HasMemoryBlock() const noexcept { return static_cast<bool>(m_block); }

    /// Null without elements.
    T* GetData() noexcept { return m_elementCount != 0 ? m_data : nullptr; }
    const T* GetData() const noexcept { return m_elementCount != 0 ? m_data : nullptr; }

    T& operator[](ULONG index) noexcept { return m_data[requireIndex(index)]; }
    const T& operator[](ULONG index) const noexcept { return m_data[requireIndex(index)]; }
    T& GetHead() noexcept { return (*this)[0]; }
    const T& GetHead() const noexcept { return (*this)[0]; }
    T& GetTail() noexcept { return (*this)[m_elementCount - 1]; }
    const T& GetTail() const noexcept { return (*this)[m_elementCount - 1]; }

    iterator begin() noexcept { return m_data; }
    iterator end() noexcept { return m_data + m_elementCount; }
    const_iterator begin() const noexcept { return m_data; }
    const_iterator end() const noexcept { return m_data + m_elementCount; }

    /// Whether an element is equal to `value`.
    bool Exists(const T& value) const { return std::find(begin(), end(), value) != end(); }

    bool operator==(const CkArray& other) const
    {
        return m_elementCount == other.m_elementCount && isEqual(other, CkIntToType<N>());
    }

    /// An estimate in bytes.
    unsigned int GetMemoryUsage() const { return getElementSize() * m_elementCount + memoryOverhead; }

    /// One more reference to the storage; empty without any.
    MemoryBlock GetMemoryBlock() noexcept { return getMemoryBlock(); }
    MemoryBlock GetMemoryBlock() const noexcept { return getMemoryBlock(); }

    /// Full storage grows by `step` elements from now on; 0 is `SetGrowExponentially`.
    void SetGrowLinearly(unsigned int step) noexcept { m_growStep = step; }

    /// Full storage doubles.
    void SetGrowExponentially() noexcept { m_growStep = 0; }

    /// Do nothing when the array is empty.
    void RemoveHead()
    {
        if (m_elementCount != 0)
            Remove(0);
    }

    void RemoveTail()
    {
        if (m_elementCount != 0)
            Remove(m_elementCount - 1);
    }

    void Reverse()
    {
        if constexpr (areBytes)
            std::reverse(begin(), end());
        else
            for (std::size_t i = 0; i != m_elementCount / 2; ++i)
                std::swap_ranges(bytesAt(i), bytesAt(i + 1), bytesAt(m_elementCount - 1 - i));
    }

    /// Moves every element `amount` places towards the tail, those from the end to the front. `amount` is from -count
    /// to count.
    void Rotate(int amount)
    {
        const std::ptrdiff_t count = m_elementCount;
        const std::ptrdiff_t places = amount < 0 ? amount + count : amount;
        if (TARVO_CHECKED && (places < 0 || places > count))
            tarvo::detail::trap("an array was rotated by more than its length");
        if (places <= 0 || places >= count)
            return;
        if constexpr (areBytes)
            std::rotate(begin(), end() - places, end());
        else
            std::rotate(bytesAt(0), bytesAt(static_cast<std::size_t>(count - places)), bytesAt(m_elementCount));
    }

    /// Writes the elements with a "," between them.
    void Dump(CkStreamWrite& stream) const
    {
        const WCHAR* separator = CK_T("");
        for (const T& element : *this)
        {
            if (*separator != 0)
                stream << separator;
            stream << element;
            separator = CK_T(",");
        }
    }

    /// Writes the stored form.
    void Serialize(CkStreamWriteBinary& stream) const
        requires(areBytes)
    {
        stream << versionMark;
        stream.WriteVersion(storedVersion);
        stream << m_elementCount << storedWidth;
        if (m_elementCount != 0)
            serialize(stream, CkIntToType<N>());
    }

    /// Reads the stored form. A count that the data does not have takes no more memory and time than the data that
    /// there is.
    ///
    /// Failure: `CkExceptionWrongFileVersion` for another width, a newer version or a count of 0xFFFFFFFF, the array as
    /// before; `CkExceptionStream` where the elements end early; what the stream raises. An array whose elements were
    /// not all read is empty. The stream must not use the array meanwhile.
    void Serialize(CkStreamReadBinary& stream)
        requires(areBytes)
    {
        unsigned int count = 0;
        stream >> count;
        if (count == versionMark)
        {
            stream.ReadAndCompareVersion(storedVersion);
            stream >> count;
        }
        unsigned int width = 0;
        stream >> width;
        if (width != storedWidth || count == versionMark)
            tarvo::detail::raiseArrayFormat();
        readElements(stream, count);
    }

protected:
    /// For the managed array, whose elements may be more than their bytes.
    struct Managed
    {
    };

    explicit CkArray(Managed) noexcept {}

    /// Gives the array a new block for as many elements as it says it has memory for; none for 0.
    virtual void allocate()
    {
        if (m_memoryElementCount != 0)
            setMemoryBlock(tarvo::detail::newArrayBlock(bytesOf(m_memoryElementCount)));
    }

    /// Gives the array that much memory, in its block where it is the only holder, and keeps the bytes of the elements.
    virtual void reallocate()
    {
        if (!m_block)
            allocate();
        else if (m_block->GetReferenceCount() > 1)
            replaceBlock();
        else if (m_block->Resize(bytesOf(m_memoryElementCount)))
            m_data = static_cast<T*>(m_block->GetStorage());
        else
            tarvo::detail::raiseArrayOutOfMemory();
    }

    /// Gives up the storage. The element count stays.
    virtual void release()
    {
        m_block.Reset();
        m_data = nullptr;
        m_memoryElementCount = 0;
    }

    /// Makes it storage for `count` elements, with the elements in it if `keep` is not 0.
    virtual void enlarge(ULONG count, int keep)
    {
        if (count == 0)
            return release();
        const unsigned int before = std::exchange(m_memoryElementCount, static_cast<unsigned int>(count));
        try
        {
            // A new block takes over the elements alone; where they are all that there is, the heap may do better.
            if (keep != 0 && m_elementCount != 0 && m_elementCount != before)
                replaceBlock();
            else
                reallocate();
        }
        catch (...)
        {
            m_memoryElementCount = before;
            throw;
        }
    }

    /// The width of an element in bytes, for `GetMemoryUsage`.
    virtual unsigned int getElementSize() const { return storedWidth; }

    MemoryBlock getMemoryBlock() const noexcept { return m_block; }

    /// Makes `block` the storage. The counts stay; the caller sets them.
    void setMemoryBlock(MemoryBlock block) noexcept
    {
        m_block = std::move(block);
        m_data = m_block ? static_cast<T*>(m_block->GetStorage()) : nullptr;
    }

private:
    template <class, int>
    friend class CkArrayManaged;

    static constexpr unsigned int versionMark = 0xFFFFFFFF;
    static constexpr unsigned int storedVersion = 1;
    static constexpr auto storedWidth = static_cast<unsigned int>(sizeof(T));
    static constexpr unsigned int memoryOverhead = 76;

    /// So much is read before there is reason to believe in a larger count.
    static constexpr std::size_t firstPiece = std::max<std::size_t>(1, (std::size_t{64} << 20) / sizeof(T));

    static std::size_t indexOf(void* position) noexcept { return reinterpret_cast<std::size_t>(position); }
    static std::size_t bytesOf(std::size_t count) noexcept { return count * sizeof(T); }

    /// Where an element begins, for elements that move as bytes and must not be assigned to one another.
    unsigned char* bytesAt(std::size_t index) noexcept { return reinterpret_cast<unsigned char*>(m_data + index); }

    static unsigned int checkedCount(std::size_t count)
    {
        if (count > std::numeric_limits<unsigned int>::max())
            tarvo::detail::raiseArrayOutOfMemory();
        return static_cast<unsigned int>(count);
    }

    static unsigned int requireCount(unsigned int count, std::size_t values)
    {
        if (count != values)
            tarvo::detail::raiseArrayValueCount();
        return count;
    }

    ULONG requireIndex(ULONG index) const noexcept
    {
        if (TARVO_CHECKED && index >= m_elementCount)
            tarvo::detail::trap("an array was asked for an element that it does not have");
        return index;
    }

    /// Takes all of `other`, which is left empty and without storage. What room there is beyond the elements is not
    /// taken into account any more.
    void take(CkArray& other) noexcept
    {
        m_growStep = other.m_growStep;
        m_elementCount = m_memoryElementCount = std::exchange(other.m_elementCount, 0);
        setMemoryBlock(m_elementCount != 0 ? std::move(other.m_block) : MemoryBlock());
        other.setMemoryBlock(MemoryBlock());
        other.m_memoryElementCount = 0;
    }

    unsigned int getNewAllocCount() const
    {
        const std::size_t count = m_memoryElementCount;
        return checkedCount(m_growStep != 0 ? count + m_growStep : std::max<std::size_t>(1, 2 * count));
    }

    /// Appends `value`, or an undefined element, to full storage; always 1.
    int grow(const T* value)
    {
        if (value != nullptr)
            return growAndAppend(*value);
        enlarge(getNewAllocCount(), 1);
        ++m_elementCount;
        return 1;
    }

    /// By value: the one that was passed may be in the storage that goes.
    int growAndAppend(T value)
    {
        enlarge(getNewAllocCount(), 1);
        this->copyconstruct(m_data[m_elementCount], value);
        ++m_elementCount;
        return 1;
    }

    /// Takes a new block, with the elements in it as far as they have room.
    void replaceBlock()
    {
        const MemoryBlock old = m_block;
        const unsigned int count = m_memoryElementCount;
        release();
        m_memoryElementCount = count;
        try
        {
            allocate();
        }
        catch (...)
        {
            setMemoryBlock(old);
            throw;
        }
        if (old)
            this->copyconstruct(static_cast<T*>(old->GetStorage()), m_data, std::min(m_elementCount, count));
    }

    void moveElements(std::size_t from, std::size_t to, std::size_t count) noexcept
    {
        if (count != 0)
            std::memmove(static_cast<void*>(m_data + to), m_data + from, bytesOf(count));
    }

    // Where what is inserted will stand.

    std::size_t before(ULONG index) const noexcept { return index == 0 ? 0 : requireIndex(index); }

    std::size_t behind(ULONG index) const noexcept
    {
        return index == 0 && m_elementCount == 0 ? 0 : requireIndex(index) + std::size_t{1};
    }

    int makeRoom(std::size_t position, int grow)
    {
        const int replaced = grow != 0 ? AddTail() : 0;
        if (position + 1 < m_elementCount)
            moveElements(position, position + 1, m_elementCount - position - 1);
        return replaced;
    }

    int insert(std::size_t position, const T& value, int grow)
    {
        const T copy = value; // before it moves
        const int replaced = makeRoom(position, grow);
        if (position < m_elementCount)
            this->copyconstruct(m_data[position], copy);
        return replaced;
    }

    bool isEqual(const CkArray& other, CkIntToType<0>) const
    {
        if constexpr (areBytes)
            return m_elementCount == 0 || std::memcmp(m_data, other.m_data, bytesOf(m_elementCount)) == 0;
        else
            return isEqual(other, CkIntToType<1>());
    }

    bool isEqual(const CkArray& other, CkIntToType<1>) const { return std::equal(begin(), end(), other.begin()); }

    void serialize(CkStreamWriteBinary& stream, CkIntToType<0>) const
    {
        stream.WriteBuffer(m_data, bytesOf(m_elementCount));
    }

    void serialize(CkStreamWriteBinary& stream, CkIntToType<1>) const
    {
        for (const T& element : *this)
            stream.WriteBuffer(&element, sizeof element);
    }

    // Read the elements from `first` on.

    void serialize(CkStreamReadBinary& stream, unsigned int first, CkIntToType<0>)
    {
        readBytes(stream, m_data + first, bytesOf(m_elementCount - first));
    }

    void serialize(CkStreamReadBinary& stream, unsigned int first, CkIntToType<1>)
    {
        for (T* element = m_data + first; element != end(); ++element)
            readBytes(stream, element, sizeof *element);
    }

    static void readBytes(CkStreamReadBinary& stream, void* data, std::size_t size)
    {
        if (stream.ReadBuffer(data, size) != size)
            tarvo::detail::raiseArrayShortRead();
    }

    void readElements(CkStreamReadBinary& stream, unsigned int count)
    {
        SetCount(static_cast<unsigned int>(std::min<std::size_t>(count, firstPiece)), 0);
        try
        {
            for (unsigned int arrived = 0; arrived != m_elementCount;)
            {
                serialize(stream, arrived, CkIntToType<N>());
                arrived = m_elementCount;
                SetCount(arrived + std::min(arrived, count - arrived), 1);
            }
        }
        catch (...)
        {
            RemoveAll(); // what was not read is not shown
            throw;
        }
    }

    T* m_data = nullptr; ///< The block's storage; null without a block.
    unsigned int m_elementCount = 0;
    unsigned int m_memoryElementCount = 0;
    unsigned int m_growStep = 0; ///< 0: doubles.
    MemoryBlock m_block;
};
