#include <tarvo/platform/kernel/linux/waiting.h>

#include <tarvo/platform/kernel/linux/slots.h>
#include <tarvo/platform/kernel/linux/spinning.h>
#include <tarvo/platform/kernel/linux/time.h>

#include <array>

namespace tarvo::kernel
{
namespace
{
using Object = KernelObject;

/// Held by whoever takes the locks of several objects. Comes before all of them.
constinit FutexLock g_severalLock;

/// The wait that the running thread is in, for `abandonWait`.
constinit thread_local Waiter* t_waiter __attribute__((tls_model("initial-exec"))) = nullptr;

std::uint32_t signalsOf(std::uint64_t word) noexcept
{
    return static_cast<std::uint32_t>(word & Object::signalsMask);
}

bool isSignalled(const Object& object) noexcept
{
    return signalsOf(object.word.load(std::memory_order_acquire)) != 0;
}

/// Threads to wake once no lock is held. Addresses only: who was served may be gone.
class WakeList
{
public:
    WakeList() noexcept = default;
    WakeList(const WakeList&) = delete;
    WakeList& operator=(const WakeList&) = delete;
    ~WakeList() { flush(); }

    void Add(std::atomic<std::uint32_t>* state) noexcept
    {
        if (m_count == m_states.size())
            flush();
        m_states[m_count++] = state;
    }

private:
    void flush() noexcept
    {
        for (; m_count != 0; --m_count)
            futexWake(m_states[m_count - 1], 1);
    }

    std::array<std::atomic<std::uint32_t>*, 16> m_states;
    std::size_t m_count = 0;
};

/// Objects whose last reference went while locks were held.
class EndList
{
public:
    EndList() noexcept = default;
    EndList(const EndList&) = delete;
    EndList& operator=(const EndList&) = delete;

    ~EndList()
    {
        while (m_first != 0)
        {
            Object& object = slotAt(m_first - 1);
            m_first = object.nextFree;
            endObject(object);
        }
    }

