#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/kernel/kernel.h>

template <class T, int N>
class CkArrayManaged;
template <class T, int N, template <class, int> class Policy>
class CkArray;
template <class T, int N>
class CkArrayPolicyConstructDefault;

/// An event of the kernel: a flag that threads set, reset and wait for, alone or in groups of up to 64.
///
/// Copies share the flag. An event is exactly one handle wide, so that an array of events is an array of handles.
///
/// Threads: every operation but assignment may be called from any thread; one that assigns has the event to itself, but
/// for `SetAll`, which may come at any time. None takes a lock of the library but `SetAll`, and that one after the
/// listeners have returned.
/// Blocking: waits up to a time-out in milliseconds; 0xFFFFFFFF waits without limit, 0 only probes. A wait may look for
/// the signal for some microseconds before it sleeps.
/// Lifetime: owns its handle. Whoever wakes from a wait may destroy the event at once.
/// Failure: no operation raises, but for what a listener raises out of `SetAll`. What the kernel refuses returns false
/// or `eWaitFailed`, with its code as the thread's last error. An event without a handle refuses everything.
///
/// | state   | Set         | Reset   | Pulse                             | satisfied wait              |
/// |---------|-------------|---------|-----------------------------------|-----------------------------|
/// | not set | set         | not set | not set; those who wait are woken | -                           |
/// | set     | set         | not set | not set                           | set; auto-reset: not set    |
class TARVO_API CkEvent
{
public:
    enum EWaitResult
    {
        eWaitFailed = 0, ///< The kernel refused the wait, or there were more than 64 events.
        eWaitSignaled = 1,
        eWaitTimeout = 2
    };

    /// An event that is not set. One with manual reset stays set until it is reset; one without is reset by the one
    /// wait that it satisfies.
    explicit CkEvent(bool manualReset = true) noexcept;

    /// Shares the flag of `other`.
    CkEvent(const CkEvent& other) noexcept;

    /// Shares the flag of `other` and leaves its own. Without a handle where the kernel gives none.
    CkEvent& operator=(const CkEvent& other) noexcept;

    ~CkEvent();

    bool Set() noexcept
    {
        clearLastError();
        return ::SetEvent(m_handle) == TRUE;
    }

    bool Reset() noexcept
    {
        clearLastError();
        return ::ResetEvent(m_handle) == TRUE;
    }

    bool Pulse() noexcept
    {
        clearLastError();
        return ::PulseEvent(m_handle) == TRUE;
    }

    /// Whether the event is set; an auto-reset event is not, then, any more.
    bool IsSet() const noexcept { return Wait(0) == eWaitSignaled; }

    EWaitResult Wait(unsigned int timeoutMs) const noexcept
    {
        clearLastError();
        const DWORD waited = WaitForSingleObject(m_handle, timeoutMs);
        if (waited == WAIT_OBJECT_0)
            return eWaitSignaled;
        return waited == WAIT_TIMEOUT ? eWaitTimeout : eWaitFailed;
    }

    static EWaitResult WaitForSingleEvent(const CkEvent& event, unsigned int timeoutMs) noexcept
    {
        return event.Wait(timeoutMs);
    }

    // Waits for any of the events, whose lowest place that satisfied the wait goes to `index`, and for all of them. No
    // events at all are signalled, and leave `index` alone. The events of the arrays stay where they are meanwhile.

    static EWaitResult WaitForSingleEvent(const CkArrayManaged<CkEvent, 0>& events, unsigned int timeoutMs,
                                          unsigned int& index) noexcept;
    static EWaitResult WaitForMultipleEvents(const CkArrayManaged<CkEvent, 0>& events, unsigned int timeoutMs) noexcept;

    /// The same for events that lie anywhere. They may go while the wait lasts: it has duplicates of their handles.
    /// Without memory for those the wait fails.
    static EWaitResult WaitForSingleEvent(const CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault>& events,
                                          unsigned int timeoutMs, unsigned int& index) noexcept;
    static EWaitResult WaitForMultipleEvents(const CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault>& events,
                                             unsigned int timeoutMs) noexcept;

    /// Sets every event of the process, those of the library's tasks, threads and pool among them, after it has
    /// reported that to the log listeners. What a listener raises is passed on when all are set.
    static void SetAll();

private:
    /// Reads first: a store would have to wait in front of the interlocked operation that follows as a rule.
    static void clearLastError() noexcept
    {
        if (GetLastError() != ERROR_SUCCESS)
            SetLastError(ERROR_SUCCESS);
    }

    HANDLE m_handle;
};
