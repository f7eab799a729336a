#include <tarvo/core/detail/ckrttiregistration.h>

#include <tarvo/library/unloadsequence.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <memory>
#include <unordered_map>

namespace
{
using Registry = std::unordered_map<CString, CkRTTIRegistration::SRegistration>;

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
    const CkCriticalSectionAuto guard(g_lock.object);
    Registry*& classes = registry();
    if (classes == nullptr)
        classes = new Registry;
    (*classes)[record.GetName()] = {&record, create, clone};
}

CkRTTIRegistration::SRegistration CkRTTIRegistration::Find(const CString& name)
{
    const CkCriticalSectionAuto guard(g_lock.object);
    const Registry* const classes = registry();
    if (classes == nullptr)
        return {};
    const auto found = classes->find(name);
    return found != classes->end() ? found->second : SRegistration();
}