    /// Gives up a reference; the lock of the object is held.
    void Drop(Object& object) noexcept
    {
        if (!dropReferenceLocked(object))
            return;
        object.nextFree = m_first;
        m_first = indexOf(object) + 1;
    }

private:
    std::uint32_t m_first = 0; ///< The index of the newest, plus 1; linked as free slots are.
};

// What follows, down to the next such line, needs the lock of the object.

/// Makes sure that the word changes under the lock alone, until `thaw`; false when the object is gone.
bool freeze(const ObjectRef& ref) noexcept
{
    std::uint64_t word = ref.object->word.load(std::memory_order_relaxed);
    do
    {
        if (!ref.IsFor(word))
            return false;
    } while (!ref.object->word.compare_exchange_weak(word, word | Object::queuedBit | Object::sharedBit,
                                                     std::memory_order_acq_rel, std::memory_order_relaxed));
    return true;
}

/// Ends that, unless somebody is in the queue.
void thaw(Object& object) noexcept
{
    if (object.first != nullptr)
        return;
    const std::uint64_t shared = object.references == 1 ? Object::sharedBit : 0;
    // Release: the next change may come without the lock, and end the object.
    object.word.fetch_and(~(Object::queuedBit | shared), std::memory_order_release);
}

/// Takes a signal of a frozen object that has one.
void consume(Object& object) noexcept
{
    if (!object.StaysSet())
        object.word.fetch_sub(1, std::memory_order_acquire);
}

/// Puts the node at the end of the queue of its frozen object, which gains a reference.
void link(WaitNode& node) noexcept
{
    Object& object = *node.ref.object;
    node.previous = object.last;
    node.next = nullptr;
    node.linked = true;
    (object.last != nullptr ? object.last->next : object.first) = &node;
    object.last = &node;
    object.waitsForAll += node.waiter->forAll ? 1 : 0;
    ++object.references;
}

/// Takes the node out of the queue; its reference is left to the caller.
void unlink(WaitNode& node) noexcept
{
    Object& object = *node.ref.object;
    (node.previous != nullptr ? node.previous->next : object.first) = node.next;
    (node.next != nullptr ? node.next->previous : object.last) = node.previous;
    node.linked = false;
    object.waitsForAll -= node.waiter->forAll ? 1 : 0;
}

/// Serves the waiter of a node for one of several objects, or of this object alone.
void serveOne(WaitNode& node, WakeList& wakes, EndList& ends) noexcept
{
    Object& object = *node.ref.object;
    Waiter& waiter = *node.waiter;
    std::atomic<std::uint32_t>* const state = &waiter.state;
    const std::uint32_t index = waiter.IndexOf(node);
    unlink(node);
    // From the claim on, a waiter for this object alone may be gone.
    if (waiter.Claim(index))
    {
        consume(object);
        wakes.Add(state);
    }
    ends.Drop(object);
}

/// Serves a wait for all if all its objects are signalled. Needs the several-lock as well as that of `held`, one of
/// them. The waiter cannot go before it has had the lock of each.
void tryServeAll(Waiter& waiter, const Object& held, WakeList& wakes, EndList& ends) noexcept
{
    bool ready = true;
    const auto eachOther = [&](auto step)
    {
        for (std::uint32_t i = 0; i < waiter.count; ++i)
        {
            if (waiter.nodes[i].ref.object != &held)
                step(*waiter.nodes[i].ref.object);
        }
    };
    eachOther([](Object& object) { object.lock.lock(); });
    for (std::uint32_t i = 0; i < waiter.count; ++i)
        ready = ready && isSignalled(*waiter.nodes[i].ref.object);
    if (ready && waiter.Claim(0))
    {
        for (std::uint32_t i = 0; i < waiter.count; ++i)
        {
            Object& object = *waiter.nodes[i].ref.object;
            consume(object);
            unlink(waiter.nodes[i]);
            ends.Drop(object);
        }
        wakes.Add(&waiter.state);
    }
    eachOther(
        [](Object& object)
        {
            thaw(object);
            object.lock.unlock();
        });
}

/// Hands the signals of a frozen object to its queue until either is used up, and thaws it. Needs the several-lock
/// where somebody waits for all.
void serveQueue(Object& object, WakeList& wakes, EndList& ends) noexcept
{
    for (WaitNode *node = object.first, *next; node != nullptr && isSignalled(object); node = next)
    {
        next = node->next;
        if (node->waiter->forAll)
            tryServeAll(*node->waiter, object, wakes, ends);
        else
            serveOne(*node, wakes, ends);
    }
    thaw(object);
}

// ---

/// Calls `change(serve)` with the object frozen and its lock held; `serve` serves those who wait. False when the object
/// is gone.
template <class Change>
bool changeLocked(const ObjectRef& ref, Change change) noexcept
{
    const Undisturbed undisturbed;
    WakeList wakes;
    EndList ends;
    const auto apply = [&]
    {
        if (!freeze(ref))
            return false;
        change([&] { serveQueue(*ref.object, wakes, ends); });
        thaw(*ref.object);
        return true;
    };
    {
        const Hold hold(ref.object->lock);
        if (ref.object->waitsForAll == 0)
            return apply();
    }
    const Hold several(g_severalLock);
    const Hold hold(ref.object->lock);
    return apply();
}

/// Adds signals to a word, an event's at most 1; false where they are too many for a semaphore.
bool addSignals(const ObjectRef& ref, std::uint64_t& word, std::uint32_t signals) noexcept
{
    if (ref.Kind() != ObjectKind::semaphore)
    {
        word |= 1;
        return true;
    }
    if (signals > ref.object->maximum.load(std::memory_order_relaxed) - signalsOf(word))
        return false;
    word += signals;
    return true;
}

enum class Taken
{
    yes,
    no,
    locked, ///< There is a signal, but it takes the lock to take it.
    gone
};

Taken tryTake(const ObjectRef& ref) noexcept
{
    std::uint64_t word = ref.object->word.load(std::memory_order_acquire);
    for (;;)
    {
        if (!ref.IsFor(word))
            return Taken::gone;
        if (signalsOf(word) == 0)
            return Taken::no;
        if (ref.object->StaysSet())
            return Taken::yes;
        if ((word & Object::queuedBit) != 0)
            return Taken::locked;
        if (ref.object->word.compare_exchange_weak(word, word - 1, std::memory_order_acquire))
            return Taken::yes;
    }
}

/// As `tryTake`, with the lock where that is needed: then only those who wait for all are in the queue, and the signal
/// is anybody's.
Taken take(const ObjectRef& ref) noexcept
{
    Taken taken = tryTake(ref);
    if (taken != Taken::locked)
        return taken;
    const Hold hold(ref.object->lock);
    if (!freeze(ref))
        return Taken::gone;
    taken = isSignalled(*ref.object) ? Taken::yes : Taken::no;
    if (taken == Taken::yes)
        consume(*ref.object);
    thaw(*ref.object);
    return taken;
}

/// Looks for a signal as long as that has paid lately.
Taken spin(const ObjectRef& ref) noexcept
{
    SpinBudget& budget = t_spinBudget;
    const std::uint32_t looks = budget.Begin();
    for (std::uint32_t looked = 0; looked < looks; ++looked)
    {
        const SpinBudget::Pause pause = budget.PauseBefore(looked);
        const Taken taken = take(ref);
        if (taken != Taken::no)
        {
            if (pause != SpinBudget::Pause::others)
                budget.Succeeded(looked);
            return taken;
        }
        if (pause == SpinBudget::Pause::others)
            break;
    }
    if (looks != 0)
        budget.Failed();
    return Taken::no;
}

/// Takes the wait out of all queues that it is still in.
void leaveQueues(Waiter& waiter) noexcept
{
    for (std::uint32_t i = 0; i < waiter.count; ++i)
    {
        WaitNode& node = waiter.nodes[i];
        const Undisturbed undisturbed;
        EndList ends;
        const Hold hold(node.ref.object->lock);
        if (!node.linked)
            continue;
        unlink(node);
        ends.Drop(*node.ref.object);
        thaw(*node.ref.object);
    }
}

enum class Enqueued
{
    yes,
    ended, ///< A signal was there.
    gone   ///< One of the objects is.
};

/// Puts the wait into the queue of each object until one has a signal.
Enqueued enqueueForAny(Waiter& waiter) noexcept
{
    for (std::uint32_t i = 0; i < waiter.count; ++i)
    {
        WaitNode& node = waiter.nodes[i];
        Object& object = *node.ref.object;
        const Hold hold(object.lock);
        if (!freeze(node.ref))
            return Enqueued::gone;
        if (!isSignalled(object))
        {
            link(node);
            continue;
        }
        if (waiter.Claim(i))
            consume(object);
        thaw(object);
        return Enqueued::ended;
    }
    return Enqueued::yes;
}

/// Locks and freezes the objects of a wait for all, in turn; the number of those that were locked. The last one is gone
/// where that is not all.
std::uint32_t lockAll(Waiter& waiter, bool& ready) noexcept
{
    ready = true;
    for (std::uint32_t i = 0; i < waiter.count; ++i)
    {
        Object& object = *waiter.nodes[i].ref.object;
        object.lock.lock();
        if (!freeze(waiter.nodes[i].ref))
        {
            object.lock.unlock();
            return i;
        }
        ready = ready && isSignalled(object);
    }
    return waiter.count;
}

/// Takes all signals if all are there; else puts the wait into all queues.
Enqueued enqueueForAll(Waiter& waiter) noexcept
{
    const Hold several(g_severalLock);
    bool ready = false;
    const std::uint32_t locked = lockAll(waiter, ready);
    const bool areThere = locked == waiter.count;
    for (std::uint32_t i = 0; i < locked; ++i)
    {
        Object& object = *waiter.nodes[i].ref.object;
        if (areThere && ready)
            consume(object);
        else if (areThere)
            link(waiter.nodes[i]);
        thaw(object);
        object.lock.unlock();
    }
    if (!areThere)
        return Enqueued::gone;
    if (!ready)
        return Enqueued::yes;
    waiter.Claim(0);
    return Enqueued::ended;
}

/// Waits, in the queues, until an object ends the wait or the time is up.
void sleep(Waiter& waiter, const Deadline& deadline) noexcept
{
    while (waiter.state.load(std::memory_order_acquire) == Waiter::waiting)
    {
        std::uint32_t expected = Waiter::waiting;
        if (!futexWait(waiter.state, Waiter::waiting, deadline.Time()))
            waiter.state.compare_exchange_strong(expected, Waiter::timedOut, std::memory_order_acquire);
    }
}

DWORD failWait(DWORD error) noexcept
{
    SetLastError(error);
    return WAIT_FAILED;
}

/// The slow way of every wait: WAIT_OBJECT_0 plus the index of the object that ended it, WAIT_TIMEOUT or WAIT_FAILED.
DWORD waitInQueues(Waiter& waiter, const Deadline& deadline) noexcept
{
    t_waiter = &waiter;
    const Enqueued enqueued = waiter.forAll ? enqueueForAll(waiter) : enqueueForAny(waiter);
    if (enqueued == Enqueued::yes)
        sleep(waiter, deadline);
    // Who served the only object of a wait has taken it out of the queue already.
    if (waiter.count > 1 || waiter.state.load(std::memory_order_relaxed) == Waiter::timedOut)
        leaveQueues(waiter);
    t_waiter = nullptr;
    const std::uint32_t state = waiter.state.load(std::memory_order_acquire);
    if (state == Waiter::timedOut)
        return WAIT_TIMEOUT;
    return state != Waiter::waiting ? WAIT_OBJECT_0 + state - 1 : failWait(ERROR_INVALID_HANDLE);
}

DWORD waitForOneInQueue(const ObjectRef& ref, const Deadline& deadline) noexcept
{
    WaitNode node;
    Waiter waiter;
    node.waiter = &waiter;
    node.ref = ref;
    waiter.nodes = &node;
    waiter.count = 1;
    return waitInQueues(waiter, deadline);
}

DWORD waitForOne(const ObjectRef& ref, DWORD timeoutMs) noexcept
{
    Taken taken = take(ref);
    if (taken == Taken::no && timeoutMs != 0)
    {
        const Deadline deadline(timeoutMs);
        // Who waits for a semaphore is a critical section, as a rule, and has looked long enough itself.
        if (ref.Kind() != ObjectKind::semaphore)
            taken = spin(ref);
        if (taken == Taken::no)
            return waitForOneInQueue(ref, deadline);
    }
    if (taken == Taken::gone)
        return failWait(ERROR_INVALID_HANDLE);
    return taken == Taken::yes ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

/// The objects of a wait for several.
struct Targets
{
    std::array<ObjectRef, MAXIMUM_WAIT_OBJECTS> refs;
    std::uint32_t count = 0;
    bool threads = false; ///< There are threads among them.

    /// False, with the last error, when a handle is not open.
    bool Find(DWORD handles, const HANDLE* first) noexcept
    {
        for (; count < handles; ++count)
        {
            refs[count] = requireObject(first[count], ObjectKind::manualEvent, ObjectKind::thread);
            if (!refs[count])
                return false;
            threads = threads || refs[count].Kind() == ObjectKind::thread;
        }
        return true;
    }

    /// Whether an object is there twice.
    bool HasDuplicates() const noexcept
    {
        for (std::uint32_t i = 1; i < count; ++i)
        {
            for (std::uint32_t j = 0; j < i; ++j)
            {
                if (refs[i].object == refs[j].object)
                    return true;
            }
        }
        return false;
    }
};

DWORD waitForSeveralInQueues(const Targets& targets, bool all, DWORD timeoutMs) noexcept
{
    const Deadline deadline(timeoutMs);
    std::array<WaitNode, MAXIMUM_WAIT_OBJECTS> nodes;
    Waiter waiter;
    waiter.forAll = all && targets.count > 1;
    waiter.nodes = nodes.data();
    waiter.count = targets.count;
    for (std::uint32_t i = 0; i < targets.count; ++i)
    {
        nodes[i].waiter = &waiter;
        nodes[i].ref = targets.refs[i];
    }
    return waitInQueues(waiter, deadline);
}

DWORD waitForSeveral(const Targets& targets, bool all, DWORD timeoutMs) noexcept
{
    for (std::uint32_t i = 0; !all && i < targets.count; ++i)
    {
        const Taken taken = take(targets.refs[i]);
        if (taken == Taken::gone)
            return failWait(ERROR_INVALID_HANDLE);
        if (taken == Taken::yes)
            return WAIT_OBJECT_0 + i;
    }
    return all || timeoutMs != 0 ? waitForSeveralInQueues(targets, all, timeoutMs) : WAIT_TIMEOUT;
}

/// Keeps the threads among the objects of a wait until it has seen that they execute nothing any more.
class ThreadsOfWait
{
public:
    ThreadsOfWait(const ObjectRef* refs, std::uint32_t count) noexcept : m_refs(refs)
    {
        for (; m_count < count; ++m_count)
            m_held[m_count] = refs[m_count].Kind() == ObjectKind::thread && addReference(refs[m_count]);
    }

    ThreadsOfWait(const ThreadsOfWait&) = delete;
    ThreadsOfWait& operator=(const ThreadsOfWait&) = delete;

    ~ThreadsOfWait()
    {
        for (std::uint32_t i = 0; i < m_count; ++i)
        {
            if (m_held[i])
                dropReference(*m_refs[i].object);
        }
    }

    void Join(std::uint32_t index) const noexcept
    {
        if (m_held[index])
            joinThread(*m_refs[index].object->ThreadData());
    }

    void JoinAll() const noexcept
    {
        for (std::uint32_t i = 0; i < m_count; ++i)
            Join(i);
    }

private:
    const ObjectRef* const m_refs;
    std::uint32_t m_count = 0;
    std::array<bool, MAXIMUM_WAIT_OBJECTS> m_held{};
};

DWORD waitForThread(const ObjectRef& ref, DWORD timeoutMs) noexcept
{
    const ThreadsOfWait threads(&ref, 1);
    const DWORD result = waitForOne(ref, timeoutMs);
    if (result == WAIT_OBJECT_0)
        threads.Join(0);
    return result;
}

DWORD waitForSeveralWithThreads(const Targets& targets, bool all, DWORD timeoutMs) noexcept
{
    const ThreadsOfWait threads(targets.refs.data(), targets.count);
    const DWORD result = waitForSeveral(targets, all, timeoutMs);
    if (result >= targets.count) // WAIT_OBJECT_0 is 0
        return result;
    if (all)
        threads.JoinAll();
    else
        threads.Join(result);
    return result;
}
} // namespace

SignalResult signalObject(const ObjectRef& ref, std::uint32_t signals, std::uint32_t& previous) noexcept
{
    std::uint64_t word = ref.object->word.load(std::memory_order_relaxed);
    while (ref.IsFor(word) && (word & Object::queuedBit) == 0)
    {
        std::uint64_t next = word;
        previous = signalsOf(word);
        if (!addSignals(ref, next, signals))
            return SignalResult::tooMany;
        if (ref.object->word.compare_exchange_weak(word, next, std::memory_order_release, std::memory_order_relaxed))
            return SignalResult::done;
    }
    bool fits = true;
    const auto add = [&](auto serve)
    {
        word = ref.object->word.load(std::memory_order_relaxed);
        std::uint64_t next = word;
        previous = signalsOf(word);
        fits = addSignals(ref, next, signals);
        ref.object->word.fetch_add(next - word, std::memory_order_release);
        serve();
    };
    if (!changeLocked(ref, add))
        return SignalResult::gone;
    return fits ? SignalResult::done : SignalResult::tooMany;
}

bool resetObject(const ObjectRef& ref, bool pulse) noexcept
{
    std::uint64_t word = ref.object->word.load(std::memory_order_relaxed);
    while (ref.IsFor(word) && (word & Object::queuedBit) == 0)
    {
        if (ref.object->word.compare_exchange_weak(word, word & ~Object::signalsMask, std::memory_order_acq_rel,
                                                   std::memory_order_relaxed))
            return true;
    }
    return changeLocked(ref,
                        [&](auto serve)
                        {
                            if (pulse)
                            {
                                ref.object->word.fetch_or(1, std::memory_order_release);
                                serve();
                            }
                            ref.object->word.fetch_and(~Object::signalsMask, std::memory_order_acq_rel);
                        });
}

void abandonWait() noexcept
{
    Waiter* const waiter = t_waiter;
    if (waiter == nullptr)
        return;
    std::uint32_t expected = Waiter::waiting;
    waiter->state.compare_exchange_strong(expected, Waiter::timedOut, std::memory_order_acquire);
    leaveQueues(*waiter);
}
} // namespace tarvo::kernel

namespace tarvo::kernel
{
namespace
{
/// Whether the handle is an event's own, and the event is set and nobody waits for it; takes its signal then. What
/// most waits find.
inline bool takeEventAtOnce(HANDLE handle) noexcept
{
    Object& slot = likelySlotOf(handle);
    std::uint64_t set = generationOf(handle) | Object::openBit | 1;
    if (hasHandleBit(handle, autoEventBit))
        return slot.word.compare_exchange_strong(set, set - 1, std::memory_order_acquire);
    return hasHandleBit(handle, manualEventBit) && slot.word.load(std::memory_order_acquire) == set;
}

[[gnu::noinline]] DWORD waitOtherwise(HANDLE handle, DWORD timeoutMs) noexcept
{
    const ObjectRef ref = requireObject(handle, ObjectKind::manualEvent, ObjectKind::thread);
    if (!ref)
        return WAIT_FAILED;
    return ref.Kind() == ObjectKind::thread ? waitForThread(ref, timeoutMs) : waitForOne(ref, timeoutMs);
}
} // namespace
} // namespace tarvo::kernel

DWORD WaitForSingleObject(HANDLE object, DWORD timeoutMs) noexcept
{
    return tarvo::kernel::takeEventAtOnce(object) ? WAIT_OBJECT_0 : tarvo::kernel::waitOtherwise(object, timeoutMs);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD timeoutMs) noexcept
{
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS)
        return tarvo::kernel::failWait(ERROR_INVALID_PARAMETER);
    tarvo::kernel::Targets targets;
    if (!targets.Find(count, handles))
        return WAIT_FAILED;
    if (waitAll && targets.HasDuplicates())
        return tarvo::kernel::failWait(ERROR_INVALID_PARAMETER);
    const auto wait = targets.threads ? &tarvo::kernel::waitForSeveralWithThreads : &tarvo::kernel::waitForSeveral;
    return wait(targets, waitAll != FALSE, timeoutMs);
}
