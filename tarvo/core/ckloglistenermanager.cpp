#include <tarvo/core/ckloglistenermanager.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/threads/detail/lockorder.h>

#include <utility>

template class CkSingleton<CkLogListenerManager>;

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\core\\ckloglistenermanager");
constexpr unsigned int lineNoSuchType = 10;

constexpr auto lockRank = tarvo::detail::LockRank::logListenerManager;
} // namespace

CkLogListenerManager::CkLogListenerManager() = default;
CkLogListenerManager::~CkLogListenerManager() = default;

void CkLogListenerManager::RegisterListener(EEventType type, const Listener& listener)
{
    append(type, {listener, {}});
}

void CkLogListenerManager::RegisterListener(EEventType type, const Listener& listener, const CString& filter)
{
    append(type, {listener, tarvo::framework::RegularExpression(filter)});
}

/// All that can fail for reasons of its own has been done before the lock is taken.
void CkLogListenerManager::append(EEventType type, SListenerData data)
{
    if (numberOf(type) >= typeCount)
        throw CkExceptionPreconditionViolation(source, lineNoSuchType);
    const tarvo::detail::LockOrderAuto order(lockRank);
    const CkCriticalSectionAuto guard(m_lock);
    m_listeners[numberOf(type)].AddTail(std::move(data));
    m_listenedTo.fetch_or(1u << numberOf(type), std::memory_order_relaxed);
}

void CkLogListenerManager::notify(EEventType type, const CString& fileName, unsigned int codeLine,
                                  const CString& message)
{
    const tarvo::detail::LockOrderAuto order(lockRank);
    const CkCriticalSectionAuto guard(m_lock);
    const ListenerList& listeners = m_listeners[numberOf(type)];
    const SListenerData* const last = &listeners.GetTail();
    for (const SListenerData& data : listeners)
    {
        if (data.filter.IsEmpty() || data.filter.IsFoundIn(message))
            data.listener(type, fileName, codeLine, message);
        // Nothing is ever removed, so the list can only have grown behind it.
        if (&data == last)
            return;
    }
}
