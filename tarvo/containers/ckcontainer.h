#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>

template <class T>
class CkContainer;

namespace tarvo::detail
{
/// Walks a container through its own iteration interface. `T` is const where the container is.
template <class T>
class ContainerIterator
{
    using Container = std::conditional_t<std::is_const_v<T>, const CkContainer<std::remove_const_t<T>>, CkContainer<T>>;

public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    /// The end of every container.
    ContainerIterator() noexcept = default;

    /// The same place for those who do not change elements.
    template <class U>
        requires(std::is_const_v<T> && std::is_same_v<U, value_type>)
    ContainerIterator(const ContainerIterator<U>& other) noexcept
        : m_container(other.m_container), m_position(other.m_position)
    {
    }

    /// The first element of `container`.
    explicit ContainerIterator(Container& container) : m_container(&container)
    {
        container.init(m_position);
        recognizeEnd();
    }

    reference operator*() const { return m_container->getElementAt(m_position); }
    pointer operator->() const { return &**this; }

    ContainerIterator& operator++()
    {
        m_container->step(m_position);
        recognizeEnd();
        return *this;
    }

    ContainerIterator operator++(int)
    {
        ContainerIterator before = *this;
        ++*this;
        return before;
    }

    bool operator==(const ContainerIterator&) const noexcept = default;

private:
    friend class ContainerIterator<const T>;

    void recognizeEnd()
    {
        if (!m_container->hasMoreElements(m_position))
            *this = ContainerIterator();
    }

    Container* m_container = nullptr; ///< Null at the end.
    void* m_position = nullptr;
};
} // namespace tarvo::detail

/// What every container offers: a walk over its elements, by a position that only the container understands.
///
///     void* position;
///     for (container.init(position); container.hasMoreElements(position); container.step(position))
///         use(container.getElementAt(position));
///
/// or, the same: `for (T& element : container)`.
///
/// A position, and an iterator, is valid until the container changes, unless the container says more.
template <class T>
class CkContainer
{
    static_assert(!std::is_const_v<T>, "the elements of a container are not const themselves");

public:
    using value_type = T;
    using iterator = tarvo::detail::ContainerIterator<T>;
    using const_iterator = tarvo::detail::ContainerIterator<const T>;

    /// Moves `position` to the first element.
    virtual void init(void*& position) const = 0;
    /// Whether there is an element at `position`; there is none behind the last.
    virtual bool hasMoreElements(void* const& position) const = 0;
    virtual T& getElementAt(void* const& position) = 0;
    virtual const T& getElementAt(void* const& position) const = 0;
    /// Moves `position`, where an element is, to the next one.
    virtual void step(void*& position) const = 0;

    iterator begin() { return iterator(*this); }
    iterator end() noexcept { return iterator(); }
    const_iterator begin() const { return const_iterator(*this); }
    const_iterator end() const noexcept { return const_iterator(); }

protected:
    CkContainer() noexcept = default;
    CkContainer(const CkContainer&) noexcept = default;
    CkContainer& operator=(const CkContainer&) noexcept = default;
    ~CkContainer() = default;
};
