// The rows of what discovery asks for: the registry, the console user, the shell, and the profile's files.
#include <windows.h>

#include <shlobj.h>
#include <userenv.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/calls/CallRows.h"

namespace
{

constexpr char kKey[] = "key";
constexpr char kFile[] = "file";
constexpr char kHandle[] = "handle";
constexpr char kImpersonation[] = "impersonation";

void AddRegistryRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"RegOpenKeyExW", decltype(RegOpenKeyExW)>(
        Fails("not found", LONG{ERROR_FILE_NOT_FOUND}, ERROR_SUCCESS, "9"),
        Fails("refused", LONG{ERROR_ACCESS_DENIED}, ERROR_SUCCESS, "9"),
        After(
            [](CLedger& ledger, LONG status, HKEY, LPCWSTR, DWORD, REGSAM, PHKEY phKey)
            {
                if (status == ERROR_SUCCESS)
                {
                    ledger.Open(kKey, *phKey);
                }
            })));
    rows.push_back(Row<"RegQueryValueExW", decltype(RegQueryValueExW)>(
        Fails("not found", LONG{ERROR_FILE_NOT_FOUND}, ERROR_SUCCESS, "9"),
        Does(
            "too long",
            [](auto*, HKEY, LPCWSTR, LPDWORD, LPDWORD pdwType, LPBYTE pData, LPDWORD pcb)
            {
                *pdwType = REG_SZ;
                std::memset(pData, 'g', *pcb);
                *pcb += 2;
                return LONG{ERROR_MORE_DATA};
            },
            "9")));
    rows.push_back(Row<"RegCloseKey", decltype(RegCloseKey)>(
        Lies("says it is not open", LONG{ERROR_INVALID_HANDLE}, ERROR_SUCCESS, "9"),
        Before([](CLedger& ledger, HKEY hKey) { ledger.Close(kKey, hKey); })));
}

void AddUserRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"GetVersionExW", decltype(GetVersionExW)>(
        Fails("refused", FALSE, ERROR_INSUFFICIENT_BUFFER, "9")));
    rows.push_back(Row<"GetUserNameW", decltype(GetUserNameW)>(Does(
        "none",
        [](auto*, LPWSTR pszName, LPDWORD pcch)
        {
            std::fill_n(pszName, *pcch, L'g');
            SetLastError(ERROR_NOT_LOGGED_ON);
            return FALSE;
        },
        "9")));
    rows.push_back(Row<"WTSGetActiveConsoleSessionId", DWORD()>(
        Fails("no session", DWORD{0xFFFFFFFF}, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"EnumProcesses", BOOL(DWORD*, DWORD, DWORD*)>(
        Fails("refused", FALSE, ERROR_NOT_ENOUGH_MEMORY, "9"), Does(
                                                                   "none",
                                                                   [](auto*, DWORD*, DWORD, DWORD* pcb)
                                                                   {
                                                                       *pcb = 0;
                                                                       return TRUE;
                                                                   },
                                                                   "9")));
    rows.push_back(Row<"OpenProcess", decltype(OpenProcess)>(
        Fails("refused", nullptr, ERROR_ACCESS_DENIED, "9"),
        After([](CLedger& ledger, HANDLE handle, auto...) { ledger.Open(kHandle, handle); })));
    rows.push_back(Row<"GetModuleFileNameExW", DWORD(HANDLE, HMODULE, LPWSTR, DWORD)>(
        Fails("none", DWORD{0}, ERROR_PARTIAL_COPY, "9")));
    rows.push_back(Row<"OpenProcessToken", BOOL(HANDLE, DWORD, PHANDLE)>(
        Fails("refused", FALSE, ERROR_ACCESS_DENIED, "9"),
        After(
            [](CLedger& ledger, BOOL bDone, HANDLE, DWORD, PHANDLE phToken)
            {
                if (bDone)
                {
                    ledger.Open(kHandle, *phToken);
                }
            })));
    rows.push_back(Row<"GetTokenInformation", BOOL(HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD)>(
        Fails("refused", FALSE, ERROR_ACCESS_DENIED, "9")));
    rows.push_back(Row<"ImpersonateLoggedOnUser", BOOL(HANDLE)>(
        Fails("refused", FALSE, ERROR_ACCESS_DENIED, "9"),
        After([](CLedger& ledger, BOOL bDone, HANDLE)
              { ledger.Open(kImpersonation, bDone ? kImpersonation : nullptr); })));
    rows.push_back(Row<"RevertToSelf", BOOL()>(Leaving(Fails("refused", FALSE, ERROR_NOT_ENOUGH_MEMORY, "9"),
                                                       "1 impersonation", "nothing else could end it"),
                                               After(
                                                   [](CLedger& ledger, BOOL bDone)
                                                   {
                                                       if (bDone)
                                                       {
                                                           ledger.Close(kImpersonation, kImpersonation);
                                                       }
                                                   })));
    rows.push_back(Row<"LoadUserProfileW", BOOL(HANDLE, LPPROFILEINFOW)>(
        Fails("refused", FALSE, ERROR_PRIVILEGE_NOT_HELD, "9"),
        After(
            [](CLedger& ledger, BOOL bDone, HANDLE hToken, LPPROFILEINFOW)
            {
                if (bDone)
                {
                    ledger.Open("profile", hToken);
                }
            })));
    rows.push_back(Row<"UnloadUserProfile", BOOL(HANDLE, HANDLE)>(
        Lies("refused", FALSE, ERROR_ACCESS_DENIED, "9"),
        Before([](CLedger& ledger, HANDLE hToken, HANDLE) { ledger.Close("profile", hToken); })));
}

void AddShellRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"GetLongPathNameW", decltype(GetLongPathNameW)>(
        Fails("not found", DWORD{0}, ERROR_FILE_NOT_FOUND, "9"),
        Fails("too long", DWORD{MAX_PATH + 1}, ERROR_SUCCESS, "9")));
    rows.push_back(
        Row<"SHGetMalloc", decltype(SHGetMalloc)>(Fails("none", E_OUTOFMEMORY, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"SHGetSpecialFolderLocation", decltype(SHGetSpecialFolderLocation)>(
        Fails("none", E_FAIL, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"SHGetPathFromIDListA", decltype(SHGetPathFromIDListA)>(
        Fails("no path", FALSE, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"GetWindowsDirectoryA", decltype(GetWindowsDirectoryA)>(
        Fails("none", UINT{0}, ERROR_NOT_ENOUGH_MEMORY, "9"),
        Fails("too long", UINT{MAX_PATH + 1}, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"fopen_s", decltype(fopen_s)>(
        Does(
            "not found",
            [](auto*, FILE** ppFile, const char*, const char*)
            {
                *ppFile = nullptr;
                return ENOENT;
            },
            "9"),
        Does(
            "no memory",
            [](auto*, FILE** ppFile, const char*, const char*)
            {
                *ppFile = nullptr;
                return ENOMEM;
            },
            "9"),
        After(
            [](CLedger& ledger, errno_t error, FILE** ppFile, const char*, const char*)
            {
                if (error == 0)
                {
                    ledger.Open(kFile, *ppFile);
                }
            })));
    rows.push_back(Row<"fclose", decltype(fclose)>(
        Lies("says it failed", EOF, ERROR_SUCCESS, "9"),
        Before([](CLedger& ledger, FILE* file) { ledger.Close(kFile, file); })));
    rows.push_back(Row<"fread", decltype(fread)>(
        Fails("nothing", size_t{0}, ERROR_SUCCESS, "9"),
        Does(
            "short count", [](auto* pfnNext, void* buffer, size_t size, size_t count, FILE* file)
            { return pfnNext(buffer, size, count / 2, file); }, "9")));
    rows.push_back(Row<"fseek", decltype(fseek)>(Fails("refused", -1, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"ftell", decltype(ftell)>(Fails("unknown", -1L, ERROR_SUCCESS, "9")));
}

}  // namespace

void AddDiscoveryRows(std::vector<CCallRow>& rows)
{
    AddRegistryRows(rows);
    AddUserRows(rows);
    AddShellRows(rows);
}
