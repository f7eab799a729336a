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
    auto* const base = const_cast<CkReferenceCountedClassBase*>(container);
    auto* const mine = static_cast<tarvo::detail::PooledContainer*>(base);
    if (TARVO_CHECKED && mine->GetReferenceCount() != 0)
        tarvo::detail::trap("a container to which there are references was given back");
    tarvo::detail::g_containerPool.object.Destroy(mine);
}
