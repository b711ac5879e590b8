// A trace library for developers: the module finds it beside itself as "qnztraceX64.dll", and hands it its
// records. docs/tracing.md tells how to switch it on.
#include <windows.h>

#include <new>

#include "tracelib/TraceWriter.h"

namespace
{

CTraceWriter* g_pWriter = nullptr;

}  // namespace

extern "C" void WINAPI QNZTRACERAWA(unsigned long level, unsigned long, unsigned long, const char* text)
{
    const DWORD dwLastError = GetLastError();
    if (g_pWriter != nullptr)
    {
        g_pWriter->Take(level, text);
    }
    SetLastError(dwLastError);
}

BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID pReserved)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        DisableThreadLibraryCalls(hInstance);
        g_pWriter = new (std::nothrow) CTraceWriter(hInstance);
    }
    else if (dwReason == DLL_PROCESS_DETACH && g_pWriter != nullptr)
    {
        if (pReserved != nullptr)
        {
            g_pWriter->TakeOver();
            return TRUE;
        }
        g_pWriter->Stop();
        delete g_pWriter;
        g_pWriter = nullptr;
    }
    return TRUE;
}
