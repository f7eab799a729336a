// A diagnostics client that needs a library which is not there when it is loaded.

extern "C" void needed();

extern "C" void SendDiagnosticsTraceW()
{
    needed();
}
