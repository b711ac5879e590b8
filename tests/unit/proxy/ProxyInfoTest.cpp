#include "proxy/ProxyInfo.h"

#include <gmock/gmock.h>

#include <string>
#include <type_traits>

#include "support/ImportPatch.h"
#include "support/RecordedTrace.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedShell.h"
#include "support/TempFolder.h"
#include "support/TestHive.h"

namespace
{

using testing::ElementsAre;

constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kHttpCommand[] = L"http\\shell\\open\\command";

const std::string kEntry = "2|--> CProxyInfo::GetDefaultBrowser(). \n";
const std::string kExit = "2|<-- CProxyInfo::GetDefaultBrowser(). \n";
const std::string kIE = Progress("CProxyInfo::GetProxyInfo: Default Browser is IE.\n");
const std::string kFirefox = Progress("CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.\n");
const std::string kOther = Progress("CProxyInfo::GetProxyInfo: Default Browser is Other!\n");

// Every executable exists and has only its long form.
DWORD WINAPI SameLongPathName(LPCWSTR pszShort, LPWSTR pszLong, DWORD cch)
{
    const std::wstring text(pszShort);
    const size_t copied = text.copy(pszLong, cch - 1);
    pszLong[copied] = L'\0';
    return static_cast<DWORD>(copied);
}

TEST(ProxyInfoRecordTest, IsEmptyAtFirst)
{
    CProxyInfo info;
    EXPECT_STREQ(info.m_strManual.c_str(), L"");
    EXPECT_STREQ(info.m_strBypass.c_str(), L"");
    EXPECT_STREQ(info.m_strAutoURL.c_str(), L"");
    EXPECT_EQ(info.m_dwProxyType, 0u);
    EXPECT_EQ(info.m_dwBrowser, 0u);
    EXPECT_TRUE(std::has_virtual_destructor_v<CProxyInfo>);
    EXPECT_LT(static_cast<void*>(&info.m_strManual), static_cast<void*>(&info.m_strBypass));
    EXPECT_LT(static_cast<void*>(&info.m_strBypass), static_cast<void*>(&info.m_strAutoURL));
    EXPECT_LT(static_cast<void*>(&info.m_strAutoURL), static_cast<void*>(&info.m_dwProxyType));
    EXPECT_LT(static_cast<void*>(&info.m_dwProxyType), static_cast<void*>(&info.m_dwBrowser));
}

// On a system of class 0, where the default browser is that of the common class.
class ProxyInfoTest : public testing::Test
{
protected:
    ProxyInfoTest() { m_shell.m_folder = m_folder.Narrow(); }

    void SetBrowser(const wchar_t* pszCommand) const { m_classes.SetText(kHttpCommand, L"", pszCommand); }

    void SetSystemProxy() const
    {
        m_user.SetNumber(kSettings, L"ProxyEnable", 1);
        m_user.SetText(kSettings, L"ProxyServer", L"proxy:8080");
        m_user.SetText(kSettings, L"ProxyOverride", L"<local>");
        m_user.SetText(kSettings, L"AutoConfigURL", L"http://x/p.pac");
    }

    void SetFirefox(const std::string& prefs) const
    {
        m_folder.Write(L"Mozilla\\firefox\\profiles.ini", "[Profile0]\nPath=Profiles/a\n");
        m_folder.Write(L"Mozilla\\firefox\\Profiles\\a\\prefs.js", prefs);
    }

    // Into a record and outputs that hold other things.
    int Query()
    {
        m_info.m_dwProxyType = 6;
        m_info.m_dwBrowser = 4;
        m_info.m_strManual = L"old manual";
        m_info.m_strBypass = L"old bypass";
        m_info.m_strAutoURL = L"old url";
        m_strAutoURL = L"old url out";
        m_strManual = L"old manual out";
        m_strBypass = L"old bypass out";
        m_dwBrowser = 99;
        m_trace.m_records.clear();
        return m_info.GetProxyInfo(m_strAutoURL, m_strManual, m_strBypass, &m_dwBrowser);
    }

