#include <tarvo/threads/detail/eventregistry.h>

#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/threads/detail/lockorder.h>

#include <new>

namespace tarvo::detail
{
EventRegistry::~EventRegistry()
{
    if (isLeftToProcess())
        return;
    for (std::atomic<Page*>& page : m_pages)
        delete page.exchange(nullptr, std::memory_order_relaxed);
}

EventRegistry::Place* EventRegistry::makePage(HANDLE handle) noexcept
{
    const std::size_t number = numberOf(handle);
    if (number >= pageSize * pageCount)
        return nullptr;
    Page* const made = new (std::nothrow) Page();
    if (made == nullptr)
        return nullptr;
    Page* published = nullptr;
    if (!m_pages[number / pageSize].compare_exchange_strong(published, made, std::memory_order_acq_rel))
        delete made;
    return findPlace(handle);
}

template <class Action>
void EventRegistry::forEach(Action action) const noexcept
{
    for (const std::atomic<Page*>& slot : m_pages)
    {
        const Page* const page = slot.load(std::memory_order_acquire);
        if (page == nullptr)
            continue;
        for (const Place& place : *page)
        {
            if (const HANDLE handle = place.load(std::memory_order_seq_cst); handle != nullptr)
                action(handle);
        }
    }
}

unsigned int EventRegistry::GetCount() const noexcept
{
    unsigned int count = 0;
    forEach([&count](HANDLE) { ++count; });
    return count;
}

void EventRegistry::SetAll() noexcept
try
{
    m_round.fetch_add(1, std::memory_order_seq_cst);
    const LockOrderAuto order(LockRank::eventRegistry);
    const CkCriticalSectionAuto guard(m_lock);
    m_settingAll.store(true, std::memory_order_seq_cst);
    // Where the barrier is refused, a handle may be found that was closed already; the kernel layer that has the
    // barrier knows such a handle from the next one of the same number.
    kernel::heavyBarrier();
    forEach([](HANDLE handle) { SetEvent(handle); });
    m_settingAll.store(false, std::memory_order_seq_cst);
}
catch (...)
{
    // The lock cannot be had, or left; there is no caller that could do anything about it.
    framework::discardException();
}

void EventRegistry::waitForSetAll() noexcept
try
{
    const LockOrderAuto order(LockRank::eventRegistry);
    const CkCriticalSectionAuto guard(m_lock);
}
catch (...)
{
    framework::discardException();
}
} // namespace tarvo::detail
