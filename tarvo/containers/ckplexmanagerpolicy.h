#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/ckplexmanager.h>
#include <tarvo/core/cksmartpointer.h>

#include <utility>

/// Where a container has its pool: within itself (`P` = 1), never shared, or held by reference (`P` = 0).
template <class Owner, class Node, int P, int B, class C>
class CkPlexManagerPolicy;

template <class Owner, class Node, int B, class C>
class CkPlexManagerPolicy<Owner, Node, 1, B, C>
{
protected:
    using PlexManager = CkPlexManager<Node, 0, B, C>;

    explicit CkPlexManagerPolicy(C blockSize) : m_pool(blockSize) {}

    PlexManager& pool() noexcept { return m_pool; }

    /// Takes the nodes of `other`; none of the own is in use.
    void takePool(CkPlexManagerPolicy& other) noexcept { m_pool.Take(other.m_pool); }

private:
    PlexManager m_pool;
};

template <class Owner, class Node, int B, class C>
class CkPlexManagerPolicy<Owner, Node, 0, B, C>
{
protected:
    using PlexManager = CkPlexManager<Node, 0, B, C>;

    /// There is no pool for a block size of 0.
    explicit CkPlexManagerPolicy(C blockSize) : m_pool(blockSize != 0 ? new PlexManager(blockSize) : nullptr) {}

    PlexManager& pool() noexcept
    {
        if (TARVO_CHECKED && !m_pool)
            tarvo::detail::trap("a container without a pool was given an element");
        return *m_pool;
    }

    /// Takes the pool of `other`, which has none then.
    void takePool(CkPlexManagerPolicy& other) noexcept { m_pool = std::move(other.m_pool); }

private:
    CkSmartPointer<PlexManager> m_pool;
};
