#pragma once

#include <tarvo/config.h>

#include <utility>

// What lists are made of: their nodes and the small bases that each stand for one decision.

/// A node of a list that is linked in both directions (1) or forwards alone (0). The list sets the links.
template <class T, int N>
struct CkNodeLinked;

template <class T>
struct CkNodeLinked<T, 0>
{
    template <class... Arguments>
    explicit CkNodeLinked(Arguments&&... arguments) : element(std::forward<Arguments>(arguments)...)
    {
    }

    CkNodeLinked* next;
    T element;
};

template <class T>
struct CkNodeLinked<T, 1>
{
    template <class... Arguments>
    explicit CkNodeLinked(Arguments&&... arguments) : element(std::forward<Arguments>(arguments)...)
    {
    }

    CkNodeLinked* next;
    CkNodeLinked* previous;
    T element;
};

/// Counts elements (1) or does not (0): then there is nothing to ask, and the count is 0 whatever happens.
template <int N, class C>
class CkListPolicyElementCount
{
    static_assert(N == 1, "elements are counted (1) or not (0)");

public:
    CkListPolicyElementCount() noexcept = default;
    CkListPolicyElementCount(const CkListPolicyElementCount&) noexcept = default;
    CkListPolicyElementCount& operator=(const CkListPolicyElementCount&) noexcept = default;

    C GetCount() const noexcept { return m_count; }

protected:
    ~CkListPolicyElementCount() = default;

    void incElementCount() noexcept { ++m_count; }
    void decElementCount() noexcept { --m_count; }
    void resetElementCount() noexcept { m_count = 0; }

    /// Takes over what `other` has counted.
    void absorbElementCount(CkListPolicyElementCount& other) noexcept { m_count += std::exchange(other.m_count, C{0}); }

private:
    C m_count = 0;
};

template <class C>
class CkListPolicyElementCount<0, C>
{
public:
    C GetCount() const noexcept { return 0; }

protected:
    ~CkListPolicyElementCount() = default;

    void incElementCount() noexcept {}
    void decElementCount() noexcept {}
    void resetElementCount() noexcept {}
    void absorbElementCount(CkListPolicyElementCount&) noexcept {}
};

/// A list that takes elements as long as it lives.
template <class T, int Flags, class C>
class CkListPolicyNotCloseable
{
};

/// Whether a list stores itself in a binary stream. None does.
template <class T, int Flags, int N, class C>
class CkListPolicySerializable
{
    static_assert(N == 0, "lists do not store themselves");
};

/// Whether lists compare as a whole. None does.
template <class T, int Flags, int N, class C>
class CkListPolicyComparable
{
    static_assert(N == 0, "lists do not compare as a whole");
};
