#include <tarvo/platform/kernel/messagebox.h>

#include <atomic>

namespace
{
constinit std::atomic<tarvo::kernel::MessageBoxFunction> g_function{nullptr};
}

// Release and acquire: what the application prepared for its function is there when it is called.

tarvo::kernel::MessageBoxFunction tarvo::kernel::SetMessageBox(MessageBoxFunction function) noexcept
{
    return g_function.exchange(function, std::memory_order_acq_rel);
}

int tarvo::kernel::showMessageBox(const WCHAR* text, const WCHAR* caption, unsigned int style)
{
    const MessageBoxFunction function = g_function.load(std::memory_order_acquire);
    return function != nullptr ? function(text, caption, style) : MessageBoxW(nullptr, text, caption, style);
}
