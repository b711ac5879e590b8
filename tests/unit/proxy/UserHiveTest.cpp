// Which hive each reader reads: the console user's, handed out by a scripted profile loader, or that of
// the account that the host runs under.
#include <gmock/gmock.h>

#include <array>
#include <iterator>
#include <string>
#include <vector>

#include "proxy/ProxyInfo.h"
#include "proxy/RegistryValues.h"
#include "registry/Registry.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"
#include "support/TestHive.h"
#include "unit/proxy/RecordedRegistry.h"

namespace
{

constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kUserChoice[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";

DWORD WINAPI SameLongPathName(LPCWSTR pszShort, LPWSTR pszLong, DWORD cch)
{
    const std::wstring text(pszShort);
    const size_t copied = text.copy(pszLong, cch - 1);
    pszLong[copied] = L'\0';
    return static_cast<DWORD>(copied);
}

class UserHives
{
public:
    UserHives(DWORD dwMajor, DWORD dwMinor) : m_version(dwMajor, dwMinor)
    {
        m_console.m_hHive = m_consoleUser.Root();
        Fill(m_account, 10, L"account", L"ChromeHTML");
        Fill(m_consoleUser, 20, L"console", L"SafariHTML");
        m_classes.SetText(L"ChromeHTML\\shell\\open\\command", L"", L"C:\\chrome.exe");
        m_classes.SetText(L"SafariHTML\\shell\\open\\command", L"", L"C:\\safari.exe");
        m_classes.SetText(L"http\\shell\\open\\command", L"", L"C:\\iexplore.exe");
        m_classes.SetText(L"Key", L"Value", L"classes");
        // Of this name in the users' hives too, so that a wrong root shows.
        m_account.SetText(L"Key", L"Value", L"account");
        m_consoleUser.SetText(L"Key", L"Value", L"console");
    }

    static std::wstring Text(HKEY hRoot, const wchar_t* pszSubkey, const wchar_t* pszName)
    {
        std::array<wchar_t, kRegStringLength> buffer = {};
        EXPECT_EQ(ReadRegString(hRoot, pszSubkey, pszName, buffer.data(), buffer.size(), 0), 1);
        return buffer.data();
    }

    static DWORD Enable(HKEY hRoot)
    {
        DWORD dwEnable = 0;
        EXPECT_EQ(ReadProxyEnable(hRoot, &dwEnable), 1);
        return dwEnable;
    }

    // Every reader of the current user's settings, and those of other roots.
    void ExpectReads(const std::wstring& name, DWORD dwEnable, DWORD dwBrowser)
    {
        EXPECT_EQ(Text(HKEY_CURRENT_USER, L"Key", L"Value"), name);
        EXPECT_EQ(Enable(HKEY_CURRENT_USER), dwEnable);
        CProxyInfo info;
        EXPECT_EQ(info.GetIEProxyInfo(), 1);
        EXPECT_EQ(info.m_strManual.c_str(), L"http=\\" + name + L":1");
        EXPECT_EQ(info.m_strBypass.c_str(), name + L" bypass");
        EXPECT_EQ(info.m_strAutoURL.c_str(), L"http://" + name);
        EXPECT_EQ(info.GetDefaultBrowser(), 1);
        EXPECT_EQ(info.m_dwBrowser, dwBrowser);

        EXPECT_EQ(Text(HKEY_CLASSES_ROOT, L"Key", L"Value"), L"classes");
        EXPECT_EQ(Text(m_account.Root(), L"Key", L"Value"), L"account");
        EXPECT_EQ(Text(m_consoleUser.Root(), L"Key", L"Value"), L"console");
        EXPECT_EQ(Enable(m_account.Root()), 10u);
        EXPECT_EQ(Enable(m_consoleUser.Root()), 20u);
    }

    static void Fill(const CTestHive& hive, DWORD dwEnable, const std::wstring& name,
                     const wchar_t* pszProgId)
    {
        hive.SetNumber(kSettings, L"ProxyEnable", dwEnable);
        hive.SetText(kSettings, L"ProxyServer", name + L":1");
        hive.SetText(kSettings, L"ProxyOverride", name + L" bypass");
        hive.SetText(kSettings, L"AutoConfigURL", L"http://" + name);
        hive.SetText(kUserChoice, L"Progid", pszProgId);
    }

    CReportedVersion m_version;
    CScriptedConsole m_console;
    CTestHive m_account;
    CTestHive m_consoleUser;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_account};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
    CImportPatch m_longPath{GetModuleHandleW(nullptr), "GetLongPathNameW", SameLongPathName};
};

TEST(UserHiveTest, IsTheConsoleUsersOnClass8)
{
    UserHives hives(6, 1);
    hives.ExpectReads(L"console", 20, 4);
}

TEST(UserHiveTest, IsTheAccountsOnClass8WhenTheProfileDoesNotLoad)
{
    UserHives hives(6, 1);
    hives.m_console.m_dwProfileError = ERROR_PRIVILEGE_NOT_HELD;
    hives.ExpectReads(L"account", 10, 3);
    EXPECT_THAT(
        hives.m_console.DebugTexts(),
        testing::Contains("CRegistry::GetCurrentUserKey: pfnLoadUserProfile FAILED: Error = 1314!\n"));
}

TEST(UserHiveTest, IsTheAccountsOnClass8WithoutAConsoleSession)
{
    UserHives hives(6, 2);
    hives.m_console.m_dwConsoleSession = 0xFFFFFFFF;
    hives.ExpectReads(L"account", 10, 3);
}

// There the user's choice is not read either: the common class names the browser.
TEST(UserHiveTest, IsTheAccountsOnServer2003)
{
    UserHives hives(5, 2);
    hives.ExpectReads(L"account", 10, 1);
    EXPECT_THAT(hives.m_console.Calls(), testing::IsEmpty());
}

TEST(UserHiveTest, IsTheAccountsOnXP)
{
    UserHives hives(5, 1);
    hives.ExpectReads(L"account", 10, 1);
    EXPECT_THAT(hives.m_console.Calls(), testing::IsEmpty());
}

TEST(UserHiveTest, IsTheAccountsOnSystemsBeyondVersion6)
{
    UserHives hives(10, 0);
    hives.ExpectReads(L"account", 10, 1);
    EXPECT_THAT(hives.m_console.Calls(), testing::IsEmpty());
}

// Its root is closed by unloading it, and by nothing else.
TEST(UserHiveTest, IsLoadedForEveryReadAndUnloadedWhenTheKeyIsClosed)
{
    UserHives hives(6, 1);
    std::vector<std::string> steps;
    hives.m_console.m_onCall = [&steps](const std::string& call)
    {
        if (call.find("UserProfile") != std::string::npos && !call.starts_with("GetProcAddress"))
        {
            steps.push_back(call);
        }
    };
    CRecordedRegistry registry;
    registry.NameRoot(hives.m_consoleUser.Root(), "console user");
    registry.m_onCall = [&steps](const std::string& call) { steps.push_back(call); };
    CProxyInfo info;
    EXPECT_EQ(info.GetIEProxyInfo(), 1);
    std::vector<std::string> expected;
    for (const char* const query : {"Query(ProxyEnable, 4)", "Query(ProxyServer, 4096)",
                                    "Query(ProxyOverride, 4096)", "Query(AutoConfigURL, 4096)"})
    {
        const std::string read[] = {
            "LoadUserProfileW(token20, hostaccount)",
            "Open(console user, Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings, 0x20019)",
            query, "Close", "UnloadUserProfile(token20, hive)"};
        expected.insert(expected.end(), std::begin(read), std::end(read));
    }
    EXPECT_EQ(steps, expected);
    EXPECT_EQ(registry.OpenKeys(), 0u);
    EXPECT_THAT(hives.m_console.OpenHandles(), testing::IsEmpty());
}

TEST(UserHiveTest, IsNotUsedToCheckThatAClassExists)
{
    UserHives hives(6, 1);
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, L"Key"));
    EXPECT_THAT(hives.m_console.Calls(), testing::IsEmpty());
}

}  // namespace
