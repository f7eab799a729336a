#include <tarvo/core/detail/ckrttiregistration.h>

#include <tarvo/containers/ckmap.h>
#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <utility>

namespace
{
using Registry = CkMap<CString, CkRTTIRegistration::SRegistration, 2, unsigned int, CkHashKey<CString>>;

constexpr unsigned int entriesPerBlock = 1000;

constinit tarvo::detail::Undestroyed<CkCriticalSection> g_lock;

/// Constructed by the first record, before that record is complete, and therefore destroyed after it. Guarded by the
/// lock.
Registry*& registry()
{
    static constinit Registry* instance = nullptr;
    static const struct Owner
    {
        ~Owner()
        {
            // Nobody else is inside the library when it is unloaded, so the lock, which might fail, is not needed.
            if (!tarvo::detail::isLeftToProcess())
                delete std::exchange(instance, nullptr);
        }
    } owner;
    return instance;
}
} // namespace

void CkRTTIRegistration::Register(const CkRTTI& record, CkRTTI::CreateFunction create, CkRTTI::CloneFunction clone)
{
    if (!tryRegister(record.GetName(), {&record, create, clone}))
        tarvo::detail::raisePlexOutOfMemory();
}

bool CkRTTIRegistration::tryRegister(const CString& name, const SRegistration& registration)
{
    const CkCriticalSectionAuto guard(g_lock.object);
    Registry*& classes = registry();
    if (classes == nullptr)
        classes = new Registry(entriesPerBlock);
    SRegistration* const entry = classes->TryAdd(name);
    if (entry != nullptr)
        *entry = registration;
    return entry != nullptr;
}

void CkRTTIRegistration::Unregister(const CkRTTI& record) noexcept
try
{
    const CkCriticalSectionAuto guard(g_lock.object);
    Registry* const classes = registry();
    const SRegistration* const found = classes != nullptr ? classes->Lookup(record.GetName()) : nullptr;
    if (found != nullptr && found->record == &record)
        classes->RemoveKey(record.GetName());
}
catch (...)
{
    // Without the lock the name is only left to lead to a record that is no more.
    tarvo::framework::discardException();
}

CkRTTIRegistration::SRegistration CkRTTIRegistration::Find(const CString& name)
{
    const CkCriticalSectionAuto guard(g_lock.object);
    const Registry* const classes = registry();
    const SRegistration* const found = classes != nullptr ? classes->Lookup(name) : nullptr;
    return found != nullptr ? *found : SRegistration();
}
