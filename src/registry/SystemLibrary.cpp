#include "registry/SystemLibrary.h"

#include <shlwapi.h>

#include "base/FirstUse.h"

namespace
{

constinit CFirstUse<CSystemLibrary> g_advapi32;

}  // namespace

HMODULE LoadSystemLibrary(const wchar_t* name)
{
    wchar_t szPath[MAX_PATH] = {};
    const UINT cch = GetSystemDirectoryW(szPath, MAX_PATH);
    if (cch == 0 || cch >= MAX_PATH || !PathAppendW(szPath, name))
    {
        return nullptr;
    }
    return LoadLibraryW(szPath);
}

const CSystemLibrary& GetAdvapi32()
{
    return g_advapi32.Get(L"advapi32.dll");
}
