#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/ckcontainer.h>
#include <tarvo/containers/ckhashkey.h>
#include <tarvo/containers/ckmapindex.h>
#include <tarvo/containers/ckplexmanagerpolicy.h>
#include <tarvo/streams/ckidumpable.h>
#include <tarvo/streams/ckstreamwrite.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

struct CkMapTypes
{
    /// An entry of a map.
    template <class K, class V>
    struct SAssociation
    {
        SAssociation(const K& newKey, unsigned int newHash) : key(newKey), value(), hash(newHash) {}

        K key;
        V value;
        SAssociation* next = nullptr; ///< In the chain of its bucket.
        unsigned int bucketIndex = 0;
        unsigned int hash;
        SAssociation** link = nullptr; ///< What points at this entry: its bucket, or the `next` of the one before.
    };
};

/// A hash map from `K` to `V`: 17 buckets, whatever the count, each a chain with the newest entry first.
///
/// That is the order of iteration. From some tens of entries on the map also keeps an index, so that finding, adding
/// and removing take the same time in a map of any size.
///
/// The associations come from a pool: within the map (`N` = 2), or held by reference (`N` = 0). `C` counts them. `Hash`
/// gives the hash of a key, keys are compared with `==`.
///
/// Threads: one at a time.
/// Lifetime: entries stay where they are until they are removed; positions, iterators and pointers to values stay valid
/// that long. An entry is detached before it is destroyed, so destructors of keys and values may use the map, but not
/// move, assign or destroy it; constructors must not use it. A map that was moved from is empty; with `N` = 0 it has no
/// pool then and takes no entries, as one of block size 0.
/// Failure: adding raises `CkExceptionOutOfMemory` when the pool has no memory, and what copying the key and
/// constructing the value throw; the map is as before then. Without memory for an index only the time suffers.
template <class K, class V, int N, class C, class Hash = CkHashKey<K>>
class CkMap final
    : public CkCriticalSectionPolicy<0>,
      public CkPlexManagerPolicy<CkMap<K, V, N, C, Hash>, CkMapTypes::SAssociation<K, V>, N == 2 ? 1 : 0, 0, C>,
      public CkIDumpable<0>,
      public CkContainer<V>
{
    static_assert(N == 0 || N == 2, "the pool of a map is held by reference (0) or a part of the map (2)");

    using PoolPolicy = CkPlexManagerPolicy<CkMap, CkMapTypes::SAssociation<K, V>, N == 2 ? 1 : 0, 0, C>;
    using Association = CkMapTypes::SAssociation<K, V>;

public:
    /// The pool obtains `blockSize` associations at a time. A block size of 0 raises
    /// `CkExceptionPreconditionViolation` with `N` = 2; with `N` = 0 it makes a map that takes no entries.
    explicit CkMap(C blockSize) : PoolPolicy(blockSize) {}

    CkMap(const CkMap&) = delete;
    CkMap& operator=(const CkMap&) = delete;

    /// The entries stay where they are.
    CkMap(CkMap&& other) noexcept : PoolPolicy(N == 2 ? 1 : 0) { take(other); }

    CkMap& operator=(CkMap&& other) noexcept
    {
        if (this != &other)
        {
            removeEverything();
            take(other);
        }
        return *this;
    }

    ~CkMap() { removeEverything(); }

    void init(void*& position) const override { position = m_count != 0 ? firstFrom(0) : nullptr; }
    bool hasMoreElements(void* const& position) const override { return position != nullptr; }
    V& getElementAt(void* const& position) override { return at(position).value; }
    const V& getElementAt(void* const& position) const override { return at(position).value; }

    void step(void*& position) const override
    {
        const Association& association = at(position);
        position = association.next != nullptr ? association.next : firstFrom(association.bucketIndex + 1);
    }

    /// Writes " -> " and a line feed for each entry; keys and values do not describe themselves.
    virtual void Dump(CkStreamWrite& stream) const
    {
        void* position = nullptr;
        for (CkMap::init(position); position != nullptr; CkMap::step(position))
            stream << CK_T(" -> ") << CK_T("\n");
    }

    /// The key of the entry at a position. It is not to be changed.
    virtual K& getKeyAt(void* const& position) { return at(position).key; }
    virtual const K& getKeyAt(void* const& position) const { return at(position).key; }

    /// The value of `key`; an absent key is added, with a value-initialised value.
    V& operator[](const K& key)
    {
        V* const value = TryAdd(key);
        if (value == nullptr)
            tarvo::detail::raisePlexOutOfMemory();
        return *value;
    }

    /// As `[]`, but null instead of `CkExceptionOutOfMemory`: for those who hold a lock, under which an exception
    /// should not be reported.
    V* TryAdd(const K& key)
    {
        const unsigned int hash = Hash()(key);
        if (const Found found = find(key, hash); found.association != nullptr)
            return &found.association->value;
        Association* const association = this->pool().TryCreate(key, hash);
        if (association == nullptr)
            return nullptr;
        insert(*association);
        return &association->value;
    }

    /// The value of `key`; null when it is absent.
    V* Lookup(const K& key) { return valueOf(find(key, Hash()(key)).association); }
    const V* Lookup(const K& key) const { return valueOf(find(key, Hash()(key)).association); }

    bool Contains(const K& key) const { return Lookup(key) != nullptr; }

    /// Removes the entry, if there is one, and returns whether there was. `key` may be that of the entry.
    bool RemoveKey(const K& key)
    {
        const Found found = find(key, Hash()(key));
        if (found.association == nullptr)
            return false;
        detach(found);
        this->pool().Destroy(found.association);
        return true;
    }

    /// Empties the map first and then destroys the entries in the order of iteration.
    void RemoveAll() noexcept
    {
        std::array<Association*, bucketCount> chains = std::exchange(m_buckets, {});
        m_count = 0;
        m_index.Discard();
        for (Association* association : chains)
        {
            while (association != nullptr)
                this->pool().Destroy(std::exchange(association, association->next));
        }
    }

    C GetCount() const noexcept { return m_count; }
    bool IsEmpty() const noexcept { return m_count == 0; }

private:
    static constexpr unsigned int bucketCount = 17;

    /// With fewer entries the chains are as short as an index needs to be probed.
    static constexpr unsigned int indexFrom = 64;

    struct Found
    {
        Association* association = nullptr;
        std::size_t slot = 0; ///< Its slot in the index, while that is active.
    };

    static Association& at(void* position) noexcept { return *static_cast<Association*>(position); }

    template <class A>
    static auto valueOf(A* association) noexcept -> decltype(&association->value)
    {
        return association != nullptr ? &association->value : nullptr;
    }

    /// A number has more to tell than its hash, which is the same for neighbours.
    static std::uint32_t indexHash(const K& key, unsigned int hash) noexcept
    {
        if constexpr (tarvo::detail::Number<K>)
            return tarvo::detail::mixForIndex(static_cast<std::uint64_t>(key));
        else if constexpr (std::is_pointer_v<K>)
            return tarvo::detail::mixForIndex(reinterpret_cast<std::uintptr_t>(key));
        else
            return tarvo::detail::mixForIndex(hash);
    }

    static bool hasKey(const Association& association, const K& key, unsigned int hash)
    {
        if constexpr (std::is_scalar_v<K>)
            return association.key == key;
        else
            return association.hash == hash && association.key == key;
    }

    Found find(const K& key, unsigned int hash) const
    {
        Found found;
        if (m_index.IsActive())
        {
            found.association = m_index.Find<Association>(indexHash(key, hash), found.slot,
                                                          [&key, hash](const Association& association)
                                                          { return hasKey(association, key, hash); });
            return found;
        }
        found.association = m_buckets[hash % bucketCount];
        while (found.association != nullptr && !hasKey(*found.association, key, hash))
            found.association = found.association->next;
        return found;
    }

    Association* firstFrom(unsigned int bucket) const noexcept
    {
        const auto found = std::find_if(m_buckets.begin() + bucket, m_buckets.end(),
                                        [](const Association* a) { return a != nullptr; });
        return found != m_buckets.end() ? *found : nullptr;
    }

    void insert(Association& association) noexcept
    {
        makeRoomInIndex();
        Association*& head = m_buckets[association.hash % bucketCount];
        association.bucketIndex = association.hash % bucketCount;
        association.link = &head;
        association.next = head;
        if (head != nullptr)
            head->link = &association.next;
        head = &association;
        ++m_count;
        if (m_index.IsActive())
            m_index.Insert(&association, indexHash(association.key, association.hash));
    }

    void detach(const Found& found) noexcept
    {
        const Association& association = *found.association;
        *association.link = association.next;
        if (association.next != nullptr)
            association.next->link = association.link;
        --m_count;
        // The index keeps its size: a map that was large is likely to be so again.
        if (m_index.IsActive())
            m_index.Remove(found.slot);
    }

    /// An index that is full, of removed entries as a rule, is made anew, or given up where the map is small by now.
    void makeRoomInIndex() noexcept
    {
        if (!m_index.HasRoom() && (m_count < indexFrom || !rebuildIndex(m_count + std::size_t{1})))
            m_index.Discard();
    }

    /// An index of the entries with room for `count` in all; false when it cannot be had.
    bool rebuildIndex(std::size_t count) noexcept
    {
        tarvo::detail::MapIndex index;
        if (!index.Allocate(tarvo::detail::MapIndex::capacityFor(count)))
            return false;
        for (Association* association : m_buckets)
        {
            for (; association != nullptr; association = association->next)
                index.Insert(association, indexHash(association->key, association->hash));
        }
        m_index.swap(index);
        return true;
    }

    void removeEverything() noexcept
    {
        while (m_count != 0)
            RemoveAll();
    }

    /// Takes all of `other`; the map is empty.
    void take(CkMap& other) noexcept
    {
        this->takePool(other);
        m_buckets = std::exchange(other.m_buckets, {});
        for (Association*& head : m_buckets)
        {
            if (head != nullptr)
                head->link = &head;
        }
        m_count = std::exchange(other.m_count, C{0});
        m_index.swap(other.m_index);
        other.m_index.Discard();
    }

    std::array<Association*, bucketCount> m_buckets{};
    C m_count = 0;
    tarvo::detail::MapIndex m_index;
};
