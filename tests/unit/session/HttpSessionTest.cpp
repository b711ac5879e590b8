// The session from the user's settings to the platform's calls: real registry keys and profile files,
// recorded session calls.
#include "session/HttpSession.h"

#include <gmock/gmock.h>

#include <memory>
#include <type_traits>

#include "support/RecordedTrace.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedShell.h"
#include "support/ScriptedWinInet.h"
#include "support/TempFolder.h"
#include "support/TestHive.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

const std::string kOpenSystem = "InternetOpenW('Brixo Kestrin Desktop Http Agent', 0, null, null, 0)";
const std::string kOpenDirect = "InternetOpenW('Brixo Kestrin Desktop Http Agent', 1, null, null, 0)";
const std::string kUsesSystem =
    Progress("CHttpSession::OpenInternet: Browser is Firefox and Proxy type is use default proxy.");

std::string OpenWithList(const std::string& list, const std::string& bypass)
{
    return "InternetOpenW('Brixo Kestrin Desktop Http Agent', 3, '" + list + "', '" + bypass + "', 0)";
}

std::string SetList(const std::string& handle, const std::string& list, const std::string& bypass)
{
    return "InternetSetOptionW(" + handle + ", 75, size 32, null, error 0: 2='" + list + "' 3='" + bypass +
           "' 1=3, 32)";
}

std::string SetScript(const std::string& handle, const std::string& url)
{
    return "InternetSetOptionW(" + handle + ", 75, size 32, null, error 0: 4='" + url + "' 1=4, 32)";
}

class HttpSessionTest : public testing::Test
{
protected:
    HttpSessionTest()
    {
        m_winInet.Attach(m_imports);
        m_shell.m_folder = m_folder.Narrow();
        m_classes.AddKey(L"http\\shell\\open\\command");
    }

    void UseBrowser(const wchar_t* pszExecutable)
    {
        const std::wstring path = m_folder.Write(pszExecutable, "").wstring();
        m_classes.SetText(L"http\\shell\\open\\command", nullptr, L"\"" + path + L"\" -url \"%1\"");
    }

    // Firefox is the default browser, with these preferences.
    void UseFirefox(const std::string& prefs)
    {
        UseBrowser(L"firefox.exe");
        m_folder.Write(L"Mozilla/firefox/profiles.ini", "[Profile0]\r\nPath=Profiles/a.default\r\n");
        m_folder.Write(L"Mozilla/firefox/Profiles/a.default/prefs.js", prefs);
    }

    static std::string Pref(const std::string& name, const std::string& value)
    {
        return "user_pref(\"network.proxy." + name + "\", " + value + ");\n";
    }

    CTempFolder m_folder;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
    CReportedVersion m_version{5, 2};  // the plain current-user hive is read
    CScriptedShell m_shell;
    CRecordedTrace m_trace;
    CJournal m_journal;
    CScriptedWinInet m_winInet{m_journal};
    CImportPatches m_imports;
    CHttpSession m_session;
};

TEST_F(HttpSessionTest, UnknownBrowserTakesTheSystemsSettings)
{
    EXPECT_EQ(m_session.OpenInternet(), 0);
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenSystem));
    EXPECT_EQ(m_winInet.m_handles.NameOf(m_session.GetHandle()), "session1");
    EXPECT_THAT(m_trace.m_records, Not(Contains(kUsesSystem)));
}

TEST_F(HttpSessionTest, SystemsBrowserTakesTheSystemsSettingsAlthoughTheyNameAProxy)
{
    UseBrowser(L"iexplore.exe");
    const std::wstring key = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
    m_user.SetNumber(key, L"ProxyEnable", 1);
    m_user.SetText(key, L"ProxyServer", L"proxy:8080");
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenSystem));
    EXPECT_THAT(m_trace.m_records,
                Contains(Progress("ProxyInfo: autourl-, manual-http=\\proxy:8080, bypass-, type-1")));
}

TEST_F(HttpSessionTest, ChromeTakesTheSystemsSettings)
{
    UseBrowser(L"chrome.exe");
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenSystem));
}

TEST_F(HttpSessionTest, FirefoxWithoutProxyOpensDirect)
{
    UseFirefox(Pref("type", "0"));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenDirect));
    EXPECT_THAT(m_trace.m_records, Not(Contains(kUsesSystem)));
}

TEST_F(HttpSessionTest, FirefoxWithManualProxyOpensWithItAndSetsItAgain)
{
    UseFirefox(Pref("type", "1") + Pref("http", "\"p\"") + Pref("http_port", "8080") +
               Pref("no_proxies_on", "\"a, b\""));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(OpenWithList("http=p:8080;", "a, b"),
                                                       SetList("session1", "http=p:8080;", "a, b")));
}

TEST_F(HttpSessionTest, FirefoxWithoutBypassListOpensWithAnEmptyOneAndSetsLocal)
{
    UseFirefox(Pref("type", "1") + Pref("http", "\"p\""));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre(OpenWithList("http=p;", ""), SetList("session1", "http=p;", "local")));
}

TEST_F(HttpSessionTest, FirefoxWithScriptOpensWithTheSystemsSettingsAndSetsTheScript)
{
    UseFirefox(Pref("type", "2") + Pref("autoconfig_url", "\"file:///C:/proxy.pac\""));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre(kOpenSystem, SetScript("session1", "file://C:/proxy.pac")));
    EXPECT_THAT(m_trace.m_records, Contains(kUsesSystem));
}

TEST_F(HttpSessionTest, FirefoxWithScriptButNoURLSetsAnEmptyOne)
{
    UseFirefox(Pref("type", "2"));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenSystem, SetScript("session1", "")));
}

