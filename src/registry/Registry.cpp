#include "registry/Registry.h"

#include "base/FirstUse.h"
#include "base/ScopedHandle.h"
#include "base/StringEx.h"
#include "registry/ConsoleUserToken.h"
#include "registry/OSVersion.h"
#include "registry/SystemLibrary.h"

namespace
{

constexpr DWORD kUserNameLength = 260;
constexpr DWORD kProfileNoUI = 1;

constinit CFirstUse<CSystemLibrary> g_userenv;

// The record that the profile loader takes; its header is not among those of every compiler.
struct ProfileInfo
{
    DWORD dwSize;
    DWORD dwFlags;
    LPWSTR lpUserName;
    LPWSTR lpProfilePath;
    LPWSTR lpDefaultPath;
    LPWSTR lpServerName;
    LPWSTR lpPolicyPath;
    HANDLE hProfile;
};
static_assert(sizeof(ProfileInfo) == 56);

using LoadUserProfileProc = BOOL WINAPI(HANDLE hToken, ProfileInfo* pProfileInfo);
using ImpersonateLoggedOnUserProc = BOOL WINAPI(HANDLE hToken);
using RevertToSelfProc = BOOL WINAPI();

void DebugError(const wchar_t* pszFormat, DWORD dwError)
{
    CStringEx strMessage;
    strMessage.Format(pszFormat, dwError);
    OutputDebugStringW(strMessage);
}

}  // namespace

void CRegistry::GetCurrentUserKeyInVista(HKEY* phKey, CUserProfile& profile)
{
    const CSystemLibrary& userenv = g_userenv.Get(L"userenv.dll");
    const CSystemLibrary& advapi32 = GetAdvapi32();
    if (!userenv || !advapi32)
    {
        OutputDebugStringW(L"CRegistry::GetCurrentUserKeyInVista LoadSystemLibrary Fail");
        return;
    }
    auto* const pfnLoadUserProfile = userenv.Find<LoadUserProfileProc>("LoadUserProfileW");
    auto* const pfnImpersonate = advapi32.Find<ImpersonateLoggedOnUserProc>("ImpersonateLoggedOnUser");
    auto* const pfnRevertToSelf = advapi32.Find<RevertToSelfProc>("RevertToSelf");
    if (pfnLoadUserProfile == nullptr || pfnImpersonate == nullptr || pfnRevertToSelf == nullptr)
    {
        OutputDebugStringW(L"CRegistry::GetCurrentUserKeyInVista GetProcAddress Fail");
        return;
    }

    CKernelHandle token;
    if (!GetCurrentUserToken(token.Put()))
    {
        OutputDebugStringW(L"CRegistry::GetCurrentUserKeyInVista GetConsoleUserToken Fail");
        return;
    }

    // Intended: the impersonation ends before the profile is loaded, and need not succeed.
    if (pfnImpersonate(token.Get()))
    {
        pfnRevertToSelf();
    }
    else
    {
        DebugError(L"CRegistry::GetCurrentUserKey: pfnImpersonateLoggedOnUser FAILED: Error = %d!\n",
                   GetLastError());
    }

    // Intended: the name is that of the host's account, not the console user's.
    wchar_t szUserName[kUserNameLength] = {};
    DWORD cchUserName = kUserNameLength;
    if (!GetUserNameW(szUserName, &cchUserName))
    {
        szUserName[0] = L'\0';
    }
    ProfileInfo information = {};
    information.dwSize = sizeof(information);
    information.dwFlags = kProfileNoUI;
    information.lpUserName = szUserName;
    if (!pfnLoadUserProfile(token.Get(), &information))
    {
        DebugError(L"CRegistry::GetCurrentUserKey: pfnLoadUserProfile FAILED: Error = %d!\n", GetLastError());
        OutputDebugStringW(szUserName);
        return;
    }
    *phKey = static_cast<HKEY>(information.hProfile);
    OutputDebugStringW(L"CRegistry::GetCurrentUserKey: Success..\n");
    if (auto* const pfnUnload = userenv.Find<CUserProfile::UnloadUserProfileProc>("UnloadUserProfile"))
    {
        profile.Take(token, information.hProfile, pfnUnload);
    }
}

CRegistryRoot::CRegistryRoot(HKEY hRoot) : m_hRoot(hRoot)
{
    if (hRoot == HKEY_CURRENT_USER && GetOSVersion() == kOSVista)
    {
        CRegistry::GetCurrentUserKeyInVista(&m_hRoot, m_profile);
    }
}

BOOL KeyExists(HKEY root, const wchar_t* subKey)
{
    CRegistryKey key;
    return subKey != nullptr && RegOpenKeyExW(root, subKey, 0, KEY_QUERY_VALUE, key.Put()) == ERROR_SUCCESS;
}
