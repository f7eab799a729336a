#pragma once

#include <tarvo/platform/framework/cstring.h>

#include <ostream>

/// How GoogleTest shows a text that a test did not expect.
inline void PrintTo(const CString& text, std::ostream* out)
{
    *out << '"' << text.ToUtf8() << "\" (" << text.GetLength() << " units)";
}
