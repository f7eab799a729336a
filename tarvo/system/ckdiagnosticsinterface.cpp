#include <tarvo/system/ckdiagnosticsinterface.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/core/ckformat.h>
#include <tarvo/platform/kernel/messagebox.h>

template class CkSingleton<CkDiagnosticsInterface>;

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\system\\ckdiagnosticsinterface");
constexpr unsigned int lineTrace = 40;
constexpr unsigned int lineTimer = 50;
constexpr unsigned int lineImage = 60;

constexpr const WCHAR* clientFile = CK_T("Vistrel.dll");

void tellUser(const CString& text)
{
    tarvo::kernel::showMessageBox(text, CK_T("Error"), MB_OK | MB_ICONEXCLAMATION);
}
} // namespace

CkDiagnosticsInterface::CkDiagnosticsInterface() = default;
CkDiagnosticsInterface::~CkDiagnosticsInterface() = default;

void CkDiagnosticsInterface::SendTrace(const WCHAR*, ...)
{
    throw CkException(source, lineTrace);
}

void CkDiagnosticsInterface::SendTrace(const unsigned short*, ...)
{
    throw CkException(source, lineTrace);
}

void CkDiagnosticsInterface::SendDiagnosticsTimer(const WCHAR*, const WCHAR*, ...)
{
    throw CkException(source, lineTimer);
}

void CkDiagnosticsInterface::SendDiagnosticsTimer(const unsigned short*, const unsigned short*, ...)
{
    throw CkException(source, lineTimer);
}

void CkDiagnosticsInterface::SendDiagnosticsImage(const WCHAR*, ULONG, ULONG, int, void*)
{
    throw CkException(source, lineImage);
}

void CkDiagnosticsInterface::SendDiagnosticsImage(const unsigned short*, ULONG, ULONG, int, void*)
{
    throw CkException(source, lineImage);
}

bool CkDiagnosticsInterface::loadClientLibrary()
{
    if (!m_loadPending.exchange(false, std::memory_order_relaxed))
        return false;
    const HMODULE client = LoadLibraryW(clientFile);
    if (client == nullptr)
    {
        tellUser(loadMessage(GetLastError()));
        return false;
    }
    m_traceEntry = GetProcAddress(client, "SendDiagnosticsTraceW");
    m_timerEntry = GetProcAddress(client, "SendDiagnosticsTimerW");
    m_bitmapEntry = GetProcAddress(client, "SendDiagnosticsBitmapW");
    if (m_traceEntry != nullptr && m_timerEntry != nullptr && m_bitmapEntry != nullptr)
        return true;
    tellUser(CkFormat(CK_T("Vistrel: Could not find method(s) in library %s"), clientFile));
    return false;
}

CString CkDiagnosticsInterface::loadMessage(DWORD error)
{
    const CString message = CkFormat(CK_T("Vistrel: Could not load library %s.\n"), clientFile);
    switch (error)
    {
    case ERROR_MOD_NOT_FOUND: return message + CK_T("File does not exist.");
    case ERROR_BAD_EXE_FORMAT: return message + CK_T("32/64-bit mismatch.");
    default: return message + CkFormat(CK_T("Windows error code: 0x%X (%u)."), error, error);
    }
}
