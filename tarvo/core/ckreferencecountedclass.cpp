#include <tarvo/core/ckreferencecountedclass.h>

#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/kernel/processor.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <thread>

namespace
{
constexpr unsigned int weakLockBits = 6;
constexpr int spinsBeforeYield = 100;
constexpr int yieldsBeforeSleep = 200;

struct alignas(64) WeakSection
{
    CkCriticalSection section;
};

constinit tarvo::detail::Undestroyed<std::array<WeakSection, 1u << weakLockBits>> g_weakSections;

/// Stands in a list that is empty but was not always.
constinit CkWeakReference g_emptied;

/// Multiplicative hashing (D. Knuth, The Art of Computer Programming 3, 6.4) of the address without its alignment.
CkCriticalSection& sectionOf(const CkReferenceCountedClassBase* object) noexcept
{
    const std::uint64_t mixed = (reinterpret_cast<std::uintptr_t>(object) >> 4) * 0x9E3779B97F4A7C15u;
    return g_weakSections.object[mixed >> (64 - weakLockBits)].section;
}
} // namespace

CkReferenceCountedClassBase::WeakLock::WeakLock(const CkReferenceCountedClassBase* object) noexcept
    : m_section(sectionOf(object))
{
    // Never sleeps in the kernel, and so can neither fail nor be left with anybody to wake.
    for (int spins = 0; !m_section.TryEnter(); ++spins)
    {
        if (spins < spinsBeforeYield)
            tarvo::kernel::spinPause();
        else if (spins < yieldsBeforeSleep)
            std::this_thread::yield();
        else // the holder may have a lower priority and need this processor
            std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

CkReferenceCountedClassBase::WeakLock::~WeakLock()
{
    m_section.Leave();
}

void CkReferenceCountedClassBase::attach(CkWeakReference& reference) const noexcept
{
    CkWeakReference* const first = m_weakReferences.load(std::memory_order_relaxed);
    reference.next = first == &g_emptied ? nullptr : first;
    reference.previous = nullptr;
    if (reference.next != nullptr)
        reference.next->previous = &reference;
    reference.target.store(this, std::memory_order_release);
    m_weakReferences.store(&reference, std::memory_order_relaxed);
}

void CkReferenceCountedClassBase::detach(CkWeakReference& reference) const noexcept
{
    reference.target.store(nullptr, std::memory_order_relaxed);
    if (reference.next != nullptr)
        reference.next->previous = reference.previous;
    if (reference.previous != nullptr)
        reference.previous->next = reference.next;
    else
        m_weakReferences.store(reference.next != nullptr ? reference.next : &g_emptied, std::memory_order_relaxed);
}

void CkReferenceCountedClassBase::clearWeakList() const noexcept
{
    const WeakLock lock(this);
    unlinkAll();
}

void CkReferenceCountedClassBase::unlinkAll() const noexcept
{
    CkWeakReference* reference = m_weakReferences.load(std::memory_order_relaxed);
    m_weakReferences.store(&g_emptied, std::memory_order_relaxed);
    while (reference != nullptr && reference != &g_emptied)
    {
        CkWeakReference* const next = reference->next;
        // The holder may destroy the entry from here on, without the lock.
        reference->target.store(nullptr, std::memory_order_release);
        reference = next;
    }
}

void CkReferenceCountedClassBase::releaseExternal(std::atomic<LONG>& count) const noexcept
{
    // The owner may take the object back as soon as the count is 0, so the weak references are emptied in one hold of
    // their lock with that step. The owner's destructor waits for the lock, as there once were weak references.
    for (LONG references = count.load(std::memory_order_relaxed);;)
    {
        if (references == 1 && hadWeakReferences())
        {
            const WeakLock lock(this);
            if (count.compare_exchange_strong(references, 0, std::memory_order_acq_rel, std::memory_order_relaxed))
                return unlinkAll();
        }
        else if (count.compare_exchange_weak(references, references - 1, std::memory_order_acq_rel,
                                             std::memory_order_relaxed))
            return;
    }
}
