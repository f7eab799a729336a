#include <tarvo/core/detail/exceptionreport.h>

#include <atomic>

namespace tarvo::detail
{
namespace
{
constinit std::atomic<ReportSink> g_sink{nullptr};
}

void reportException(const CString& fileName, unsigned int codeLine, const CkRTTI& rtti)
{
    if (const ReportSink sink = g_sink.load(std::memory_order_acquire))
        sink(fileName, codeLine, rtti.GetName());
}

ReportSink exchangeReportSink(ReportSink sink) noexcept
{
    return g_sink.exchange(sink, std::memory_order_acq_rel);
}
} // namespace tarvo::detail
