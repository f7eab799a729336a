#pragma once

#include <tarvo/platform/kernel/linux/declarations.h>
#include <tarvo/platform/kernel/linux/futex.h>

#include <atomic>
#include <cstdint>

// Kernel objects and the handles that refer to them.
//
// Both live in one table of slots that never move and are never given back: a call may look at a slot although another
// thread ends the object in it. What it finds is then another generation, and the call's compare-and-swap fails. So no
// call has to keep an object alive for as long as it takes, and whoever wakes from a wait may close the handle at once.
//
// In a child made by `fork`, objects that other threads were using at that moment are as these left them.
//
// The handle that an object was made with names the object's own slot. A duplicate has a slot of its own, which only
// says where the object is.

namespace tarvo::kernel
{
struct Thread;
struct WaitNode;

enum class ObjectKind : std::uint32_t
{
    none,
    manualEvent,
    autoEvent,
    semaphore,
    thread,
    duplicate
};

/// Something that is signalled some number of times and can be waited for.
///
/// Everything that signals and waits need to know is in one word, so that a signal that meets nobody and a wait that
/// finds a signal are one compare-and-swap. As long as somebody waits, the word changes under the lock alone: a signal
/// is then taken on behalf of the longest waiter before that is woken, so none is lost to a waiter that times out.
///
/// | word             | signal                        | wait                                          |
/// |------------------|-------------------------------|-----------------------------------------------|
/// | n, nobody waits  | n + 1, an event's at most 1   | n > 0: n - 1 unless it stays set; 0: queue up |
/// | somebody waits   | serves the first in the queue | takes what is left over, or queues up         |
///
/// Zero bytes are an object that is not in use.
struct alignas(64) KernelObject
{
    static constexpr std::uint64_t signalsMask = 0x7FFFFFFF;            ///< The number of signals.
    static constexpr std::uint64_t queuedBit = std::uint64_t{1} << 31;  ///< Somebody waits.
    static constexpr std::uint64_t openBit = std::uint64_t{1} << 32;    ///< The slot's own handle is open.
    static constexpr std::uint64_t sharedBit = std::uint64_t{1} << 33;  ///< More than that handle refers to the object.
    static constexpr std::uint64_t generation = std::uint64_t{1} << 34; ///< One generation in the bits from here on.
    static constexpr std::uint64_t generationMask = ~(generation - 1);

    std::atomic<std::uint64_t> word;

    // Written before the word opens the slot.
    std::atomic<ObjectKind> kind;
    std::atomic<std::uint32_t> maximum;           ///< Of a semaphore.
    std::atomic<void*> payload;                   ///< Of a duplicate: the object. Of a thread: its data.
    std::atomic<std::uint64_t> payloadGeneration; ///< Of a duplicate: that of the object.

    // Guarded by the lock.
    FutexLock lock;
    std::uint32_t references; ///< Handles, threads in the queue, the thread itself; the last one ends the object.
    WaitNode* first;          ///< The queue.
    WaitNode* last;
    std::uint32_t waitsForAll; ///< Threads in the queue that wait for other objects as well.

    std::uint32_t nextFree; ///< Of a slot that is not in use: the index of the next one, plus 1. See slots.cpp.

    KernelObject* Target() const noexcept
    {
        return static_cast<KernelObject*>(payload.load(std::memory_order_acquire));
    }

    Thread* ThreadData() const noexcept { return static_cast<Thread*>(payload.load(std::memory_order_relaxed)); }

    /// Whether a wait leaves the signal.
    bool StaysSet() const noexcept
    {
        const ObjectKind k = kind.load(std::memory_order_relaxed);
        return k == ObjectKind::manualEvent || k == ObjectKind::thread;
    }
};

static_assert(sizeof(KernelObject) == 64, "an object is one cache line");

/// An object as a call has found it: it is this one as long as the generation is the same.
struct ObjectRef
{
    KernelObject* object = nullptr;
    std::uint64_t generation = 0;

    explicit operator bool() const noexcept { return object != nullptr; }
    bool IsFor(std::uint64_t word) const noexcept { return (word & KernelObject::generationMask) == generation; }
    ObjectKind Kind() const noexcept { return object->kind.load(std::memory_order_relaxed); }
};

/// A new object with one handle, and nothing else that refers to it. Null when 4 million slots are in use.
HANDLE openObject(ObjectKind kind, std::uint32_t signals, std::uint32_t maximum = 0, Thread* thread = nullptr) noexcept;

/// What an open handle refers to; nothing, without a last error, for a handle that is not open.
ObjectRef findObject(HANDLE handle) noexcept;

/// As `findObject`, but for the kinds from `first` to `last` alone and with the last error ERROR_INVALID_HANDLE.
ObjectRef requireObject(HANDLE handle, ObjectKind first, ObjectKind last) noexcept;

/// Takes a reference; false when the object is gone.
bool addReference(const ObjectRef& ref) noexcept;

/// Gives one up.
void dropReference(KernelObject& object) noexcept;

/// As `dropReference`, with the object's lock held. True when that was the last one: the object is gone, and the caller
/// must give its slot back with `endObject` once it holds no lock any more.
bool dropReferenceLocked(KernelObject& object) noexcept;
void endObject(KernelObject& object) noexcept;

enum class SignalResult
{
    done,
    gone,   ///< The object is.
    tooMany ///< More than the maximum of a semaphore; nothing is done.
};

/// Gives the object `signals` more signals, one that can have only one that one, and serves those who wait. The number
/// before goes to `previous`.
SignalResult signalObject(const ObjectRef& ref, std::uint32_t signals, std::uint32_t& previous) noexcept;

/// Takes all signals, after those who wait now were served from one if `pulse`; false when the object is gone.
bool resetObject(const ObjectRef& ref, bool pulse) noexcept;

/// Unlinks the nodes of the wait in which the running thread was interrupted for good.
void abandonWait() noexcept;

/// Makes sure that the thread of the object, which is signalled, executes nothing any more.
void joinThread(Thread& thread) noexcept;

/// Called with the last reference to a thread's object.
void forgetThread(Thread* thread) noexcept;
} // namespace tarvo::kernel
