#pragma once

#include <tarvo/core/detail/exceptionreport.h>

#include <functional>
#include <vector>

/// Receives the reports of all exceptions while it lives.
class Reports
{
public:
    struct Report
    {
        CString fileName;
        unsigned int codeLine;
        CString className;

        bool operator==(const Report&) const = default;
    };

    /// `onReport` runs in every report, after it was noted.
    explicit Reports(std::function<void()> onReport = {}) : m_onReport(std::move(onReport))
    {
        s_current = this;
        m_outer = tarvo::detail::exchangeReportSink(&receive);
    }

    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    ~Reports()
    {
        tarvo::detail::exchangeReportSink(m_outer);
        s_current = nullptr;
    }

    const std::vector<Report>& All() const { return m_reports; }

private:
    static void receive(const CString& fileName, unsigned int codeLine, const CString& className)
    {
        s_current->m_reports.push_back({fileName, codeLine, className});
        if (s_current->m_onReport)
            s_current->m_onReport();
    }

    static inline Reports* s_current = nullptr;
    tarvo::detail::ReportSink m_outer = nullptr;
    std::function<void()> m_onReport;
    std::vector<Report> m_reports;
};
