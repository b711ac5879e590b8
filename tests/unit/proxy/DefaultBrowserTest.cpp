#include "proxy/DefaultBrowser.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/FailingHeap.h"
#include "support/ImportPatch.h"
#include "support/RecordedTrace.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"
#include "support/TempFolder.h"
#include "support/TestHive.h"
#include "unit/proxy/RecordedRegistry.h"

namespace
{

using testing::ElementsAre;

constexpr wchar_t kUserChoice[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";
constexpr wchar_t kHttpCommand[] = L"http\\shell\\open\\command";
constexpr wchar_t kClassCommand[] = L"FirefoxURL\\shell\\open\\command";
constexpr DWORD kBrowserBefore = 77;

const std::string kEntry = "2|--> CProxyInfo::GetDefaultBrowser(). \n";
const std::string kExit = "2|<-- CProxyInfo::GetDefaultBrowser(). \n";
const std::string kTryChoice =
    Progress("CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice");
const std::string kNoKey =
    Progress("CProxyInfo::GetDefaultBrowser: can not found the default browser reg key!\n");
const std::string kNoPath = Progress("CProxyInfo::GetDefaultBrowser: DefaultKeyPath is empty!\n");
const std::string kNoValue = Progress("CProxyInfo::GetDefaultBrowser: DefaultKey value is empty!\n");
const std::string kNoExecutable = Progress("CProxyInfo::GetDefaultBrowser: can not found .exe returned!\n");

// What the conversion to the long form was asked, and what it gives; absent: there is no such file.
std::vector<std::wstring> g_shortPaths;
DWORD g_cchLongAsked = 0;
const wchar_t* g_pszLong = nullptr;

DWORD WINAPI ScriptedGetLongPathName(LPCWSTR pszShort, LPWSTR pszLong, DWORD cch)
{
    g_shortPaths.emplace_back(pszShort);
    g_cchLongAsked = cch;
    if (g_pszLong == nullptr)
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    const std::wstring text(g_pszLong);
    if (text.size() >= cch)
    {
        return static_cast<DWORD>(text.size() + 1);
    }
    text.copy(pszLong, text.size());
    pszLong[text.size()] = L'\0';
    return static_cast<DWORD>(text.size());
}

class DefaultBrowserTest : public testing::Test
{
protected:
    explicit DefaultBrowserTest(DWORD dwMajor = 6, DWORD dwMinor = 1) : m_version(dwMajor, dwMinor)
    {
        m_console.m_dwConsoleSession = 0xFFFFFFFF;
        g_shortPaths.clear();
        g_pszLong = nullptr;
    }

    // The browser; "unchanged" is checked for every result of 0.
    DWORD Browser()
    {
        m_trace.m_records.clear();
        CProxyInfo info;
        info.m_dwBrowser = kBrowserBefore;
        info.m_strManual = L"m";
        const int result = info.GetDefaultBrowser();
        EXPECT_STREQ(info.m_strManual.c_str(), L"m");
        EXPECT_TRUE(result == 0 || result == 1) << result;
        EXPECT_EQ(result == 0, info.m_dwBrowser == kBrowserBefore) << info.m_dwBrowser;
        return result != 0 ? info.m_dwBrowser : 0;
    }

    CReportedVersion m_version;
    CScriptedConsole m_console;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
    CRecordedTrace m_trace;
    CImportPatch m_longPath{GetModuleHandleW(nullptr), "GetLongPathNameW", ScriptedGetLongPathName};
};

TEST_F(DefaultBrowserTest, TakesTheClassThatTheUserChose)
{
    m_user.SetText(kUserChoice, L"Progid", L"FirefoxURL");
    m_classes.SetText(kClassCommand, L"", L"\"C:\\Mozilla Firefox\\Firefox.exe\" -url \"%1\"");
    m_classes.SetText(kHttpCommand, L"", L"C:\\iexplore.exe");
    g_pszLong = L"C:\\Mozilla Firefox\\Firefox.EXE";
    const CRecordedRegistry registry;
    EXPECT_EQ(Browser(), 2u);
    EXPECT_THAT(g_shortPaths, ElementsAre(L"c:\\mozilla firefox\\firefox.exe"));
    EXPECT_EQ(g_cchLongAsked, 260u);
    EXPECT_THAT(
        registry.m_calls,
        ElementsAre("Open(HKCU, Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\"
                    "http\\UserChoice, 0x20019)",
                    "Query(Progid, 4096)", "Close", "Open(HKCR, FirefoxURL\\shell\\open\\command, 0x1)",
                    "Close", "Open(HKCR, FirefoxURL\\shell\\open\\command, 0x20019)", "Query(, 4096)",
                    "Close"));
    EXPECT_EQ(registry.OpenKeys(), 0u);
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(kEntry, kTryChoice, Progress("FirefoxURL\\shell\\open\\command"), kExit));
}

TEST_F(DefaultBrowserTest, FallsBackWhenTheUserChoseNothing)
{
    m_classes.SetText(kHttpCommand, L"", L"C:\\iexplore.exe");
    g_pszLong = L"C:\\iexplore.exe";
    const CRecordedRegistry registry;
    EXPECT_EQ(Browser(), 1u);
    EXPECT_THAT(registry.m_calls,
                ElementsAre("Open(HKCU, Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\"
                            "http\\UserChoice, 0x20019)",
                            "Open(HKCR, http\\shell\\open\\command, 0x1)", "Close",
                            "Open(HKCR, http\\shell\\open\\command, 0x20019)", "Query(, 4096)", "Close"));
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kExit));
}

