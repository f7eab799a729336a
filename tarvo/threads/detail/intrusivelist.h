#pragma once

namespace tarvo::detail
{
/// What an element of an IntrusiveList derives from. It is in one list at a time.
template <class T>
struct IntrusiveLinks
{
    T* next = nullptr;
    T* previous = nullptr;
};

/// A list that is linked through its elements, so that adding one needs no memory and removing one no search.
///
/// Threads: one at a time.
/// Lifetime: the elements are the caller's and outlive their stay in the list.
template <class T>
class IntrusiveList
{
public:
    unsigned int GetCount() const noexcept { return m_count; }
    bool IsEmpty() const noexcept { return m_head == nullptr; }

    /// The first element; null when the list is empty.
    T* GetHead() const noexcept { return m_head; }

    void AddHead(T& element) noexcept { insert(element, nullptr, m_head); }
    void AddTail(T& element) noexcept { insert(element, m_tail, nullptr); }

    /// Removes the first element and returns it; null when the list is empty.
    T* TakeHead() noexcept
    {
        T* const element = m_head;
        if (element == nullptr)
            return nullptr;
        m_head = element->next;
        (m_head != nullptr ? m_head->previous : m_tail) = nullptr;
        --m_count;
        return element;
    }

    void Remove(T& element) noexcept
    {
        (element.previous != nullptr ? element.previous->next : m_head) = element.next;
        (element.next != nullptr ? element.next->previous : m_tail) = element.previous;
        --m_count;
    }

private:
    void insert(T& element, T* previous, T* next) noexcept
    {
        element.previous = previous;
        element.next = next;
        (previous != nullptr ? previous->next : m_head) = &element;
        (next != nullptr ? next->previous : m_tail) = &element;
        ++m_count;
    }

    T* m_head = nullptr;
    T* m_tail = nullptr;
    unsigned int m_count = 0;
};
} // namespace tarvo::detail