    void ExpectOutputs(const std::wstring& autoURL, const std::wstring& manual, const std::wstring& bypass,
                       DWORD dwBrowser, DWORD dwType)
    {
        EXPECT_EQ(m_strAutoURL.c_str(), autoURL);
        EXPECT_EQ(m_strManual.c_str(), manual);
        EXPECT_EQ(m_strBypass.c_str(), bypass);
        EXPECT_EQ(m_dwBrowser, dwBrowser);
        EXPECT_EQ(m_info.m_strAutoURL.c_str(), autoURL);
        EXPECT_EQ(m_info.m_strManual.c_str(), manual);
        EXPECT_EQ(m_info.m_strBypass.c_str(), bypass);
        EXPECT_EQ(m_info.m_dwBrowser, dwBrowser);
        EXPECT_EQ(m_info.m_dwProxyType, dwType);
    }

    CReportedVersion m_version{5, 2};
    CTempFolder m_folder;
    CScriptedShell m_shell;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
    CRecordedTrace m_trace;
    CImportPatch m_longPath{GetModuleHandleW(nullptr), "GetLongPathNameW", SameLongPathName};
    CProxyInfo m_info;
    CStringEx m_strAutoURL;
    CStringEx m_strManual;
    CStringEx m_strBypass;
    DWORD m_dwBrowser = 99;
};

TEST_F(ProxyInfoTest, TakesTheSystemsSettingsForItsOwnBrowser)
{
    SetBrowser(L"C:\\iexplore.exe");
    SetSystemProxy();
    SetFirefox("user_pref(\"network.proxy.type\", 4);\n");
    EXPECT_EQ(Query(), 1);
    ExpectOutputs(L"http://x/p.pac", L"http=\\proxy:8080", L"<local>", 1, 1);
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(kEntry, kExit, kIE,
                            Progress("ProxyInfo: autourl-http://x/p.pac, manual-http=\\proxy:8080, "
                                     "bypass-<local>, type-1")));
    EXPECT_TRUE(m_shell.m_calls.empty());
}

TEST_F(ProxyInfoTest, FindsNothingWhenTheSystemHasNoProxy)
{
    SetBrowser(L"C:\\iexplore.exe");
    EXPECT_EQ(Query(), 0);
    ExpectOutputs(L"", L"", L"", 1, 0);
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(kEntry, kExit, kIE, Progress("ProxyInfo: autourl-, manual-, bypass-, type-1")));
}

TEST_F(ProxyInfoTest, TakesThePreferencesOfFirefox)
{
    SetBrowser(L"C:\\firefox.exe");
    SetSystemProxy();
    SetFirefox(
        "user_pref(\"network.proxy.http\", \"p\");\nuser_pref(\"network.proxy.http_port\", 3128);\n"
        "user_pref(\"network.proxy.no_proxies_on\", \"a, b\");\nuser_pref(\"network.proxy.type\", 1);\n");
    EXPECT_EQ(Query(), 1);
    ExpectOutputs(L"", L"http=p:3128;", L"a, b", 2, 1);
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre(kEntry, kExit, kFirefox, Progress("CProxyInfo::GetNSProxyInfo--network.proxy.type"),
                    Progress("ProxyInfo: autourl-, manual-http=p:3128;, bypass-a, b, type-2")));
}

// What is called the type in the summary is the browser's, whatever the preferences say.
TEST_F(ProxyInfoTest, SummarisesTheBrowserAsTheType)
{
    SetBrowser(L"C:\\firefox.exe");
    SetFirefox(
        "user_pref(\"network.proxy.autoconfig_url\", \"http://x/p\");\n"
        "user_pref(\"network.proxy.type\", 5);\n");
    EXPECT_EQ(Query(), 1);
    ExpectOutputs(L"", L"", L"", 2, 5);
    EXPECT_EQ(m_trace.m_records.back(), Progress("ProxyInfo: autourl-, manual-, bypass-, type-2"));
}

TEST_F(ProxyInfoTest, FindsNothingWhenFirefoxHasNoProfileFolder)
{
    SetBrowser(L"C:\\firefox.exe");
    m_shell.m_bAllocator = false;
    m_shell.m_cchWindows = 260;
    EXPECT_EQ(Query(), 0);
    ExpectOutputs(L"", L"", L"", 2, 0);
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre(kEntry, kExit, kFirefox, Progress("CProxyInfo::GetNSProxyInfo--GetMozillaProfile--error"),
                    Progress("ProxyInfo: autourl-, manual-, bypass-, type-2")));
}

