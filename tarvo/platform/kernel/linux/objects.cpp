#include <tarvo/platform/kernel/linux/objects.h>

#include <mutex>

namespace tarvo::kernel
{
void KernelObject::Release() noexcept
{
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

bool KernelObject::tryTake() noexcept
{
    std::uint64_t word = m_word.load(std::memory_order_relaxed);
    while (signalsOf(word) != 0)
    {
        if (m_word.compare_exchange_weak(word, word - 1, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    }
    return false;
}

bool KernelObject::Wait(DWORD timeoutMs) noexcept
{
    if (tryTake())
        return true;
    if (timeoutMs == 0)
        return false;

    const Deadline deadline(timeoutMs);
    Waiter waiter;
    {
        const std::lock_guard guard(m_lock);
        enqueue(waiter);
        // A signal that saw no mark may have come before the mark; one that comes later waits for the lock.
        serveQueue();
    }
    while (waiter.served.load(std::memory_order_acquire) == 0)
    {
        if (futexWait(waiter.served, 0, deadline.Time()))
            continue;
        const std::lock_guard guard(m_lock);
        if (waiter.served.load(std::memory_order_acquire) != 0)
            return true;
        unlink(waiter);
        return false;
    }
    return true;
}

bool KernelObject::signal(std::uint32_t count, std::uint32_t maximum, std::uint32_t& previous) noexcept
{
    std::unique_lock guard(m_lock, std::defer_lock);
    std::uint64_t word = m_word.load(std::memory_order_relaxed);
    for (;;)
    {
        if ((word & waitersBit) != 0 && !guard)
        {
            guard.lock();
            word = m_word.load(std::memory_order_relaxed);
        }
        previous = signalsOf(word);
        if (count > maximum - previous)
            return false;
        if (m_word.compare_exchange_weak(word, word + count, std::memory_order_release, std::memory_order_relaxed))
            break;
    }
    if (guard)
        serveQueue();
    return true;
}

void KernelObject::serveQueue() noexcept
{
    while (m_first != nullptr && tryTake())
    {
        Waiter& waiter = *m_first;
        unlink(waiter);
        // The waiter may return, and its stack be used again, from the store on.
        std::atomic<std::uint32_t>* const served = &waiter.served;
        served->store(1, std::memory_order_release);
        futexWake(served, 1);
    }
}

void KernelObject::enqueue(Waiter& waiter) noexcept
{
    if (m_first == nullptr)
        m_word.fetch_or(waitersBit, std::memory_order_relaxed);
    waiter.previous = m_last;
    (m_last != nullptr ? m_last->next : m_first) = &waiter;
    m_last = &waiter;
}

void KernelObject::unlink(Waiter& waiter) noexcept
{
    (waiter.previous != nullptr ? waiter.previous->next : m_first) = waiter.next;
    (waiter.next != nullptr ? waiter.next->previous : m_last) = waiter.previous;
    if (m_first == nullptr)
        m_word.fetch_and(~waitersBit, std::memory_order_relaxed);
}
} // namespace tarvo::kernel
