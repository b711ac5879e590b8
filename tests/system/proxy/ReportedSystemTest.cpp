// The class of the system and the hive that is read, under the versions that the platform itself reports.
// Started by reported_run.py, which makes the platform report one of them to its copy of this program.
#include <gtest/gtest.h>

#include <userenv.h>

#include <array>
#include <cstring>
#include <string>

#include "proxy/ProxyInfo.h"
#include "proxy/RegistryValues.h"
#include "registry/OSVersion.h"
#include "support/ImportPatch.h"
#include "support/TestHive.h"

namespace
{

constexpr wchar_t kUserChoice[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";

#ifdef _MSC_VER
#pragma warning(suppress : 4996)  // the version that the system reports to this program is what is wanted
#endif
std::string ReportedVersion()
{
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    return GetVersionExW(&version)
               ? std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion)
               : "none";
}

// Counts how often a profile is loaded and unloaded, and hands out a hive of the test's in place of the
// user's own.
class CCountedProfiles
{
public:
    explicit CCountedProfiles(HKEY hHive) : m_hHive(hHive) { s_pThis = this; }
    ~CCountedProfiles() { s_pThis = nullptr; }
    CCountedProfiles(const CCountedProfiles&) = delete;
    CCountedProfiles& operator=(const CCountedProfiles&) = delete;

    int m_loads = 0;
    int m_failures = 0;
    int m_unloads = 0;           // of the hive that was handed out
    HANDLE m_hLoaded = nullptr;  // what the platform handed out last

private:
    static FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName)
    {
        const FARPROC pfn = s_pThis->m_find.Original<decltype(GetProcAddress)>()(hModule, pszName);
        if (pfn != nullptr && std::strcmp(pszName, "LoadUserProfileW") == 0)
        {
            s_pThis->m_pfnLoad = reinterpret_cast<decltype(LoadUserProfileW)*>(reinterpret_cast<void*>(pfn));
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Load));
        }
        if (pfn != nullptr && std::strcmp(pszName, "UnloadUserProfile") == 0)
        {
            s_pThis->m_pfnUnload =
                reinterpret_cast<decltype(UnloadUserProfile)*>(reinterpret_cast<void*>(pfn));
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Unload));
        }
        return pfn;
    }

    static BOOL WINAPI Load(HANDLE hToken, LPPROFILEINFOW pProfile)
    {
        ++s_pThis->m_loads;
        if (!s_pThis->m_pfnLoad(hToken, pProfile))
        {
            ++s_pThis->m_failures;
            return FALSE;
        }
        s_pThis->m_hLoaded = pProfile->hProfile;
        pProfile->hProfile = s_pThis->m_hHive;
        return TRUE;
    }

    static BOOL WINAPI Unload(HANDLE hToken, HANDLE hProfile)
    {
        s_pThis->m_unloads += hProfile == s_pThis->m_hHive ? 1 : 0;
        return s_pThis->m_pfnUnload(hToken, s_pThis->m_hLoaded);
    }

    static inline CCountedProfiles* s_pThis = nullptr;

    HKEY m_hHive;
    decltype(LoadUserProfileW)* m_pfnLoad = nullptr;
    decltype(UnloadUserProfile)* m_pfnUnload = nullptr;
    CImportPatch m_find{GetModuleHandleW(nullptr), "GetProcAddress", ScriptedGetProcAddress};
};

class ReportedSystemTest : public testing::Test
{
protected:
    ReportedSystemTest()
    {
        for (const CTestHive* pHive : {&m_account, &m_console})
        {
            const bool bConsole = pHive == &m_console;
            pHive->SetText(L"Key", L"Value", bConsole ? L"console" : L"account");
            pHive->SetNumber(kInternetSettingsKey, L"ProxyEnable", bConsole ? 20 : 10);
            pHive->SetText(kUserChoice, L"Progid", bConsole ? L"ConsoleHTML" : L"AccountHTML");
        }
        // Wine starts the shell process, which the console user is known by, with the desktop.
        GetDesktopWindow();
    }

    static std::wstring ReadText()
    {
        std::array<wchar_t, kRegStringLength> buffer = {};
        EXPECT_EQ(ReadRegString(HKEY_CURRENT_USER, L"Key", L"Value", buffer.data(), buffer.size(), 0), 1);
        return buffer.data();
    }

    static DWORD ReadEnable()
    {
        DWORD dwEnable = 0;
        EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), 1);
        return dwEnable;
    }

    // Every read loads the profile and unloads it.
    static void ExpectReadsTheConsoleUsersHive(const CTestHive& account, const CTestHive& console)
    {
        const CRedirectedKey redirected(HKEY_CURRENT_USER, account);
        CCountedProfiles profiles(console.Root());
        EXPECT_EQ(ReadText(), L"console");
        EXPECT_EQ(profiles.m_loads, 1);
        EXPECT_EQ(ReadEnable(), 20u);
        EXPECT_EQ(profiles.m_loads, 2);
        CProxyInfo info;
        info.GetDefaultBrowser();
        EXPECT_EQ(profiles.m_loads, 3) << "of the user's choice";
        EXPECT_EQ(profiles.m_unloads, 3);
        EXPECT_EQ(profiles.m_failures, 0);
        // Wine has no other user than the one that runs the program.
        EXPECT_EQ(profiles.m_hLoaded, HKEY_CURRENT_USER);
    }

    static void ExpectReadsTheAccountsHive(const CTestHive& account, const CTestHive& console)
    {
        const CRedirectedKey redirected(HKEY_CURRENT_USER, account);
        CCountedProfiles profiles(console.Root());
        EXPECT_EQ(ReadText(), L"account");
        EXPECT_EQ(ReadEnable(), 10u);
        CProxyInfo info;
        info.GetDefaultBrowser();
        EXPECT_EQ(profiles.m_loads, 0);
    }

    CTestHive m_account;
    CTestHive m_console;
};

TEST_F(ReportedSystemTest, XP64IsUnknownAndReadsTheAccountsHive)
{
    ASSERT_EQ(ReportedVersion(), "5.2");
    EXPECT_EQ(GetOSVersion(), 0);
    ExpectReadsTheAccountsHive(m_account, m_console);
    EXPECT_EQ(GetOSVersion(), 0);
}

TEST_F(ReportedSystemTest, Windows7IsClass8AndReadsTheConsoleUsersHive)
{
    ASSERT_EQ(ReportedVersion(), "6.1");
    EXPECT_EQ(GetOSVersion(), 8);
    ExpectReadsTheConsoleUsersHive(m_account, m_console);
}

// A program that does not say that it knows Windows 10 is told 6.2.
TEST_F(ReportedSystemTest, Windows10IsClass8AndReadsTheConsoleUsersHive)
{
    ASSERT_EQ(ReportedVersion(), "6.2");
    EXPECT_EQ(GetOSVersion(), 8);
    ExpectReadsTheConsoleUsersHive(m_account, m_console);
}

}  // namespace