TEST_F(ProxyInfoTest, ReadsNothingForOtherBrowsers)
{
    struct Row
    {
        const wchar_t* command;
        DWORD dwBrowser;
    };
    SetSystemProxy();
    SetFirefox("user_pref(\"network.proxy.type\", 1);\n");
    for (const Row& row : {Row{L"C:\\chrome.exe", 3}, Row{L"C:\\safari.exe", 4}, Row{L"C:\\opera.exe", 0}})
    {
        SetBrowser(row.command);
        EXPECT_EQ(Query(), 0) << row.dwBrowser;
        ExpectOutputs(L"", L"", L"", row.dwBrowser, 0);
        EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kExit, kOther,
                                                   Progress("ProxyInfo: autourl-, manual-, bypass-, type-" +
                                                            std::to_string(row.dwBrowser))));
    }
    EXPECT_TRUE(m_shell.m_calls.empty());
}

TEST_F(ProxyInfoTest, ReadsNothingWithoutADefaultBrowser)
{
    SetSystemProxy();
    EXPECT_EQ(Query(), 0);
    ExpectOutputs(L"", L"", L"", 0, 0);
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre(kEntry,
                    Progress("CProxyInfo::GetDefaultBrowser: can not found the default browser reg key!\n"),
                    kExit, kOther, Progress("ProxyInfo: autourl-, manual-, bypass-, type-0")));
}

TEST_F(ProxyInfoTest, KeepsNothingBetweenQueries)
{
    SetBrowser(L"C:\\iexplore.exe");
    SetSystemProxy();
    EXPECT_EQ(Query(), 1);
    SetBrowser(L"C:\\firefox.exe");
    SetFirefox("user_pref(\"network.proxy.type\", 0);\n");
    EXPECT_EQ(Query(), 1);
    ExpectOutputs(L"", L"", L"", 2, 0);
    SetBrowser(L"C:\\chrome.exe");
    EXPECT_EQ(Query(), 0);
    ExpectOutputs(L"", L"", L"", 3, 0);
}

TEST_F(ProxyInfoTest, FillsItsOwnStringsAsOutputs)
{
    SetBrowser(L"C:\\iexplore.exe");
    SetSystemProxy();
    EXPECT_EQ(
        m_info.GetProxyInfo(m_info.m_strAutoURL, m_info.m_strManual, m_info.m_strBypass, &m_info.m_dwBrowser),
        1);
    EXPECT_STREQ(m_info.m_strAutoURL.c_str(), L"http://x/p.pac");
    EXPECT_STREQ(m_info.m_strManual.c_str(), L"http=\\proxy:8080");
    EXPECT_STREQ(m_info.m_strBypass.c_str(), L"<local>");
    EXPECT_EQ(m_info.m_dwBrowser, 1u);
}

TEST_F(ProxyInfoTest, SummarisesTheLongestTextsWhole)
{
    SetBrowser(L"C:\\iexplore.exe");
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    m_user.SetText(kSettings, L"ProxyServer", std::wstring(2047, L'm'));
    m_user.SetText(kSettings, L"ProxyOverride", std::wstring(2047, L'b'));
    m_user.SetText(kSettings, L"AutoConfigURL", std::wstring(2047, L'%'));
    EXPECT_EQ(Query(), 1);
    std::string summary;
    for (size_t index = 3; index < m_trace.m_records.size(); ++index)
    {
        EXPECT_EQ(m_trace.m_records[index].substr(0, 2), "2|");
        summary += m_trace.m_records[index].substr(2);
    }
    EXPECT_EQ("2|" + summary,
              Progress("ProxyInfo: autourl-" + std::string(2047, '%') + ", manual-http=\\" +
                       std::string(2047, 'm') + ", bypass-" + std::string(2047, 'b') + ", type-1"));
}

TEST_F(ProxyInfoTest, WorksWithoutATraceOfTheFirstQuery)
{
    SetBrowser(L"C:\\iexplore.exe");
    SetSystemProxy();
    CProxyInfo info;
    EXPECT_EQ(info.GetProxyInfo(m_strAutoURL, m_strManual, m_strBypass, &m_dwBrowser), 1);
    EXPECT_EQ(info.m_dwProxyType, 1u);
}

}  // namespace
