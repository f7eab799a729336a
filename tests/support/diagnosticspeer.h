#pragma once

#include <tarvo/platform/kernel/messagebox.h>
#include <tarvo/system/ckdiagnosticsinterface.h>

#include <mutex>
#include <utility>
#include <vector>

/// Instances besides the one that there is, and what clients do not see of either.
struct CkDiagnosticsInterfacePeer
{
    CkDiagnosticsInterfacePeer() : CkDiagnosticsInterfacePeer(*new CkDiagnosticsInterface) { m_own = true; }
    explicit CkDiagnosticsInterfacePeer(CkDiagnosticsInterface& bridge) : m_bridge(bridge) {}
    CkDiagnosticsInterfacePeer(const CkDiagnosticsInterfacePeer&) = delete;
    CkDiagnosticsInterfacePeer& operator=(const CkDiagnosticsInterfacePeer&) = delete;

    ~CkDiagnosticsInterfacePeer()
    {
        if (m_own)
            delete &m_bridge;
    }

    bool Load() { return m_bridge.loadClientLibrary(); }
    static CString LoadMessage(DWORD error) { return CkDiagnosticsInterface::loadMessage(error); }

    /// Which of the entry points were found, in the order of the fields.
    std::vector<bool> Found() const
    {
        return {m_bridge.m_traceEntry != nullptr, m_bridge.m_timerEntry != nullptr, m_bridge.m_bitmapEntry != nullptr};
    }

private:
    CkDiagnosticsInterface& m_bridge;
    bool m_own = false;
};

/// Collects the library's message boxes while it lives, and closes each at once.
class MessageBoxes
{
public:
    struct Box
    {
        CString text;
        CString caption;
        unsigned int style;

        bool operator==(const Box&) const = default;
    };

    MessageBoxes() : m_before(tarvo::kernel::SetMessageBox(&show)) { s_boxes.clear(); }
    MessageBoxes(const MessageBoxes&) = delete;
    MessageBoxes& operator=(const MessageBoxes&) = delete;
    ~MessageBoxes() { tarvo::kernel::SetMessageBox(m_before); }

    /// Those since the last call.
    static std::vector<Box> Take()
    {
        const std::lock_guard guard(s_mutex);
        return std::exchange(s_boxes, {});
    }

private:
    static int show(const WCHAR* text, const WCHAR* caption, unsigned int style)
    {
        const std::lock_guard guard(s_mutex);
        s_boxes.push_back({text, caption, style});
        return IDOK;
    }

    static inline std::mutex s_mutex;
    static inline std::vector<Box> s_boxes;
    tarvo::kernel::MessageBoxFunction m_before;
};
