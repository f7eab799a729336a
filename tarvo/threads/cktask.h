#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckcheckreturn.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/threads/ckevent.h>

#include <atomic>

class CkException;

namespace tarvo::detail
{
struct TaskHooks;

/// An event with manual reset of which the kernel learns when somebody wants to sleep on it, or to have it.
///
/// Most tasks end without that: then their event was a flag in the task, which took nothing from the kernel and no
/// place in the table of all events. To make the event cost a third of all that the pool does for a task, and more
/// where its memory had to move between processors.
///
/// Threads: as a CkEvent. `CkEvent::SetAll` sets it like any other: the flag knows how often that had been called when
/// it was reset.
class TARVO_API LateEvent
{
public:
    LateEvent() noexcept;

    /// Share the flag of `other`, as the kernel's from now on. Who assigns has both to himself.
    LateEvent(const LateEvent& other) noexcept;
    LateEvent& operator=(const LateEvent& other) noexcept;

    ~LateEvent();

    /// The event is not touched any more when others can see it set.
    void Set() noexcept;
    void Reset() noexcept;

    CkEvent::EWaitResult Wait(unsigned int timeoutMs) const noexcept;

    /// The kernel's event, made if need be.
    const CkEvent& Get() const noexcept;

private:
    using State = unsigned __int64;

    static constexpr State isSetFlag = 1; ///< Of no meaning once the event is made.
    static constexpr State isBeingMade = 2;
    static constexpr State isMade = 4;
    static constexpr State flags = isSetFlag | isBeingMade | isMade;
    static constexpr State oneRound = 8; ///< What is above counts the calls of `SetAll` before the last reset.

    static State currentRound() noexcept;
    static bool isSet(State state) noexcept;

    bool claim() const noexcept;
    void publish() const noexcept;

    mutable std::atomic<State> m_state;
    union
    {
        mutable CkEvent m_event; ///< Exists when made.
    };
};
} // namespace tarvo::detail

/// A piece of work with hooks around it, which the thread pool runs or whoever calls `Run`.
///
/// Threads: `Run` runs the hooks on the thread that calls it; a task is run by one thread at a time. Any thread may
/// wait for the end. What the hooks have written is visible to whoever has waited.
/// Blocking: `WaitUntilTerminate` up to a time-out in milliseconds; 0xFFFFFFFF waits without limit, 0 only probes.
/// Lifetime: shared by reference; the last smart pointer destroys it. The pool keeps a reference while it has the task.
/// Failure: what a hook raises goes to `onException`, or `nullptr` where it is no `CkException`, and the task has
/// failed; the hooks after it are not called. What `onException` itself raises passes on, and the pool drops it.
///
/// | state      | by                           | terminated event | `IsSuccessful`                       |
/// |------------|------------------------------|------------------|--------------------------------------|
/// | new        | construction                 | not set          | false                                |
/// | added      | `CkThreadPool::AddTask`      | not set          | as before                            |
/// | terminated | the end of `Run`             | set              | whether every step of `Run` did well |
class TARVO_API CkTask : public CkReferenceCountedClass<CkTask, 0>
{
public:
    CkTask() = default;

    /// Share the terminated event, and take over whether the task was successful.
    CkTask(const CkTask& other) = default;
    CkTask& operator=(const CkTask& other) = default;

    ~CkTask() override;

    /// Calls the hooks and sets the terminated event, whatever they do.
    void Run();

    /// Gives the task to the thread pool, with normal priority. Whether the pool took it is not known.
    void RunAsThread();

    /// False when the time was up before the terminated event was set.
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> WaitUntilTerminate(unsigned int timeoutMs);

    /// Meaningful once the terminated event is set.
    bool IsSuccessful() const noexcept { return m_successful; }

    const CkEvent& GetTerminatedEvent() const noexcept { return m_terminated.Get(); }

protected:
    /// The work; whether it did well.
    virtual CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() = 0;

    /// Whether the pool shall drop the task instead of running it; its terminated event is then never set. Asked on the
    /// thread that adds the task or on a worker, under the pool's lock: it must not wait for other threads that use the
    /// pool. Raising declines as well.
    virtual bool doNotRun() const;

    /// Called when the task is added to the pool, under the pool's lock as `doNotRun`. Resets the terminated event.
    virtual void onAdd();

    virtual void onBeforeRun();

    /// Called when `doRun` has returned true.
    virtual void onAfterRun();

    /// For applications that cancel tasks. The library does not.
    virtual void onCancel();

    /// Called with what a hook has raised; null for anything but a `CkException`.
    virtual void onException(const CkException* exception);

private:
    friend struct tarvo::detail::TaskHooks;

    template <class Step>
    bool attempt(Step step);

    bool m_successful = false; // first, where the base class leaves room
    tarvo::detail::LateEvent m_terminated;
};