TEST_F(HttpSessionTest, FirefoxWithTypeThreeOpensWithAnEmptyProxyList)
{
    UseFirefox(Pref("type", "3"));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre(OpenWithList("", ""), SetList("session1", "", "local")));
}

TEST_F(HttpSessionTest, FirefoxThatDetectsOrFollowsTheSystemSetsNothing)
{
    for (const char* type : std::initializer_list<const char*>{"4", "5", nullptr})
    {
        SCOPED_TRACE(type != nullptr ? type : "no type");
        UseFirefox(type != nullptr ? Pref("type", type) : "// no preference\n");
        CHttpSession session;
        m_journal.Clear();
        m_trace.m_records.clear();
        session.OpenInternet();
        EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenSystem));
        EXPECT_THAT(m_trace.m_records, Contains(kUsesSystem));
    }
}

TEST_F(HttpSessionTest, FirefoxWithoutAFolderOfItsOwnTakesTheSystemsSettings)
{
    UseFirefox(Pref("type", "0"));
    m_shell.m_bAllocator = false;
    m_shell.m_cchWindows = 260;
    EXPECT_EQ(m_session.OpenInternet(), 0);
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenSystem));
    EXPECT_THAT(m_trace.m_records, Not(Contains(kUsesSystem)));
    EXPECT_THAT(m_trace.m_records,
                Contains(Progress("CProxyInfo::GetNSProxyInfo--GetMozillaProfile--error")));
}

TEST_F(HttpSessionTest, OpensOnce)
{
    m_session.OpenInternet();
    m_journal.Clear();
    m_trace.m_records.clear();
    EXPECT_EQ(m_session.OpenInternet(), 0);
    EXPECT_THAT(m_journal.Texts(CALL_NET), IsEmpty());
    EXPECT_THAT(m_trace.m_records, ElementsAre("2|--> CHttpSession::OpenInternet(). \n",
                                               "2|<-- CHttpSession::OpenInternet(). \n"));
}

TEST_F(HttpSessionTest, FailedOpeningStillSetsTheListOnTheNullHandle)
{
    m_winInet.m_sessions.Always(ERROR_INTERNET_INTERNAL_ERROR);
    UseFirefox(Pref("type", "1") + Pref("http", "\"p\""));
    EXPECT_EQ(m_session.OpenInternet(), 0);
    EXPECT_EQ(m_session.GetHandle(), nullptr);
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre(OpenWithList("http=p;", ""), SetList("null", "http=p;", "local"),
                            "InternetSetOptionW(null, 37, null, 0)"));
}

TEST_F(HttpSessionTest, FailedOpeningStillSetsTheScriptOnTheNullHandle)
{
    m_winInet.m_sessions.Always(ERROR_INTERNET_INTERNAL_ERROR);
    UseFirefox(Pref("type", "2") + Pref("autoconfig_url", "\"u\""));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre(kOpenSystem, SetScript("null", "u"), "InternetSetOptionW(null, 37, null, 0)"));
}

TEST_F(HttpSessionTest, FailedOpeningIsTriedAgainWithTheSettingsOfThatTime)
{
    m_winInet.m_sessions.Always(ERROR_INTERNET_INTERNAL_ERROR);
    m_session.OpenInternet();
    m_journal.Clear();
    m_winInet.m_sessions.Always(kSucceeds);
    UseFirefox(Pref("type", "0"));
    EXPECT_EQ(m_session.OpenInternet(), 0);
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenDirect));
    EXPECT_EQ(m_winInet.m_handles.NameOf(m_session.GetHandle()), "session1");
}

TEST_F(HttpSessionTest, FailedOptionsLeaveTheSessionOpen)
{
    m_winInet.m_setOptions.Always(12009);
    UseFirefox(Pref("type", "1") + Pref("http", "\"p\""));
    m_session.OpenInternet();
    EXPECT_EQ(m_winInet.m_handles.NameOf(m_session.GetHandle()), "session1");
}

TEST_F(HttpSessionTest, DisConnectClosesOnceAndOpeningFindsTheSettingsAnew)
{
    m_session.OpenInternet();
    m_journal.Clear();
    m_trace.m_records.clear();
    m_session.DisConnect();
    EXPECT_EQ(m_session.GetHandle(), nullptr);
    m_session.DisConnect();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre("InternetCloseHandle(session1)"));
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre("2|--> CHttpSession::DisConnect()\n \n", "2|<-- CHttpSession::DisConnect()\n \n",
                    "2|--> CHttpSession::DisConnect()\n \n", "2|<-- CHttpSession::DisConnect()\n \n"));
    m_journal.Clear();
    UseFirefox(Pref("type", "0"));
    m_session.OpenInternet();
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre(kOpenDirect));
}

TEST_F(HttpSessionTest, DestructionCloses)
{
    {
        CHttpSession session;
        session.OpenInternet();
        m_journal.Clear();
    }
    EXPECT_THAT(m_journal.Texts(CALL_NET), ElementsAre("InternetCloseHandle(session1)"));
}

TEST_F(HttpSessionTest, IsDestroyedVirtually)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<CHttpSession>);
}

TEST_F(HttpSessionTest, TracesDiscoveryWithinItsOwnRecords)
{
    UseFirefox(Pref("type", "0"));
    m_session.OpenInternet();
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre("2|--> CHttpSession::OpenInternet(). \n", "2|--> CProxyInfo::GetDefaultBrowser(). \n",
                    "2|<-- CProxyInfo::GetDefaultBrowser(). \n",
                    Progress("CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.\n"),
                    Progress("CProxyInfo::GetNSProxyInfo--network.proxy.type"),
                    Progress("ProxyInfo: autourl-, manual-, bypass-, type-2"),
                    "2|<-- CHttpSession::OpenInternet(). \n"));
}

}  // namespace