TEST_F(DefaultBrowserTest, FallsBackWhenTheClassHasNoCommand)
{
    m_user.SetText(kUserChoice, L"Progid", L"FirefoxURL");
    m_classes.AddKey(L"FirefoxURL\\shell\\open");
    m_classes.SetText(kHttpCommand, L"", L"C:\\iexplore.exe");
    g_pszLong = L"C:\\iexplore.exe";
    EXPECT_EQ(Browser(), 1u);
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(kEntry, kTryChoice, Progress("FirefoxURL\\shell\\open\\command"), kExit));
}

TEST_F(DefaultBrowserTest, FallsBackWhenTheChoiceIsNotOfTypeSz)
{
    m_classes.SetText(kClassCommand, L"", L"C:\\firefox.exe");
    m_classes.SetText(kHttpCommand, L"", L"C:\\chrome.exe");
    g_pszLong = L"C:\\chrome.exe";
    m_user.SetText(kUserChoice, L"Progid", L"FirefoxURL", REG_EXPAND_SZ);
    EXPECT_EQ(Browser(), 3u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kExit));
    EXPECT_THAT(g_shortPaths, ElementsAre(L"c:\\chrome.exe"));
    m_user.SetText(kUserChoice, L"Progid", std::wstring(2048, L'p'));
    EXPECT_EQ(Browser(), 3u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kExit));
}

TEST_F(DefaultBrowserTest, DoesNotFallBackFromAClassWhoseCommandIsEmpty)
{
    m_user.SetText(kUserChoice, L"Progid", L"FirefoxURL");
    m_classes.AddKey(kClassCommand);
    m_classes.SetText(kHttpCommand, L"", L"C:\\iexplore.exe");
    g_pszLong = L"C:\\iexplore.exe";
    EXPECT_EQ(Browser(), 0u);
    EXPECT_THAT(
        m_trace.m_records,
        ElementsAre(kEntry, kTryChoice, Progress("FirefoxURL\\shell\\open\\command"), kNoValue, kExit));
}

TEST_F(DefaultBrowserTest, JoinsAnEmptyChoiceToo)
{
    m_user.SetText(kUserChoice, L"Progid", L"");
    m_classes.SetText(kHttpCommand, L"", L"C:\\safari.exe");
    g_pszLong = L"C:\\safari.exe";
    EXPECT_EQ(Browser(), 4u);
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(kEntry, kTryChoice, Progress("\\shell\\open\\command"), kExit));
}

