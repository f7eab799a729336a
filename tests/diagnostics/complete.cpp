// A diagnostics client with all of its entry points.

extern "C" void SendDiagnosticsTraceW() {}
extern "C" void SendDiagnosticsTimerW() {}
extern "C" void SendDiagnosticsBitmapW() {}
