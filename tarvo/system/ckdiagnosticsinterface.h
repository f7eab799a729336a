#pragma once

#include <tarvo/config.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>

#include <atomic>

class CkDiagnosticsInterface;
extern template class TARVO_API CkSingleton<CkDiagnosticsInterface>;

/// The bridge to the diagnostics client, a library of its own that may or may not be installed.
///
/// Its sending operations reach no client as yet: each raises `CkException`.
///
/// Threads: the instance may be asked for, and everything be sent, from any thread. Takes no lock.
/// Lifetime: made by whoever asks for the instance first, destroyed when this library is unloaded. A client that was
/// loaded stays for the rest of the process.
class TARVO_API CkDiagnosticsInterface : public CkSingleton<CkDiagnosticsInterface>
{
public:
    CkDiagnosticsInterface(const CkDiagnosticsInterface&) = delete;
    CkDiagnosticsInterface& operator=(const CkDiagnosticsInterface&) = delete;
    ~CkDiagnosticsInterface();

    /// A text, formatted with what follows.
    void SendTrace(const WCHAR* format, ...);
    void SendTrace(const unsigned short* format, ...);

    /// The value of a timer, under a name and with a text that is formatted with what follows.
    void SendDiagnosticsTimer(const WCHAR* name, const WCHAR* format, ...);
    void SendDiagnosticsTimer(const unsigned short* name, const unsigned short* format, ...);

    /// An image under a name: its width and height, the kind of its pixels, and their data.
    void SendDiagnosticsImage(const WCHAR* name, ULONG width, ULONG height, int format, void* data);
    void SendDiagnosticsImage(const unsigned short* name, ULONG width, ULONG height, int format, void* data);

private:
    friend class CkSingleton<CkDiagnosticsInterface>;
    friend struct CkDiagnosticsInterfacePeer;

    CkDiagnosticsInterface();

    /// Loads the client and finds its entry points; true when all are there. It is tried once: later calls, and of two
    /// first calls on different threads the other one, return false and do nothing. What is missing is told to the user
    /// in a message box, on this thread.
    bool loadClientLibrary();

    /// What to tell the user about a client that could not be loaded, and the system's error code.
    static CString loadMessage(DWORD error);

    FARPROC m_traceEntry = nullptr;
    FARPROC m_timerEntry = nullptr;
    FARPROC m_bitmapEntry = nullptr;
    std::atomic<bool> m_loadPending{true}; ///< Decides alone who loads; the entries are that thread's.
};