TEST_F(DefaultBrowserTest, TellsThatThereIsNoKey)
{
    EXPECT_EQ(Browser(), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kNoKey, kExit));
}

TEST_F(DefaultBrowserTest, TellsThatTheCommandIsEmpty)
{
    m_classes.AddKey(kHttpCommand);
    EXPECT_EQ(Browser(), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kNoValue, kExit));
    m_classes.SetText(kHttpCommand, L"", L"");
    EXPECT_EQ(Browser(), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kNoValue, kExit));
    EXPECT_TRUE(g_shortPaths.empty());
}

TEST_F(DefaultBrowserTest, TellsThatTheCommandNamesNoExecutable)
{
    m_classes.SetText(kHttpCommand, L"", L"\"C:\\Firefox\\firefox.com\" %1");
    g_pszLong = L"C:\\firefox.exe";
    EXPECT_EQ(Browser(), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kNoExecutable, kExit));
    EXPECT_TRUE(g_shortPaths.empty());
}

TEST_F(DefaultBrowserTest, RecognisesCommandsInTheFormsThatBrowsersRegister)
{
    struct Row
    {
        const char* label;
        const wchar_t* command;
        DWORD dwType;
        const wchar_t* shortPath;  // as it goes into the conversion
        const wchar_t* longPath;   // null: there is no such file
        DWORD expected;
    };
    const std::wstring longest = L"C:\\" + std::wstring(244, L'd') + L"\\firefox.exe";
    ASSERT_EQ(longest.size(), 259u);
    const std::wstring tooLong = L"C:\\" + std::wstring(245, L'd') + L"\\firefox.exe";
    const Row rows[] = {
        {"quoted with arguments", L"\"C:\\Program Files\\Internet Explorer\\iexplore.exe\" %1", REG_SZ,
         L"c:\\program files\\internet explorer\\iexplore.exe",
         L"C:\\Program Files\\Internet Explorer\\iexplore.exe", 1},
        {"unquoted with blanks", L"C:\\Program Files\\Mozilla Firefox\\firefox.exe -url %1", REG_SZ,
         L"c:\\program files\\mozilla firefox\\firefox.exe",
         L"C:\\Program Files\\Mozilla Firefox\\firefox.exe", 2},
        {"short names in capitals", L"\"C:\\PROGRA~1\\MOZILL~1\\FIREFOX.EXE\" -url \"%1\"", REG_SZ,
         L"c:\\progra~1\\mozill~1\\firefox.exe", L"C:\\Program Files\\Mozilla Firefox\\Firefox.exe", 2},
        {"a short name of the executable", L"C:\\IE\\IEXPLO~1.EXE", REG_SZ, L"c:\\ie\\iexplo~1.exe",
         L"C:\\IE\\IExplore.exe", 1},
        {"chrome", L"\"C:\\Chrome\\chrome.exe\" -- \"%1\"", REG_SZ, L"c:\\chrome\\chrome.exe",
         L"C:\\Chrome\\chrome.exe", 3},
        {"safari", L"\"C:\\Safari\\Safari.exe\" -url \"%1\"", REG_SZ, L"c:\\safari\\safari.exe",
         L"C:\\Safari\\Safari.exe", 4},
        {"expandable text", L"\"C:\\Mozilla\\firefox.exe\" %1", REG_EXPAND_SZ, L"c:\\mozilla\\firefox.exe",
         L"C:\\Mozilla\\firefox.exe", 2},
        {"missing executable", L"\"C:\\Gone\\firefox.exe\" %1", REG_SZ, L"c:\\gone\\firefox.exe", nullptr, 0},
        {"an unknown browser", L"\"C:\\Edge\\msedge.exe\" %1", REG_SZ, L"c:\\edge\\msedge.exe",
         L"C:\\Edge\\msedge.exe", 0},
        {"the long form decides", L"C:\\firefox.exe", REG_SZ, L"c:\\firefox.exe", L"C:\\other.exe", 0},
        {"two browsers in the path", L"C:\\firefox.exe.d\\..\\iexplore.exe", REG_SZ, L"c:\\firefox.exe",
         L"C:\\Firefox.exe\\iexplore.exe", 1},
        {"longest path", L"C:\\x.exe", REG_SZ, L"c:\\x.exe", longest.c_str(), 2},
        {"a longer path", L"C:\\x.exe", REG_SZ, L"c:\\x.exe", tooLong.c_str(), 0},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        g_shortPaths.clear();
        g_pszLong = row.longPath;
        m_classes.SetText(kHttpCommand, L"", row.command, row.dwType);
        EXPECT_EQ(Browser(), row.expected);
        EXPECT_THAT(g_shortPaths, ElementsAre(row.shortPath));
        EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kTryChoice, kExit)) << "silent either way";
    }
}

