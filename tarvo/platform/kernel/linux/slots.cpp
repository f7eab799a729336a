#include <tarvo/platform/kernel/linux/slots.h>

#include <tarvo/platform/kernel/unloading.h>

#include <pthread.h>

#include <algorithm>

namespace tarvo::kernel
{
alignas(KernelObject) std::byte g_slots[slotCount * sizeof(KernelObject)];

namespace
{
constinit FutexLock g_freeLock;
std::uint32_t g_firstFree = 0; ///< The index of the first free slot, plus 1. Guarded by the lock, as the next one.
std::uint32_t g_used = 0;      ///< Slots that were ever in use.

/// Free slots that a thread keeps for itself: taking and giving one then needs neither lock nor interlocked operation.
/// They go back when the thread ends, not when the library goes: the table goes with it.
struct Cache
{
    static constexpr std::uint32_t capacity = 32;

    std::uint32_t count;
    std::uint32_t registered; ///< 1 when the thread's end takes care of the cache.
    std::uint32_t ended;      ///< 1 when the thread's end has emptied the cache: it keeps no slots any more.
    std::uint32_t slots[capacity];
};

constinit thread_local Cache t_cache __attribute__((tls_model("initial-exec"))) = {};

/// Moves slots from the shared list to the cache, untouched ones where there are not enough.
void refill(Cache& cache, std::uint32_t wanted) noexcept
{
    const Hold hold(g_freeLock);
    while (cache.count < wanted && g_firstFree != 0)
    {
        const std::uint32_t index = g_firstFree - 1;
        g_firstFree = slotAt(index).nextFree;
        cache.slots[cache.count++] = index;
    }
    while (cache.count < wanted && g_used < slotCount)
        cache.slots[cache.count++] = g_used++;
}

/// Moves slots from the cache to the shared list until `left` are in it.
void spill(Cache& cache, std::uint32_t left) noexcept
{
    const Hold hold(g_freeLock);
    while (cache.count > left)
    {
        const std::uint32_t index = cache.slots[--cache.count];
        slotAt(index).nextFree = g_firstFree;
        g_firstFree = index + 1;
    }
}

/// What tells of the end of threads. Not a thread-local object with a destructor: that would keep the library loaded
/// until the thread ends.
class EndOfThreads
{
public:
    EndOfThreads() noexcept { m_isThere = pthread_key_create(&m_key, &empty) == 0; }
    EndOfThreads(const EndOfThreads&) = delete;
    EndOfThreads& operator=(const EndOfThreads&) = delete;

    ~EndOfThreads()
    {
        // From here on nobody keeps slots, as nobody would take them back.
        if (m_isThere.exchange(false) && !isProcessEnding())
            pthread_key_delete(m_key);
    }

    /// Empties the cache before the end of the thread would.
    void Unregister(Cache& cache) const noexcept
    {
        if (cache.registered != 0)
            pthread_setspecific(m_key, nullptr);
        cache.registered = 0;
        if (cache.count != 0)
            spill(cache, 0);
    }

    /// Whether the cache will be emptied when the running thread ends.
    bool Register(Cache& cache) const noexcept
    {
        if (!m_isThere.load(std::memory_order_relaxed) || pthread_setspecific(m_key, &cache) != 0)
            return false;
        cache.registered = 1;
        return true;
    }

private:
    static void empty(void* value) noexcept
    {
        Cache& cache = *static_cast<Cache*>(value);
        cache.registered = 0;
        cache.ended = 1;
        spill(cache, 0);
    }

    std::atomic<bool> m_isThere;
    pthread_key_t m_key{};
};

EndOfThreads g_endOfThreads;

/// How many slots the running thread may keep.
std::uint32_t allowance(Cache& cache) noexcept
{
    return cache.ended == 0 && (cache.registered != 0 || g_endOfThreads.Register(cache)) ? Cache::capacity : 0;
}
} // namespace

void emptySlotCache() noexcept
{
    g_endOfThreads.Unregister(t_cache);
}

KernelObject* takeSlot() noexcept
{
    Cache& cache = t_cache;
    if (cache.count == 0)
        refill(cache, std::max(1u, allowance(cache) / 2));
    return cache.count != 0 ? &slotAt(cache.slots[--cache.count]) : nullptr;
}

void giveSlot(KernelObject& slot) noexcept
{
    Cache& cache = t_cache;
    if (cache.count == Cache::capacity)
        spill(cache, Cache::capacity / 2);
    cache.slots[cache.count++] = indexOf(slot);
    if (cache.registered == 0 && allowance(cache) == 0)
        spill(cache, 0);
}
} // namespace tarvo::kernel
