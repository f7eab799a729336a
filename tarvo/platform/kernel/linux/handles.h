#pragma once

#include <tarvo/platform/kernel/linux/objects.h>

// Handles: numbers that find an object as long as they are open, and nothing afterwards.

namespace tarvo::kernel
{
/// A new handle for `object`, which passes its caller's reference to the handle. Null, and the reference still the
/// caller's, when 4 million handles are open.
HANDLE openHandle(KernelObject* object) noexcept;

/// Gives a handle up; false for one that is not open.
bool closeHandle(HANDLE handle) noexcept;

/// Keeps the object behind a handle alive for a call, also when another thread closes the handle meanwhile.
///
/// Empty, with the last error ERROR_INVALID_HANDLE, for a handle that is not open.
class HandlePin
{
public:
    explicit HandlePin(HANDLE handle) noexcept;
    HandlePin(const HandlePin&) = delete;
    HandlePin& operator=(const HandlePin&) = delete;
    ~HandlePin();

    KernelObject* Object() const noexcept { return m_object; }

    /// The object as one of a certain kind; null, with the last error ERROR_INVALID_HANDLE, when it is another.
    template <class Kind>
    Kind* As() const noexcept
    {
        if (m_object == nullptr || m_object->GetKind() == Kind::kind)
            return static_cast<Kind*>(m_object);
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }

private:
    std::uint32_t m_slot = 0;
    KernelObject* m_object = nullptr;
};
} // namespace tarvo::kernel
