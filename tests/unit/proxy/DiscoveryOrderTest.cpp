// Trace lines of discovery among the calls that they announce: whoever reads a trace that ends early sees
// what was being done.
#include <gmock/gmock.h>

#include <cwchar>
#include <string>
#include <vector>

#include "proxy/ProxyInfo.h"
#include "support/ImportPatch.h"
#include "support/RecordedTrace.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"
#include "support/ScriptedShell.h"
#include "support/TempFolder.h"
#include "support/TestHive.h"
#include "unit/proxy/RecordedRegistry.h"

namespace
{

using testing::ElementsAre;

constexpr wchar_t kHttpCommand[] = L"http\\shell\\open\\command";
constexpr wchar_t kUserChoice[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";

const std::string kEntry = "2|--> CProxyInfo::GetDefaultBrowser(). \n";
const std::string kExit = "2|<-- CProxyInfo::GetDefaultBrowser(). \n";
const std::string kTryChoice =
    Progress("CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice");
const std::string kOpenChoice =
    "Open(HKCU, Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice, "
    "0x20019)";
const std::string kOpenSettings =
    "Open(HKCU, Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings, 0x20019)";
const std::string kSummary = "2| ProxyInfo: autourl-, manual-, bypass-, type-";

DWORD WINAPI SameLongPathName(LPCWSTR pszShort, LPWSTR pszLong, DWORD cch)
{
    const size_t length = std::wcslen(pszShort);
    std::wmemcpy(pszLong, pszShort, length + 1);
    return length < cch ? static_cast<DWORD>(length) : 0;
}

class DiscoveryOrderTest : public testing::Test
{
protected:
    explicit DiscoveryOrderTest(DWORD dwMajor = 5, DWORD dwMinor = 2) : m_version(dwMajor, dwMinor)
    {
        m_shell.m_folder = m_folder.Narrow();
        m_console.m_dwConsoleSession = 0xFFFFFFFF;
        const auto add = [this](const std::string& call) { m_trace.m_records.push_back(call); };
        m_registry.m_onCall = add;
        m_shell.m_onCall = add;
    }

    // What a query traces and asks for, in one order.
    std::vector<std::string> Steps()
    {
        m_trace.m_records.clear();
        CProxyInfo info;
        CStringEx strAutoURL;
        CStringEx strManual;
        CStringEx strBypass;
        DWORD dwBrowser = 0;
        info.GetProxyInfo(strAutoURL, strManual, strBypass, &dwBrowser);
        return m_trace.m_records;
    }

    CReportedVersion m_version;
    CTempFolder m_folder;
    CScriptedConsole m_console;
    CScriptedShell m_shell;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
    CRecordedTrace m_trace;
    CImportPatch m_longPath{GetModuleHandleW(nullptr), "GetLongPathNameW", SameLongPathName};
    CRecordedRegistry m_registry;
};

TEST_F(DiscoveryOrderTest, TheSystemsBrowserIsTracedBeforeItsSettingsAreRead)
{
    m_classes.SetText(kHttpCommand, L"", L"C:\\iexplore.exe");
    EXPECT_THAT(Steps(),
                ElementsAre(kEntry, "Open(HKCR, http\\shell\\open\\command, 0x1)", "Close",
                            "Open(HKCR, http\\shell\\open\\command, 0x20019)", "Query(, 4096)", "Close",
                            kExit, Progress("CProxyInfo::GetProxyInfo: Default Browser is IE.\n"),
                            kOpenSettings, kOpenSettings, kSummary + "1,\n"));
}

TEST_F(DiscoveryOrderTest, FirefoxIsTracedBeforeItsProfileIsLookedFor)
{
    m_classes.SetText(kHttpCommand, L"", L"C:\\firefox.exe");
    EXPECT_THAT(
        Steps(),
        ElementsAre(kEntry, "Open(HKCR, http\\shell\\open\\command, 0x1)", "Close",
                    "Open(HKCR, http\\shell\\open\\command, 0x20019)", "Query(, 4096)", "Close", kExit,
                    Progress("CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.\n"),
                    "SHGetMalloc", "SHGetSpecialFolderLocation(no window, 26)", "SHGetPathFromIDListA",
                    "list freed", "allocator released",
                    Progress("CProxyInfo::GetNSProxyInfo--network.proxy.type"), kSummary + "2,\n"));
}

class UserChoiceOrderTest : public DiscoveryOrderTest
{
protected:
    UserChoiceOrderTest() : DiscoveryOrderTest(6, 1) {}
};

TEST_F(UserChoiceOrderTest, TheChoiceIsTracedBeforeItIsReadAndItsClassBeforeItIsLookedFor)
{
    m_user.SetText(kUserChoice, L"Progid", L"ChromeHTML");
    m_classes.SetText(L"ChromeHTML\\shell\\open\\command", L"", L"C:\\chrome.exe");
    EXPECT_THAT(
        Steps(),
        ElementsAre(kEntry, kTryChoice, kOpenChoice, "Query(Progid, 4096)", "Close",
                    Progress("ChromeHTML\\shell\\open\\command"),
                    "Open(HKCR, ChromeHTML\\shell\\open\\command, 0x1)", "Close",
                    "Open(HKCR, ChromeHTML\\shell\\open\\command, 0x20019)", "Query(, 4096)", "Close", kExit,
                    Progress("CProxyInfo::GetProxyInfo: Default Browser is Other!\n"), kSummary + "3,\n"));
}

}  // namespace
