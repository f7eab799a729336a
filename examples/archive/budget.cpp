#include "budget.h"

namespace archive
{
bool Budget::mayHave(unsigned __int64 number, __int64 size) const noexcept
{
    // What is beyond the budget is this task's alone, so something of it is there to be written and given back.
    return m_free >= size || (number == m_turn && m_free >= -size);
}

bool Budget::Acquire(unsigned __int64 number, unsigned __int64 size)
{
    CkCriticalSectionAuto guard(m_lock);
    if (m_cancelled)
        return false;
    Waiter waiter{number, static_cast<__int64>(size), nullptr};
    if (mayHave(number, waiter.size))
    {
        m_free -= waiter.size;
        return true;
    }
    waiter.next = m_waiters;
    m_waiters = &waiter;
    guard.Leave();
    m_exhausted.Set();
    if (waiter.served.Wait(INFINITE) != CkEvent::eWaitSignaled)
        throw CkException(CK_SOURCE_FILE, __LINE__);
    const CkCriticalSectionAuto again(m_lock);
    return !m_cancelled;
}

void Budget::Release(unsigned __int64 size)
{
    const CkCriticalSectionAuto guard(m_lock);
    m_free += static_cast<__int64>(size);
    serve();
}

void Budget::SetTurn(unsigned __int64 number)
{
    const CkCriticalSectionAuto guard(m_lock);
    m_turn = number;
    serve();
}

bool Budget::IsExhausted()
{
    const CkCriticalSectionAuto guard(m_lock);
    return m_waiters != nullptr;
}

void Budget::Cancel()
{
    const CkCriticalSectionAuto guard(m_lock);
    m_cancelled = true;
    serve();
}

/// The lock is held. A waiter is gone as soon as its event is set.
void Budget::serve()
{
    for (Waiter** place = &m_waiters; *place != nullptr;)
    {
        Waiter& waiter = **place;
        if (!m_cancelled && !mayHave(waiter.number, waiter.size))
        {
            place = &waiter.next;
            continue;
        }
        m_free -= waiter.size;
        *place = waiter.next;
        waiter.served.Set();
    }
}
} // namespace archive
