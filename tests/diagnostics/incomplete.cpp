// A diagnostics client that lacks two of its entry points.

extern "C" void SendDiagnosticsTraceW() {}
