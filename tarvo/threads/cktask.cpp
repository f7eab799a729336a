#include <tarvo/threads/cktask.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/threads/ckthreadpool.h>
#include <tarvo/threads/detail/eventregistry.h>

#include <memory>
#include <thread>

namespace tarvo::detail
{
LateEvent::LateEvent() noexcept : m_state(currentRound()) {}

LateEvent::LateEvent(const LateEvent& other) noexcept : m_state(isMade), m_event(other.Get()) {}

LateEvent& LateEvent::operator=(const LateEvent& other) noexcept
{
    if (this != &other)
    {
        Get();
        m_event = other.Get();
    }
    return *this;
}

LateEvent::~LateEvent()
{
    if ((m_state.load(std::memory_order_acquire) & isMade) != 0)
        m_event.~CkEvent();
}

void LateEvent::Set() noexcept
{
    if ((m_state.fetch_or(isSetFlag, std::memory_order_acq_rel) & isMade) != 0)
        m_event.Set();
}

void LateEvent::Reset() noexcept
{
    State state = m_state.load(std::memory_order_acquire);
    State reset;
    do
    {
        if ((state & isMade) != 0)
        {
            m_event.Reset();
            return;
        }
        reset = currentRound() | (state & isBeingMade);
        if (state == reset)
            return;
    } while (!m_state.compare_exchange_weak(state, reset, std::memory_order_acq_rel));
}

CkEvent::EWaitResult LateEvent::Wait(unsigned int timeoutMs) const noexcept
{
    const State state = m_state.load(std::memory_order_acquire);
    // Only one that is not made tells by its flag: of the kernel's event, `Set` has not let go yet.
    if ((state & (isBeingMade | isMade)) == 0)
    {
        if (isSet(state))
            return CkEvent::eWaitSignaled;
        if (timeoutMs == 0)
            return CkEvent::eWaitTimeout;
    }
    return Get().Wait(timeoutMs);
}

const CkEvent& LateEvent::Get() const noexcept
{
    if ((m_state.load(std::memory_order_acquire) & isMade) == 0 && claim())
    {
        std::construct_at(&m_event);
        publish();
    }
    return m_event;
}

/// Whether the caller is to make the event; else another thread has, when this returns.
bool LateEvent::claim() const noexcept
{
    State state = m_state.load(std::memory_order_acquire);
    while ((state & isMade) == 0)
    {
        if ((state & isBeingMade) != 0)
        {
            std::this_thread::yield();
            state = m_state.load(std::memory_order_acquire);
        }
        else if (m_state.compare_exchange_weak(state, state | isBeingMade, std::memory_order_acq_rel))
            return true;
    }
    return false;
}

/// Gives the new event the state that the flag has, which may change meanwhile. `SetAll` is not missed: it counts
/// itself before it looks for events. But it may find this one while a reset still goes to the flag alone, and so an
/// event that is not to be set is reset even where this has not set it.
void LateEvent::publish() const noexcept
{
    State state = m_state.load(std::memory_order_acquire);
    do
    {
        if (!isSet(state))
            m_event.Reset();
        // Looked at after the reset, so that a `SetAll` whose work that has undone shows.
        if (isSet(state))
            m_event.Set();
    } while (!m_state.compare_exchange_weak(state, (state | isMade) & ~isBeingMade, std::memory_order_acq_rel));
}

LateEvent::State LateEvent::currentRound() noexcept
{
    return oneRound * g_eventRegistry.GetRound();
}

bool LateEvent::isSet(State state) noexcept
{
    return (state & isSetFlag) != 0 || (state & ~flags) != currentRound();
}
} // namespace tarvo::detail

CkTask::~CkTask() = default;

bool CkTask::doNotRun() const
{
    return false;
}

void CkTask::onAdd()
{
    m_terminated.Reset();
}

void CkTask::onBeforeRun() {}

void CkTask::onAfterRun() {}

void CkTask::onCancel() {}

void CkTask::onException(const CkException*) {}

/// Whether `step` returned true.
template <class Step>
bool CkTask::attempt(Step step)
{
    try
    {
        return m_successful = step();
    }
    catch (const CkException& exception)
    {
        m_successful = false;
        onException(&exception);
    }
    catch (...)
    {
        tarvo::framework::discardException();
        m_successful = false;
        onException(nullptr);
    }
    return false;
}

void CkTask::Run()
{
    struct SetAtEnd
    {
        ~SetAtEnd() { event.Set(); }
        tarvo::detail::LateEvent& event;
    } const setAtEnd{m_terminated};
    static_cast<void>(attempt([this] { return onBeforeRun(), true; }) &&
                      attempt([this] { return doRun().GetValue(); }) && attempt([this] { return onAfterRun(), true; }));
}

void CkTask::RunAsThread()
{
    CkThreadPool::GetInstance().AddTask(CkSmartPointer<CkTask>(this), CkThreadPool::eTaskPriorityNormal);
}

CkCheckReturn<bool, CkCheckReturnPolicyAssert> CkTask::WaitUntilTerminate(unsigned int timeoutMs)
{
    return m_terminated.Wait(timeoutMs) != CkEvent::eWaitTimeout;
}
