#include "registry/SystemLibrary.h"

#include <shlwapi.h>

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
    static const CSystemLibrary s_advapi32(L"advapi32.dll");
    return s_advapi32;
}
