#include <tarvo/core/ckreferencecountedcontainer.h>

#include <tarvo/core/detail/containerpool.h>

template class TARVO_API CkReferenceCountedContainer<int, unsigned int>;

CkReferenceCountedClassBase* CreateReferenceCountedContainer()
{
    return tarvo::detail::g_containerPool.object.Create();
}

void ReleaseReferenceCountedContainer(const CkReferenceCountedClassBase* container)
{
    if (container == nullptr)
        return;
    // All that the pool hands out was made as one of these, and not const.
    auto* const mine = const_cast<CkReferenceCountedClassBase*>(container);
    tarvo::detail::g_containerPool.object.Destroy(static_cast<tarvo::detail::PooledContainer*>(mine));
}