// On systems of another class the user's choice is not looked at.
class OldDefaultBrowserTest : public DefaultBrowserTest
{
protected:
    OldDefaultBrowserTest() : DefaultBrowserTest(5, 2)
    {
        m_user.SetText(kUserChoice, L"Progid", L"FirefoxURL");
        m_classes.SetText(kClassCommand, L"", L"C:\\firefox.exe");
    }
};

TEST_F(OldDefaultBrowserTest, ReadsTheCommonClassOnly)
{
    m_classes.SetText(kHttpCommand, L"", L"C:\\iexplore.exe");
    g_pszLong = L"C:\\iexplore.exe";
    const CRecordedRegistry registry;
    EXPECT_EQ(Browser(), 1u);
    EXPECT_THAT(registry.m_calls,
                ElementsAre("Open(HKCR, http\\shell\\open\\command, 0x1)", "Close",
                            "Open(HKCR, http\\shell\\open\\command, 0x20019)", "Query(, 4096)", "Close"));
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kExit));
    EXPECT_THAT(m_console.Calls(), testing::IsEmpty());
}

TEST_F(OldDefaultBrowserTest, TellsThatThereIsNoKey)
{
    EXPECT_EQ(Browser(), 0u);
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kNoKey, kExit));
}

// Without memory for the key's path the empty path opens the root itself.
TEST_F(OldDefaultBrowserTest, TellsThatThePathIsEmpty)
{
    m_classes.SetText(L"", L"", L"C:\\firefox.exe");
    g_pszLong = L"C:\\firefox.exe";
    {
        const CFailingHeap memory{sizeof(kHttpCommand)};
        EXPECT_EQ(Browser(), 0u);
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_THAT(m_trace.m_records, ElementsAre(kEntry, kNoPath, kExit));
}

// With the platform's own conversion.
TEST(DefaultBrowserOnThisSystemTest, RecognisesARealExecutableByItsShortPathInCapitals)
{
    const CReportedVersion version(5, 2);
    const CTempFolder folder;
    const std::wstring path = folder.Write(L"Mozilla Firefox Folder\\firefox.exe", "x").wstring();
    wchar_t szShort[MAX_PATH] = {};
    ASSERT_NE(GetShortPathNameW(path.c_str(), szShort, MAX_PATH), 0u);
    const CTestHive classes;
    const CRedirectedKey redirected(HKEY_CLASSES_ROOT, classes);
    CharUpperW(szShort);
    classes.SetText(kHttpCommand, L"", L"\"" + std::wstring(szShort) + L"\" -osint -url \"%1\"");
    CProxyInfo info;
    EXPECT_EQ(info.GetDefaultBrowser(), 1) << CStringEx(szShort).c_str();
    EXPECT_EQ(info.m_dwBrowser, 2u);

    ASSERT_TRUE(DeleteFileW(path.c_str()));
    CProxyInfo gone;
    EXPECT_EQ(gone.GetDefaultBrowser(), 0);
    EXPECT_EQ(gone.m_dwBrowser, 0u);
}

}  // namespace
