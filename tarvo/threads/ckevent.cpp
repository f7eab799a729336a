#include <tarvo/threads/ckevent.h>

#include <tarvo/containers/ckarraymanaged.h>
#include <tarvo/core/ckformat.h>
#include <tarvo/core/ckloglistenermanager.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/threads/detail/eventregistry.h>

#include <exception>
#include <utility>

static_assert(sizeof(CkEvent) == sizeof(HANDLE), "an array of events is an array of handles");

using tarvo::detail::g_eventRegistry;

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\threads\\ckevent");
constexpr unsigned int lineSetAll = 10;

CkEvent::EWaitResult resultOf(DWORD waited) noexcept
{
    switch (waited)
    {
    case WAIT_TIMEOUT: return CkEvent::eWaitTimeout;
    case WAIT_FAILED: return CkEvent::eWaitFailed;
    default: return CkEvent::eWaitSignaled;
    }
}

HANDLE duplicate(HANDLE handle) noexcept
{
    HANDLE result = nullptr;
    const HANDLE process = GetCurrentProcess();
    if (!DuplicateHandle(process, handle, process, &result, 0, TRUE, DUPLICATE_SAME_ACCESS))
        return nullptr;
    return result;
}

DWORD wait(const CkArrayManaged<CkEvent, 0>& events, bool all, unsigned int timeoutMs) noexcept
{
    SetLastError(ERROR_SUCCESS);
    const auto* const handles = reinterpret_cast<const HANDLE*>(events.GetData());
    return WaitForMultipleObjects(events.GetCount(), handles, all ? TRUE : FALSE, timeoutMs);
}

/// Calls `waitForCopies` with copies of the events.
template <class Wait>
CkEvent::EWaitResult waitForCopies(const CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault>& events,
                                   Wait waitForCopies) noexcept
try
{
    if (events.GetCount() > MAXIMUM_WAIT_OBJECTS)
        return CkEvent::eWaitFailed;
    CkArrayManaged<CkEvent, 0> copies;
    copies.SetMemoryElementCount(events.GetCount(), 0);
    for (const CkEvent* event : events)
        copies.AddTail(*event);
    return waitForCopies(copies);
}
catch (...)
{
    tarvo::framework::discardException();
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return CkEvent::eWaitFailed;
}
} // namespace

CkEvent::CkEvent(bool manualReset) noexcept
    : m_handle(CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr))
{
    g_eventRegistry.Add(m_handle);
}

CkEvent::CkEvent(const CkEvent& other) noexcept : m_handle(duplicate(other.m_handle))
{
    g_eventRegistry.Add(m_handle);
}

CkEvent& CkEvent::operator=(const CkEvent& other) noexcept
{
    if (this != &other)
    {
        CkEvent copy(other);
        std::swap(m_handle, copy.m_handle);
    }
    return *this;
}

CkEvent::~CkEvent()
{
    if (m_handle == nullptr)
        return;
    g_eventRegistry.Remove(m_handle);
    CloseHandle(m_handle);
}

CkEvent::EWaitResult CkEvent::WaitForSingleEvent(const CkArrayManaged<CkEvent, 0>& events, unsigned int timeoutMs,
                                                 unsigned int& index) noexcept
{
    if (events.GetCount() > MAXIMUM_WAIT_OBJECTS)
        return eWaitFailed;
    if (events.GetCount() == 0)
        return eWaitSignaled;
    const DWORD waited = wait(events, false, timeoutMs);
    const EWaitResult result = resultOf(waited);
    if (result == eWaitSignaled)
        index = waited - WAIT_OBJECT_0;
    return result;
}

CkEvent::EWaitResult CkEvent::WaitForMultipleEvents(const CkArrayManaged<CkEvent, 0>& events,
                                                    unsigned int timeoutMs) noexcept
{
    if (events.GetCount() > MAXIMUM_WAIT_OBJECTS)
        return eWaitFailed;
    return events.GetCount() == 0 ? eWaitSignaled : resultOf(wait(events, true, timeoutMs));
}

CkEvent::EWaitResult
CkEvent::WaitForSingleEvent(const CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault>& events,
                            unsigned int timeoutMs, unsigned int& index) noexcept
{
    return waitForCopies(events, [&](const CkArrayManaged<CkEvent, 0>& copies)
                         { return WaitForSingleEvent(copies, timeoutMs, index); });
}

CkEvent::EWaitResult
CkEvent::WaitForMultipleEvents(const CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault>& events,
                               unsigned int timeoutMs) noexcept
{
    return waitForCopies(events, [&](const CkArrayManaged<CkEvent, 0>& copies)
                         { return WaitForMultipleEvents(copies, timeoutMs); });
}

// The listeners are called before any lock is taken: one may create events, wait for a thread that does, or be the
// first to use a singleton, while another thread is about to do the opposite.
void CkEvent::SetAll()
{
    struct SetAtEnd
    {
        ~SetAtEnd() { g_eventRegistry.SetAll(); }
    } const setAtEnd;
    if (CkLogListenerManager* const manager = CkLogListenerManager::FindInstance())
    {
        manager->NotifyListeners(CkLogListenerManager::eEventTrace, source, lineSetAll,
                                 CkFormat(CK_T("CkEvent::SetAll -> setting %d events"), g_eventRegistry.GetCount()));
    }
}
