#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>

/// A text formatted when it is made, for use wherever a `CString` is expected.
///
/// Threads: a value for one thread at a time.
/// Failure: as CString's. Arguments that do not match the format are the caller's error.
class TARVO_API CkFormat
{
public:
    /// Formats by the rules of `CString::FormatV`.
    explicit CkFormat(const WCHAR* format, ...);

    operator const CString&() const noexcept { return m_text; }

private:
    CString m_text;
};
