#pragma once

namespace tarvo::kernel
{
/// Has `function` called in the child, on its one thread, before a `fork` of this process returns there. It may do what
/// a signal handler may. False where the system has no `fork`, or no memory to note the function.
bool callInForkedChild(void (*function)()) noexcept;
} // namespace tarvo::kernel
