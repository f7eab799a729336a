#pragma once

#include <tarvo/containers/ckplexmanager.h>
#include <tarvo/core/ckreferencecountedcontainer.h>
#include <tarvo/library/unloadsequence.h>

namespace tarvo::detail
{
using PooledContainer = CkReferenceCountedContainer<int, unsigned int>;

/// The pool of `CreateReferenceCountedContainer`. Stays usable when the process ends; goes with the library otherwise.
class ContainerPool
{
public:
    ContainerPool() : object(1000) {}
    ContainerPool(const ContainerPool&) = delete;
    ContainerPool& operator=(const ContainerPool&) = delete;

    ~ContainerPool()
    {
        if (!isLeftToProcess())
            object.~Pool();
    }

    using Pool = CkPlexManager<PooledContainer, 1, 0, unsigned int>;

    union
    {
        Pool object;
    };
};

/// One of the library's static objects.
extern ContainerPool g_containerPool;
} // namespace tarvo::detail
