#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/ckcontainer.h>
#include <tarvo/containers/cklistpolicies.h>
#include <tarvo/containers/ckplexmanager.h>
#include <tarvo/core/cksmartpointer.h>

#include <concepts>
#include <type_traits>
#include <utility>

// What the kinds of lists have in common, from the bottom up: the fields and the walk over them, the links of either
// kind, and the operations. Clients use CkList.

namespace tarvo::detail
{
inline constexpr int listIsCounted = 1;
inline constexpr int listIsSingleLinked = 8;
inline constexpr int listIsDoubleLinked = 16;

constexpr bool areListFlags(int flags) noexcept
{
    const int links = flags & ~listIsCounted;
    return links == listIsSingleLinked || links == listIsDoubleLinked;
}

[[noreturn]] TARVO_API void raiseListIsEmpty();
[[noreturn]] TARVO_API void raiseListIsNotEmpty();
} // namespace tarvo::detail

/// Head, tail, pool and count of a list, and the walk from head to tail. A position is the address of a node.
template <class T, int Flags, class C>
class CkListBase : public CkContainer<T>, public CkListPolicyElementCount<Flags & tarvo::detail::listIsCounted, C>
{
    static_assert(tarvo::detail::areListFlags(Flags),
                  "a list is single-linked (8) or double-linked (16), counted (+1)");

public:
    using Node = CkNodeLinked<T, (Flags & tarvo::detail::listIsDoubleLinked) != 0 ? 1 : 0>;
    using PlexManager = CkPlexManager<Node, 0, 0, C>;

    CkListBase(const CkListBase&) = delete;
    CkListBase& operator=(const CkListBase&) = delete;

    void init(void*& position) const override { position = m_head; }
    bool hasMoreElements(void* const& position) const override { return position != nullptr; }
    T& getElementAt(void* const& position) override { return static_cast<Node*>(position)->element; }
    const T& getElementAt(void* const& position) const override { return static_cast<Node*>(position)->element; }
    void step(void*& position) const override { position = static_cast<Node*>(position)->next; }

    bool IsEmpty() const noexcept { return m_head == nullptr; }

    /// The number of elements.
    C GetCount() const noexcept
        requires((Flags & tarvo::detail::listIsCounted) != 0)
    {
        return CkListPolicyElementCount<1, C>::GetCount();
    }

protected:
    explicit CkListBase(const CkSmartPointer<PlexManager>& pool) noexcept : m_pool(pool) {}

    CkListBase(CkListBase&& other) noexcept { take(other); }
    ~CkListBase() = default;

    /// Takes over all of `other`; the list is empty.
    void take(CkListBase& other) noexcept
    {
        m_head = std::exchange(other.m_head, nullptr);
        m_tail = std::exchange(other.m_tail, nullptr);
        m_pool = std::move(other.m_pool);
        this->absorbElementCount(other);
    }

    Node* unlinkHead() noexcept
    {
        Node* const node = std::exchange(m_head, m_head->next);
        if (m_head == nullptr)
            m_tail = nullptr;
        return node;
    }

    Node* m_head = nullptr;
    Node* m_tail = nullptr;
    CkSmartPointer<PlexManager> m_pool;
};

/// Links in both directions. What the head has before it is not looked at, so that taking it off need not touch the one
/// behind it.
template <class T, int Flags, class C>
class CkListPolicyDoubleLinked : public CkListBase<T, Flags, C>
{
    using Base = CkListBase<T, Flags, C>;

protected:
    using Base::Base;
    using typename Base::Node;

    void linkTail(Node* node) noexcept
    {
        node->next = nullptr;
        node->previous = this->m_tail;
        (this->m_tail != nullptr ? this->m_tail->next : this->m_head) = node;
        this->m_tail = node;
    }

    void linkHead(Node* node) noexcept
    {
        node->next = this->m_head;
        (this->m_head != nullptr ? this->m_head->previous : this->m_tail) = node;
        this->m_head = node;
    }

    Node* unlinkTail() noexcept
    {
        Node* const node = this->m_tail;
        if (node == this->m_head)
        {
            this->m_head = this->m_tail = nullptr;
            return node;
        }
        this->m_tail = node->previous;
        this->m_tail->next = nullptr;
        return node;
    }
};

/// Links forwards alone.
template <class T, int Flags, class C>
class CkListPolicySingleLinked : public CkListBase<T, Flags, C>
{
    using Base = CkListBase<T, Flags, C>;

protected:
    using Base::Base;
    using typename Base::Node;

    void linkTail(Node* node) noexcept
    {
        node->next = nullptr;
        (this->m_tail != nullptr ? this->m_tail->next : this->m_head) = node;
        this->m_tail = node;
    }

