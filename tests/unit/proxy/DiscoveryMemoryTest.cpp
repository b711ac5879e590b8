// Discovery whose texts find no memory: they count as empty, and nothing else changes.
#include <gmock/gmock.h>

#include <cwchar>
#include <string>
#include <vector>

#include "proxy/ProxyInfo.h"
#include "support/FailingHeap.h"
#include "support/ImportPatch.h"
#include "support/RecordedTrace.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"
#include "support/TestHive.h"

namespace
{

using testing::ElementsAre;

constexpr wchar_t kHttpCommand[] = L"http\\shell\\open\\command";
constexpr wchar_t kUserChoice[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";
constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

const std::string kEntry = "2|--> CProxyInfo::GetDefaultBrowser(). \n";
const std::string kExit = "2|<-- CProxyInfo::GetDefaultBrowser(). \n";

wchar_t g_szLong[MAX_PATH];

DWORD WINAPI ScriptedLongPathName(LPCWSTR pszShort, LPWSTR pszLong, DWORD /*cch*/)
{
    if (pszShort == nullptr || *pszShort == L'\0')
    {
        return 0;
    }
    std::wcscpy(pszLong, g_szLong);
    return static_cast<DWORD>(std::wcslen(g_szLong));
}

// The block of a text that is assigned.
size_t BlockOf(const std::wstring& text)
{
    return (text.size() + 1) * sizeof(wchar_t);
}

class DiscoveryMemoryTest : public testing::Test
{
protected:
    explicit DiscoveryMemoryTest(DWORD dwMajor = 5, DWORD dwMinor = 2) : m_version(dwMajor, dwMinor)
    {
        m_console.m_dwConsoleSession = 0xFFFFFFFF;
        m_classes.SetText(kHttpCommand, L"", m_command);
        // Of another length than the path that it is asked for.
        m_long.copy(g_szLong, m_long.size());
        g_szLong[m_long.size()] = L'\0';
    }

    // The default browser when blocks of these sizes are refused, each asked for once.
    DWORD Browser(std::initializer_list<size_t> sizes)
    {
        CProxyInfo info;
        info.GetDefaultBrowser();  // what it loads once is there from now on
        m_trace.m_records.clear();
        info.m_dwBrowser = BROWSER_OTHER;
        const CFailingHeap memory(sizes);
        info.GetDefaultBrowser();
        EXPECT_EQ(static_cast<size_t>(memory.Refusals()), sizes.size());
        return info.m_dwBrowser;
    }

    const std::wstring m_cut = L"c:\\" + std::wstring(311, L'd') + L"\\firefox.exe";
    const std::wstring m_command = m_cut + L" -osint -url %1";
    const std::wstring m_long = L"C:\\" + std::wstring(203, L'd') + L"\\Firefox.exe";
    CReportedVersion m_version;
    CScriptedConsole m_console;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
    CRecordedTrace m_trace;
    CImportPatch m_longPath{GetModuleHandleW(nullptr), "GetLongPathNameW", ScriptedLongPathName};
};

TEST_F(DiscoveryMemoryTest, FindsTheBrowserWithEnough)
{
    EXPECT_EQ(Browser({}), 2u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kExit));
}

TEST_F(DiscoveryMemoryTest, ACommandWithoutItNamesNoExecutable)
{
    EXPECT_EQ(Browser({BlockOf(m_command)}), 0u);
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(kEntry, Progress("CProxyInfo::GetDefaultBrowser: can not found .exe returned!\n"),
                            kExit));
}

TEST_F(DiscoveryMemoryTest, AnExecutableWithoutItIsNoBrowser)
{
    EXPECT_EQ(Browser({BlockOf(m_cut)}), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kExit));
}

TEST_F(DiscoveryMemoryTest, ALongPathWithoutItIsNoBrowser)
{
    EXPECT_EQ(Browser({BlockOf(m_long)}), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kExit));
    // Not even for the empty text that would stand in for it.
    const CFailingHeap memory{BlockOf(m_long), BlockOf(L"")};
    CProxyInfo info;
    EXPECT_EQ(info.GetDefaultBrowser(), 0);
    EXPECT_GE(memory.Refusals(), 1);
}

TEST_F(DiscoveryMemoryTest, AnOutputWithoutItIsEmptyAndTheResultStays)
{
    const std::wstring proxy(501, L'p');
    std::wcscpy(g_szLong, L"C:\\iexplore.exe");
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    m_user.SetText(kSettings, L"ProxyServer", proxy);
    const std::wstring manual = L"http=\\" + proxy;
    CProxyInfo info;
    CStringEx strAutoURL;
    CStringEx strManual(L"old");
    CStringEx strBypass;
    DWORD dwBrowser = 0;
    {
        // The record's own copy has one character more.
        const CFailingHeap memory{BlockOf(manual)};
        EXPECT_EQ(info.GetProxyInfo(strAutoURL, strManual, strBypass, &dwBrowser), 1);
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_STREQ(info.m_strManual.c_str(), manual.c_str());
    EXPECT_STREQ(strManual.c_str(), L"");
    EXPECT_EQ(m_trace.m_records.back(), Progress("ProxyInfo: autourl-, manual-, bypass-, type-1"));
}

class UserChoiceMemoryTest : public DiscoveryMemoryTest
{
protected:
    UserChoiceMemoryTest() : DiscoveryMemoryTest(6, 1) {}
};

TEST_F(UserChoiceMemoryTest, AChoiceWithoutItIsThatOfNoClass)
{
    const std::wstring progId(97, L'P');
    m_user.SetText(kUserChoice, L"Progid", progId);
    m_classes.SetText(progId + L"\\shell\\open\\command", L"", L"C:\\other.exe");
    EXPECT_EQ(Browser({BlockOf(progId)}), 2u) << "the common class names it";
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre(kEntry,
                    Progress("CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice"),
                    Progress("\\shell\\open\\command"), kExit));
}

}  // namespace
