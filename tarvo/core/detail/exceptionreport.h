#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/platform/framework/cstring.h>

// The way from a newly constructed exception to those who listen.

namespace tarvo::detail
{
/// Takes a report: file name and line of the raising site, and the class name of the exception.
using ReportSink = void (*)(const CString& fileName, unsigned int codeLine, const CString& className);

/// Reports an exception of the class of `rtti`. What the sink raises passes on.
void reportException(const CString& fileName, unsigned int codeLine, const CkRTTI& rtti);

/// Makes `sink` (null: nobody) the receiver of all reports and returns the one before. From any thread; a report that
/// is under way may still arrive at the old one.
TARVO_API ReportSink exchangeReportSink(ReportSink sink) noexcept;
} // namespace tarvo::detail
