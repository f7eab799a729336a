#pragma once

#include <tarvo/core/ckloglistenermanager.h>

#include <atomic>
#include <functional>
#include <utility>
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
        // Listeners stay for ever, so there is one for all.
        static const bool registered = (listen(), true);
        static_cast<void>(registered);
        m_outer = s_current.exchange(this);
    }

    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    ~Reports() { s_current = m_outer; }

    const std::vector<Report>& All() const { return m_reports; }

private:
    static void listen()
    {
        CkLogListenerManager::GetInstance().RegisterListener(CkLogListenerManager::eEventException, &receive);
    }

    static void receive(CkLogListenerManager::EEventType, const CString& fileName, unsigned int codeLine,
                        const CString& className)
    {
        Reports* const current = s_current;
        if (current == nullptr)
            return;
        current->m_reports.push_back({fileName, codeLine, className});
        if (current->m_onReport)
            current->m_onReport();
    }

    static inline std::atomic<Reports*> s_current{nullptr};
    Reports* m_outer = nullptr;
    std::function<void()> m_onReport;
    std::vector<Report> m_reports;
};
