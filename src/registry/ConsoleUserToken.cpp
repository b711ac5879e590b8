#include "registry/ConsoleUserToken.h"

#include <cstdlib>
#include <cwchar>

#include "base/FirstUse.h"
#include "base/ScopedHandle.h"
#include "registry/OSVersion.h"
#include "registry/SystemLibrary.h"

namespace
{

constexpr DWORD kNoConsoleSession = 0xFFFFFFFF;
constexpr DWORD kMaxProcesses = 1024;
constexpr DWORD kProcessAccess = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
constexpr DWORD kTokenAccess = TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY;

constinit CFirstUse<CSystemLibrary> g_psapi;

using WTSGetActiveConsoleSessionIdProc = DWORD WINAPI();
using EnumProcessesProc = BOOL WINAPI(DWORD* pProcesses, DWORD cb, DWORD* pcbNeeded);
using GetModuleFileNameExProc = DWORD WINAPI(HANDLE hProcess, HMODULE hModule, LPWSTR pszName, DWORD cch);
using OpenProcessTokenProc = BOOL WINAPI(HANDLE hProcess, DWORD dwAccess, PHANDLE phToken);
using GetTokenInformationProc = BOOL WINAPI(HANDLE hToken, TOKEN_INFORMATION_CLASS informationClass,
                                            LPVOID pInformation, DWORD cb, PDWORD pcbNeeded);

struct EntryPoints
{
    EnumProcessesProc* pfnEnumProcesses;
    GetModuleFileNameExProc* pfnGetModuleFileNameEx;
    OpenProcessTokenProc* pfnOpenProcessToken;
    GetTokenInformationProc* pfnGetTokenInformation;

    bool Complete() const
    {
        return pfnEnumProcesses != nullptr && pfnGetModuleFileNameEx != nullptr &&
               pfnOpenProcessToken != nullptr && pfnGetTokenInformation != nullptr;
    }
};

bool GetConsoleSession(DWORD& dwSession)
{
    const HMODULE hKernel32 = GetModuleHandleW(L"Kernel32.dll");
    auto* const pfnGetSession = hKernel32 != nullptr
                                    ? CSystemLibrary::FindEntryPoint<WTSGetActiveConsoleSessionIdProc>(
                                          hKernel32, "WTSGetActiveConsoleSessionId")
                                    : nullptr;
    if (pfnGetSession == nullptr)
    {
        return false;
    }
    dwSession = pfnGetSession();
    return dwSession != kNoConsoleSession;
}

bool IsShellPath(const wchar_t* pszPath)
{
    wchar_t szDrive[MAX_PATH] = {};
    wchar_t szFolder[MAX_PATH] = {};
    wchar_t szName[MAX_PATH] = {};
    wchar_t szExtension[MAX_PATH] = {};
    _wsplitpath(pszPath, szDrive, szFolder, szName, szExtension);
    return _wcsicmp(szName, L"explorer") == 0 && _wcsicmp(szExtension, L".exe") == 0;
}

// The token of one process, if it is the shell that is looked for.
bool TakeShellToken(const EntryPoints& entry, DWORD dwProcessId, DWORD dwConsoleSession, HANDLE* phToken)
{
    const CKernelHandle process(OpenProcess(kProcessAccess, FALSE, dwProcessId));
    if (!process)
    {
        return false;
    }
    wchar_t szPath[MAX_PATH] = {};
    const DWORD cchPath = entry.pfnGetModuleFileNameEx(process.Get(), nullptr, szPath, MAX_PATH);
    // A path that does not fit fills the buffer, on some systems without a terminator.
    szPath[MAX_PATH - 1] = L'\0';
    if (cchPath == 0 || !IsShellPath(szPath))
    {
        return false;
    }

    // Without a token or its session the process is not the one.
    DWORD dwSession = kNoConsoleSession;
    DWORD cbReturned = 0;
    const bool bKnown =
        entry.pfnOpenProcessToken(process.Get(), kTokenAccess, phToken) &&
        entry.pfnGetTokenInformation(*phToken, TokenSessionId, &dwSession, sizeof(dwSession), &cbReturned);
    if (bKnown && GetOSVersion() > kOSWindows2000 && dwSession == dwConsoleSession)
    {
        return true;
    }
    if (bKnown && GetOSVersion() <= kOSWindows2000 && dwSession == 0)
    {
        OutputDebugStringW(L"GetCurrentUserToken: Win2k find explorer success!\n");
        return true;
    }
    if (*phToken != nullptr)
    {
        CloseHandle(*phToken);
        *phToken = nullptr;
    }
    return false;
}

}  // namespace

BOOL GetCurrentUserToken(HANDLE* phToken)
{
    DWORD dwConsoleSession = kNoConsoleSession;
    if (GetOSVersion() > kOSWindows2000 && !GetConsoleSession(dwConsoleSession))
    {
        return FALSE;
    }

    const CSystemLibrary& psapi = g_psapi.Get(L"psapi.dll");
    const CSystemLibrary& advapi32 = GetAdvapi32();
    if (!psapi || !advapi32)
    {
        return FALSE;
    }
    const EntryPoints entry = {psapi.Find<EnumProcessesProc>("EnumProcesses"),
                               psapi.Find<GetModuleFileNameExProc>("GetModuleFileNameExW"),
                               advapi32.Find<OpenProcessTokenProc>("OpenProcessToken"),
                               advapi32.Find<GetTokenInformationProc>("GetTokenInformation")};
    if (!entry.Complete())
    {
        return FALSE;
    }

    DWORD processes[kMaxProcesses] = {};
    DWORD cbReturned = 0;
    if (!entry.pfnEnumProcesses(processes, sizeof(processes), &cbReturned) || cbReturned < sizeof(DWORD))
    {
        return FALSE;
    }
    const DWORD cProcesses =
        cbReturned < sizeof(processes) ? cbReturned / DWORD{sizeof(DWORD)} : kMaxProcesses;
    for (DWORD index = 0; index < cProcesses; ++index)
    {
        *phToken = nullptr;
        if (TakeShellToken(entry, processes[index], dwConsoleSession, phToken))
        {
            return TRUE;
        }
    }
    return FALSE;
}
