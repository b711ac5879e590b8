#include "base/ModulePath.h"

bool GetModulePath(HMODULE hModule, wchar_t (&szPath)[MAX_PATH])
{
    const DWORD cch = GetModuleFileNameW(hModule, szPath, MAX_PATH);
    // A path that does not fit fills the buffer, on some systems without a terminator.
    szPath[cch < MAX_PATH ? cch : MAX_PATH - 1] = L'\0';
    return cch != 0 && cch < MAX_PATH;
}
