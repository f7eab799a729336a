#pragma once

#include <tarvo/platform/kernel/asymmetricbarrier.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace tarvo::detail
{
/// The handles of all live events, for those who want to set them all.
///
/// A table with a place for each number that a handle can have, as the kernel keeps one, in pages that are made when a
/// handle first falls into them. So to enter and to remove an event is one store, of the same cost however many there
/// are, and takes no lock; and an event may move in memory, its handle stays the same. A set of addresses under a lock
/// would be slower by a factor, and with several threads by another.
///
/// Threads: `Add` and `Remove` from any thread, each for a handle of its own. `SetAll` holds the lock, so that a handle
/// that is removed meanwhile is not closed before `SetAll` is done with it; nobody else's code runs under it.
class EventRegistry
{
public:
    constexpr EventRegistry() noexcept = default;
    EventRegistry(const EventRegistry&) = delete;
    EventRegistry& operator=(const EventRegistry&) = delete;
    ~EventRegistry();

    /// Enters an open handle. Without memory for it, and for null, it stays outside.
    void Add(HANDLE handle) noexcept
    {
        if (Place* const place = placeOf(handle); place != nullptr) [[likely]]
            kernel::storeLight(*place, handle);
    }

    /// Removes the handle, if it is there. When the call returns, nobody uses it any more.
    void Remove(HANDLE handle) noexcept
    {
        Place* const place = findPlace(handle);
        if (place == nullptr)
            return;
        // Either `SetAll` finds the place empty, or this finds out that it has begun, and waits for it.
        kernel::storeLight(*place, HANDLE{nullptr});
        if (m_settingAll.load(std::memory_order_seq_cst)) [[unlikely]]
            waitForSetAll();
    }

    unsigned int GetCount() const noexcept;

    /// How often `SetAll` was called. Who enters a handle and then still finds the same number is not missed by the
    /// next call.
    unsigned __int64 GetRound() const noexcept { return m_round.load(std::memory_order_seq_cst); }

    /// Sets them all.
    void SetAll() noexcept;

private:
    using Place = std::atomic<HANDLE>;

    static constexpr std::size_t pageSize = 16384;
    static constexpr std::size_t pageCount = 1024; ///< For 16 million handles.
    using Page = std::array<Place, pageSize>;

    /// Handles are small multiples of four; what makes one unlike another that had the number before is higher up.
    static std::size_t numberOf(HANDLE handle) noexcept
    {
        return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle)) / 4;
    }

    Place* findPlace(HANDLE handle) const noexcept
    {
        const std::size_t number = numberOf(handle);
        if (handle == nullptr || number >= pageSize * pageCount)
            return nullptr;
        // Acquire pairs with the release in `makePage`.
        Page* const page = m_pages[number / pageSize].load(std::memory_order_acquire);
        return page != nullptr ? &(*page)[number % pageSize] : nullptr;
    }

    Place* placeOf(HANDLE handle) noexcept
    {
        Place* const place = findPlace(handle);
        return place != nullptr || handle == nullptr ? place : makePage(handle);
    }

    Place* makePage(HANDLE handle) noexcept;
    void waitForSetAll() noexcept;

    template <class Action>
    void forEach(Action action) const noexcept;

    std::array<std::atomic<Page*>, pageCount> m_pages{};
    std::atomic<unsigned __int64> m_round{0};
    std::atomic<bool> m_settingAll{false};
    CkCriticalSection m_lock{4000};
};

/// One of the library's static objects.
extern constinit EventRegistry g_eventRegistry;
} // namespace tarvo::detail
