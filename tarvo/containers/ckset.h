#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/ckcontainer.h>
#include <tarvo/containers/ckmap.h>
#include <tarvo/streams/ckidumpable.h>
#include <tarvo/streams/ckstreamwrite.h>

/// Whether a set stores itself in a binary stream. None does.
template <class T, int N, class C, int Switch>
class CkSetPolicySerializable
{
    static_assert(Switch == 0, "sets do not store themselves");
};

/// Whether a set holds an element several times. None does.
template <class T, int N, class C, int Switch>
class CkSetPolicyDuplicates : public CkContainer<T>, public CkSetPolicySerializable<T, N, C, 0>
{
    static_assert(Switch == 0, "sets hold an element once");

protected:
    CkSetPolicyDuplicates() noexcept = default;
    ~CkSetPolicyDuplicates() = default;
};

/// A set of elements, over a map from each to the number of times that it is there, which is 1.
///
/// What CkMap says of order, time, pool, `N` and `C`, threads, lifetime and failure holds for the set. Elements are not
/// changed through it.
template <class T, int N, class C>
class CkSet final : public CkIDumpable<0>, public CkSetPolicyDuplicates<T, N, C, 0>
{
public:
    explicit CkSet(C blockSize) : m_map(blockSize) {}

    void init(void*& position) const override { m_map.init(position); }
    bool hasMoreElements(void* const& position) const override { return m_map.hasMoreElements(position); }
    T& getElementAt(void* const& position) override { return m_map.getKeyAt(position); }
    const T& getElementAt(void* const& position) const override { return m_map.getKeyAt(position); }
    void step(void*& position) const override { m_map.step(position); }

    /// Writes a line feed for each element; elements do not describe themselves.
    virtual void Dump(CkStreamWrite& stream) const
    {
        for (C left = GetCount(); left != 0; --left)
            stream << CK_T("\n");
    }

    /// Adds `element` unless it is there already.
    void Add(const T& element) { m_map[element] = 1; }

    /// As `Add`, but false instead of `CkExceptionOutOfMemory`.
    bool TryAdd(const T& element)
    {
        C* const count = m_map.TryAdd(element);
        if (count != nullptr)
            *count = 1;
        return count != nullptr;
    }

    /// Removes `element`, if it is there, and returns whether it was.
    bool Remove(const T& element) { return m_map.RemoveKey(element); }
    void RemoveAll() noexcept { m_map.RemoveAll(); }

    bool Contains(const T& element) const { return m_map.Contains(element); }
    C GetCount() const noexcept { return m_map.GetCount(); }
    bool IsEmpty() const noexcept { return m_map.IsEmpty(); }

private:
    CkMap<T, C, N, C, CkHashKey<T>> m_map;
};
