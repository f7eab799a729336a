#include <tarvo/platform/kernel/linux/slots.h>

namespace tarvo::kernel
{
namespace
{
using Object = KernelObject;

/// A handle as the other side sees it: not null, and a multiple of four.
HANDLE makeHandle(std::uint32_t index, ObjectKind kind, std::uint64_t word) noexcept
{
    std::uint64_t bits = 0;
    if (kind == ObjectKind::manualEvent)
        bits = manualEventBit;
    else if (kind == ObjectKind::autoEvent)
        bits = autoEventBit;
    return reinterpret_cast<HANDLE>((word & Object::generationMask) | bits | (std::uint64_t{index} + 1) << 2);
}

/// Where a duplicate leads; nothing when it was closed meanwhile.
ObjectRef follow(HANDLE handle, const Object& slot) noexcept
{
    // The two belong together, and to this handle, if it is still open after they were read: acquire keeps the order.
    const ObjectRef ref{slot.Target(), slot.payloadGeneration.load(std::memory_order_acquire)};
    return isOpenFor(handle, slot.word.load(std::memory_order_relaxed)) ? ref : ObjectRef();
}

/// The handle and nothing else refers to the object, and nobody waits: closing ends both in one step.
bool closeOnly(Object& slot, std::uint64_t word) noexcept
{
    const std::uint64_t next = (word & Object::generationMask) + Object::generation;
    if (!slot.word.compare_exchange_strong(word, next, std::memory_order_acq_rel, std::memory_order_relaxed))
        return false;
    giveSlot(slot);
    return true;
}

bool closeShared(Object& slot, HANDLE handle) noexcept
{
    bool last = false;
    {
        const Hold hold(slot.lock);
        // Another call may close the handle in one step at any moment, as the word says by now.
        std::uint64_t word = slot.word.load(std::memory_order_relaxed);
        do
        {
            if (!isOpenFor(handle, word))
                return false;
        } while (!slot.word.compare_exchange_weak(word, word & ~Object::openBit, std::memory_order_relaxed));
        last = dropReferenceLocked(slot);
    }
    if (last)
        endObject(slot);
    return true;
}

bool closeHandle(HANDLE handle) noexcept
{
    const Undisturbed undisturbed;
    Object* const slot = slotOf(handle);
    while (slot != nullptr)
    {
        const std::uint64_t word = slot->word.load(std::memory_order_acquire);
        if (!isOpenFor(handle, word))
            return false;
        if ((word & (Object::queuedBit | Object::sharedBit)) != 0)
            return closeShared(*slot, handle);
        const ObjectKind kind = slot->kind.load(std::memory_order_relaxed);
        void* const payload = slot->payload.load(std::memory_order_relaxed);
        if (!closeOnly(*slot, word))
            continue;
        if (kind == ObjectKind::duplicate)
            dropReference(*static_cast<Object*>(payload));
        else if (kind == ObjectKind::thread)
            forgetThread(static_cast<Thread*>(payload));
        return true;
    }
    return false;
}

HANDLE duplicateHandle(HANDLE source) noexcept
{
    const Undisturbed undisturbed;
    const ObjectRef ref = findObject(source);
    if (!ref || !addReference(ref))
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    Object* const slot = takeSlot();
    if (slot == nullptr)
    {
        dropReference(*ref.object);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    slot->payload.store(ref.object, std::memory_order_release);
    slot->payloadGeneration.store(ref.generation, std::memory_order_release);
    return openSlot(*slot, ObjectKind::duplicate, 0);
}
} // namespace

HANDLE openSlot(KernelObject& slot, ObjectKind kind, std::uint32_t signals) noexcept
{
    slot.kind.store(kind, std::memory_order_relaxed);
    slot.references = 1;
    const std::uint64_t word = slot.word.load(std::memory_order_relaxed) | Object::openBit | signals;
    slot.word.store(word, std::memory_order_release);
    return makeHandle(indexOf(slot), kind, word);
}

HANDLE openObject(ObjectKind kind, std::uint32_t signals, std::uint32_t maximum, Thread* thread) noexcept
{
    const Undisturbed undisturbed;
    Object* const slot = takeSlot();
    if (slot == nullptr)
        return nullptr;
    slot->maximum.store(maximum, std::memory_order_relaxed);
    slot->payload.store(thread, std::memory_order_release);
    return openSlot(*slot, kind, signals);
}

ObjectRef findObject(HANDLE handle) noexcept
{
    Object* const slot = slotOf(handle);
    if (slot == nullptr || !isOpenFor(handle, slot->word.load(std::memory_order_acquire)))
        return {};
    if (slot->kind.load(std::memory_order_relaxed) == ObjectKind::duplicate)
        return follow(handle, *slot);
    return {slot, generationOf(handle)};
}

ObjectRef requireObject(HANDLE handle, ObjectKind first, ObjectKind last) noexcept
{
    const ObjectRef ref = findObject(handle);
    if (ref && ref.Kind() >= first && ref.Kind() <= last)
        return ref;
    SetLastError(ERROR_INVALID_HANDLE);
    return {};
}

bool addReference(const ObjectRef& ref) noexcept
{
    const Hold hold(ref.object->lock);
    std::uint64_t word = ref.object->word.load(std::memory_order_relaxed);
    do
    {
        if (!ref.IsFor(word))
            return false;
    } while (!ref.object->word.compare_exchange_weak(word, word | Object::sharedBit, std::memory_order_relaxed));
    ++ref.object->references;
    return true;
}

bool dropReferenceLocked(KernelObject& object) noexcept
{
    if (--object.references == 0)
    {
        // Before the lock is left: a call that still knows the object finds it gone.
        const std::uint64_t word = object.word.load(std::memory_order_relaxed);
        object.word.store((word & Object::generationMask) + Object::generation, std::memory_order_release);
        return true;
    }
    // Alone again, the handle can be closed in one step, without the lock: release pairs with the acquire there.
    if (object.references == 1)
        object.word.fetch_and(~Object::sharedBit, std::memory_order_release);
    return false;
}

void dropReference(KernelObject& object) noexcept
{
    const Undisturbed undisturbed;
    bool last = false;
    {
        const Hold hold(object.lock);
        last = dropReferenceLocked(object);
    }
    if (last)
        endObject(object);
}

void endObject(KernelObject& object) noexcept
{
    const bool isThread = object.kind.load(std::memory_order_relaxed) == ObjectKind::thread;
    Thread* const thread = object.ThreadData();
    giveSlot(object);
    if (isThread)
        forgetThread(thread);
}
} // namespace tarvo::kernel

BOOL CloseHandle(HANDLE object) noexcept
{
    if (tarvo::kernel::closeHandle(object))
        return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target, DWORD, BOOL,
                     DWORD options) noexcept
{
    if (sourceProcess != GetCurrentProcess() || targetProcess != GetCurrentProcess() || target == nullptr ||
        options != DUPLICATE_SAME_ACCESS)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *target = tarvo::kernel::duplicateHandle(source);
    return *target != nullptr ? TRUE : FALSE;
}