    void linkHead(Node* node) noexcept
    {
        node->next = this->m_head;
        if (this->m_head == nullptr)
            this->m_tail = node;
        this->m_head = node;
    }
};

/// The operations that all lists have.
template <class T, int Flags, class C>
class CkListBaseIntermediate
    : public std::conditional_t<(Flags & tarvo::detail::listIsDoubleLinked) != 0, CkListPolicyDoubleLinked<T, Flags, C>,
                                CkListPolicySingleLinked<T, Flags, C>>
{
    using Base = std::conditional_t<(Flags & tarvo::detail::listIsDoubleLinked) != 0,
                                    CkListPolicyDoubleLinked<T, Flags, C>, CkListPolicySingleLinked<T, Flags, C>>;

public:
    using typename Base::Node;
    using typename Base::PlexManager;

    /// Add an element, value-initialised or from `value`, which may belong to the list, and return it.
    T& AddTail() { return appended(newNode()); }
    T& AddTail(const T& value) { return appended(newNode(value)); }
    T& AddTail(T&& value) { return appended(newNode(std::move(value))); }
    T& AddHead() { return prepended(newNode()); }
    T& AddHead(const T& value) { return prepended(newNode(value)); }
    T& AddHead(T&& value) { return prepended(newNode(std::move(value))); }

    /// As `AddTail`, but false instead of `CkExceptionOutOfMemory`: for those who hold a lock, under which an exception
    /// should not be reported. `value` is moved from only where it was added.
    bool TryAddTail(T&& value)
    {
        Node* const node = pool().TryCreate(std::move(value));
        if (node != nullptr)
            appended(node);
        return node != nullptr;
    }

    /// The list is not empty.
    T& GetHead() noexcept { return existing(this->m_head).element; }
    const T& GetHead() const noexcept { return existing(this->m_head).element; }
    T& GetTail() noexcept { return existing(this->m_tail).element; }
    const T& GetTail() const noexcept { return existing(this->m_tail).element; }

    /// Remove an element; `CkExceptionPreconditionViolation` on an empty list.
    void RemoveHead()
    {
        if (this->IsEmpty())
            tarvo::detail::raiseListIsEmpty();
        destroy(this->unlinkHead());
    }

    void RemoveTail()
        requires((Flags & tarvo::detail::listIsDoubleLinked) != 0)
    {
        if (this->IsEmpty())
            tarvo::detail::raiseListIsEmpty();
        destroy(this->unlinkTail());
    }

    /// Empties the list first and then destroys the elements, from head to tail.
    void RemoveAll() noexcept
    {
        this->m_tail = nullptr;
        this->resetElementCount();
        PlexManager* const pool = this->m_pool.Get();
        for (Node* node = std::exchange(this->m_head, nullptr); node != nullptr;)
            pool->Destroy(std::exchange(node, node->next));
    }

    /// Makes `pool` the one that nodes come from. A list with elements raises `CkExceptionPreconditionViolation`.
    void SetPlexManager(const CkSmartPointer<PlexManager>& pool)
    {
        if (!this->IsEmpty())
            tarvo::detail::raiseListIsNotEmpty();
        this->m_pool = pool;
    }

protected:
    using Base::Base;

    CkListBaseIntermediate(CkListBaseIntermediate&&) noexcept = default;

    /// Elements whose destructors keep adding new ones to the list keep it from ending.
    ~CkListBaseIntermediate()
    {
        while (!this->IsEmpty())
            RemoveAll();
    }

private:
    template <class NodePointer>
    static auto& existing(NodePointer* node) noexcept
    {
        if (TARVO_CHECKED && node == nullptr)
            tarvo::detail::trap("an empty list was asked for an element");
        return *node;
    }

    template <class... Arguments>
    Node* newNode(Arguments&&... arguments)
    {
        return pool().Create(std::forward<Arguments>(arguments)...);
    }

    PlexManager& pool() noexcept
    {
        if (TARVO_CHECKED && !this->m_pool)
            tarvo::detail::trap("a list without a pool was given an element");
        return *this->m_pool;
    }

    T& appended(Node* node) noexcept
    {
        this->linkTail(node);
        this->incElementCount();
        return node->element;
    }

    T& prepended(Node* node) noexcept
    {
        this->linkHead(node);
        this->incElementCount();
        return node->element;
    }

    /// `node` is no longer linked, so that the destructor of its element finds a list without it.
    void destroy(Node* node) noexcept
    {
        this->decElementCount();
        this->m_pool->Destroy(node);
    }
};
