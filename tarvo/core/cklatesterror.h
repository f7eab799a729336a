#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>

/// The calling thread's last platform error, as a number and in the system's words.
///
/// Threads: a value for one thread at a time; it describes the thread that made or last updated it.
/// Failure: text that cannot be had is empty. Allocation may fail as the text's does.
class TARVO_API CkLatestError
{
public:
    CkLatestError() { Update(); }

    /// Captures the error again. Leaves the thread's last error as it is.
    void Update();

    /// 1 when there is an error, else 0.
    int IsError() const noexcept { return m_number != 0 ? 1 : 0; }

    ULONG GetLatestErrorNumber() const noexcept { return m_number; }

    /// Without white space at either end.
    const CString& GetLatestErrorMessage() const noexcept { return m_message; }

private:
    ULONG m_number = 0;
    CString m_message;
};
