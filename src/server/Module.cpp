// The module's entry point and exports.
#include <windows.h>

#include "server/ComponentTable.h"
#include "server/Factory.h"
#include "server/Registration.h"
#include "server/Unknown.h"

namespace
{

HMODULE g_hModule = nullptr;

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID /*reserved*/)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        DisableThreadLibraryCalls(hInstance);
        g_hModule = hInstance;
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* ppv)
{
    return GetClassObject(clsid, riid, ppv);
}

STDAPI DllCanUnloadNow()
{
    // Intended: a count of locks below zero keeps nothing loaded, one of components does.
    return g_cComponents != 0 || g_cServerLocks > 0 ? S_FALSE : S_OK;
}

STDAPI DllRegisterServer()
{
    const CFactoryData& row = g_FactoryDataArray[0];
    return RegisterServer(g_hModule, *row.pClsid, row.pszFriendlyName, row.pszVersionIndependentProgId,
                          row.pszProgId);
}

STDAPI DllUnregisterServer()
{
    const CFactoryData& row = g_FactoryDataArray[0];
    return UnregisterServer(*row.pClsid, row.pszVersionIndependentProgId, row.pszProgId);
}
