#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "proxy/Profile.h"
#include "proxy/ProxyInfo.h"
#include "support/FailingHeap.h"
#include "support/ImportPatch.h"
#include "support/RecordedTrace.h"
#include "support/ScriptedShell.h"
#include "support/TempFolder.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kTypeRecord = Progress("CProxyInfo::GetNSProxyInfo--network.proxy.type");

// Lines of a preference file from "name value" pairs, the name without its common beginning.
std::string Prefs(std::initializer_list<std::pair<const char*, const char*>> pairs)
{
    std::string text = "// Mozilla User Preferences\n";
    for (const auto& [name, value] : pairs)
    {
        text += std::string("user_pref(\"network.proxy.") + name + "\", " + value + ");\n";
    }
    return text;
}

struct PrefsRow
{
    const char* label;
    std::string text;
    DWORD dwType;
    const wchar_t* manual;
    const wchar_t* bypass;
    const wchar_t* autoURL;
};

void ExpectRecord(const CProxyInfo& info, const PrefsRow& row)
{
    EXPECT_EQ(info.m_dwProxyType, row.dwType);
    EXPECT_STREQ(info.m_strManual.c_str(), row.manual);
    EXPECT_STREQ(info.m_strBypass.c_str(), row.bypass);
    EXPECT_STREQ(info.m_strAutoURL.c_str(), row.autoURL);
}

void ExpectRows(const std::vector<PrefsRow>& rows)
{
    for (const PrefsRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        CProfile profile;
        std::string text = row.text;
        profile.Parse(text);
        CProxyInfo info;
        info.m_dwBrowser = BROWSER_FIREFOX;
        info.TakePreferences(profile);
        ExpectRecord(info, row);
        EXPECT_EQ(info.m_dwBrowser, 2u);
    }
}

// All that can be set, around the type under test.
std::string Everything(const char* type)
{
    return Prefs({{"type", type},
                  {"http", "\"h\""},
                  {"http_port", "80"},
                  {"ssl", "\"s\""},
                  {"ssl_port", "443"},
                  {"ftp", "\"f\""},
                  {"ftp_port", "21"},
                  {"gopher", "\"g\""},
                  {"gopher_port", "70"},
                  {"socks", "\"k\""},
                  {"socks_port", "1080"},
                  {"no_proxies_on", "\"localhost\""},
                  {"autoconfig_url", "\"http://x/y.pac\""}});
}

TEST(TakePreferencesTest, TakesWhatTheTypeAsksFor)
{
    const wchar_t* const manual = L"http=h:80;https=s:443;socks=k:1080;";
    ExpectRows({
        {"0", Everything("0"), 0, L"", L"", L""},
        {"1", Everything("1"), 1, manual, L"localhost", L""},
        {"2", Everything("2"), 2, L"", L"", L"http://x/y.pac"},
        {"3", Everything("3"), 3, L"", L"", L""},
        {"4", Everything("4"), 4, L"", L"", L""},
        {"5", Everything("5"), 5, L"", L"", L""},
        {"6", Everything("6"), 6, L"", L"", L""},
        {"99", Everything("99"), 99, L"", L"", L""},
        {"-1", Everything("-1"), 0xFFFFFFFF, L"", L"", L""},
        {"number and blank", Everything("1 "), 1, manual, L"localhost", L""},
        {"number in quotes", Everything("\"1\""), 1, manual, L"localhost", L""},
        {"number and letters", Everything("2x"), 2, L"", L"", L"http://x/y.pac"},
        {"letters", Everything("x"), 0, L"", L"", L""},
        {"empty", Everything("\"\""), 0, L"", L"", L""},
        {"absent", Prefs({{"http", "\"h\""}, {"autoconfig_url", "\"u\""}}), 5, L"", L"", L""},
        {"no preference at all", "", 5, L"", L"", L""},
        {"the first of two types", Prefs({{"type", "0"}, {"type", "1"}, {"http", "\"h\""}}), 0, L"", L"",
         L""},
    });
}

TEST(TakePreferencesTest, JoinsTheManualList)
{
    ExpectRows({
        {"both protocols",
         Prefs({{"type", "1"},
                {"http", "\"p\""},
                {"http_port", "8080"},
                {"ssl", "\"p\""},
                {"ssl_port", "443"}}),
         1, L"http=p:8080;https=p:443;", L"", L""},
        {"order of the list, not of the file",
         Prefs({{"socks_port", "3"},
                {"socks", "\"c\""},
                {"ssl_port", "2"},
                {"ssl", "\"b\""},
                {"http_port", "1"},
                {"http", "\"a\""},
                {"type", "1"}}),
         1, L"http=a:1;https=b:2;socks=c:3;", L"", L""},
        {"no host", Prefs({{"type", "1"}}), 1, L"", L"", L""},
        {"HTTP without a port", Prefs({{"type", "1"}, {"http", "\"p\""}}), 1, L"http=p;", L"", L""},
        {"HTTPS without a port", Prefs({{"type", "1"}, {"ssl", "\"p\""}}), 1, L"https=p;", L"", L""},
        {"SOCKS without a port", Prefs({{"type", "1"}, {"socks", "\"p\""}}), 1, L"socks=p;", L"", L""},
        {"ports without hosts",
         Prefs({{"type", "1"}, {"http_port", "1"}, {"ssl_port", "2"}, {"socks_port", "3"}}), 1, L"", L"",
         L""},
        {"empty host", Prefs({{"type", "1"}, {"http", "\"\""}, {"http_port", "80"}}), 1, L"http=:80;", L"",
         L""},
        {"empty port", Prefs({{"type", "1"}, {"http", "\"p\""}, {"http_port", "\"\""}}), 1, L"http=p:;", L"",
         L""},
        {"port 0", Prefs({{"type", "1"}, {"http", "\"p\""}, {"http_port", "0"}}), 1, L"http=p:0;", L"", L""},
        {"FTP and Gopher only", Prefs({{"type", "1"}, {"ftp", "\"f\""}, {"gopher", "\"g\""}}), 1, L"", L"",
         L""},
    });
}

TEST(TakePreferencesTest, NamesSocksByItsVersion)
{
    const auto text = [](const char* version)
    {
        return Prefs({{"type", "1"}, {"socks", "\"s\""}, {"socks_port", "1080"}, {"socks_version", version}});
    };
    ExpectRows({
        {"5", text("5"), 1, L"socks5=s:1080;", L"", L""},
        {"5 in quotes", text("\"5\""), 1, L"socks5=s:1080;", L"", L""},
        {"4", text("4"), 1, L"socks=s:1080;", L"", L""},
        {"0", text("0"), 1, L"socks=s:1080;", L"", L""},
        {"6", text("6"), 1, L"socks=s:1080;", L"", L""},
        {"letters", text("x"), 1, L"socks=s:1080;", L"", L""},
        {"absent", Prefs({{"type", "1"}, {"socks", "\"s\""}, {"socks_port", "1080"}}), 1, L"socks=s:1080;",
         L"", L""},
        {"version 5 without a port", Prefs({{"type", "1"}, {"socks", "\"s\""}, {"socks_version", "5"}}), 1,
         L"socks5=s;", L"", L""},
        {"version 5 without a host", Prefs({{"type", "1"}, {"socks_version", "5"}}), 1, L"", L"", L""},
    });
}

TEST(TakePreferencesTest, TakesTheBypassListAsItStands)
{
    ExpectRows({
        {"commas and blanks", Prefs({{"type", "1"}, {"no_proxies_on", "\"localhost, 127.0.0.1, .a.test\""}}),
         1, L"", L"localhost, 127.0.0.1, .a.test", L""},
        {"semicolons", Prefs({{"type", "1"}, {"no_proxies_on", "\"a;b\""}}), 1, L"", L"a;b", L""},
        {"empty", Prefs({{"type", "1"}, {"no_proxies_on", "\"\""}}), 1, L"", L"", L""},
        {"not for type 2", Prefs({{"type", "2"}, {"no_proxies_on", "\"a\""}}), 2, L"", L"", L""},
    });
}

TEST(TakePreferencesTest, TakesOneSlashFromEveryTripleSlashOfTheScriptsAddress)
{
    const auto text = [](const std::string& url)
    { return Prefs({{"type", "2"}, {"autoconfig_url", ("\"" + url + "\"").c_str()}}); };
    ExpectRows({
        {"local file", text("file:///C:/proxy.pac"), 2, L"", L"", L"file://C:/proxy.pac"},
        {"server", text("http://x/p.pac"), 2, L"", L"", L"http://x/p.pac"},
        {"twice", text("file:///a?u=file:///b"), 2, L"", L"", L"file://a?u=file://b"},
        {"four slashes", text("file:////srv/p.pac"), 2, L"", L"", L"file:///srv/p.pac"},
        {"without a colon", text("a///b"), 2, L"", L"", L"a///b"},
        {"empty", text(""), 2, L"", L"", L""},
        {"absent", Prefs({{"type", "2"}}), 2, L"", L"", L""},
        {"not for type 1", Prefs({{"type", "1"}, {"autoconfig_url", "\"file:///x\""}}), 1, L"", L"", L""},
    });
}

TEST(TakePreferencesTest, TracesThatItLookedUpTheType)
{
    const CRecordedTrace trace;
    ExpectRows({{"nothing", "", 5, L"", L"", L""}});
    EXPECT_THAT(trace.m_records, ElementsAre(kTypeRecord));
}

class NSProxyInfoTest : public testing::Test
{
protected:
    NSProxyInfoTest()
    {
        m_shell.m_folder = m_folder.Narrow();
        m_info.m_dwBrowser = BROWSER_FIREFOX;
    }

    // A file that a real Firefox wrote.
    static std::string RealFile(const std::wstring& name)
    {
        wchar_t szProgram[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, szProgram, MAX_PATH);
        const std::filesystem::path path =
            std::filesystem::path(szProgram).parent_path() / L"data" / L"mozilla" / name;
        std::ifstream stream(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        EXPECT_GT(text.size(), 200u) << path;
        return text;
    }

    void WriteRealProfiles() const
    {
        m_folder.Write(L"Mozilla\\firefox\\profiles.ini", RealFile(L"profiles.ini"));
        m_folder.Write(L"Mozilla\\firefox\\Profiles\\l8kdgd2t.pac\\prefs.js", RealFile(L"pac\\prefs.js"));
        m_folder.Write(L"Mozilla\\firefox\\Profiles\\3czj8v8u.alpha\\prefs.js", RealFile(L"alpha\\prefs.js"));
    }

    CTempFolder m_folder;
    CScriptedShell m_shell;
    CRecordedTrace m_trace;
    CProxyInfo m_info;
};

TEST_F(NSProxyInfoTest, ReadsTheScriptOfARealProfile)
{
    WriteRealProfiles();
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
    ExpectRecord(m_info, {"", "", 2, L"", L"", L"file://C:/Office/proxy.pac"});
    EXPECT_THAT(m_trace.m_records, ElementsAre(kTypeRecord));
}

TEST_F(NSProxyInfoTest, ReadsTheManualProxyOfARealProfile)
{
    WriteRealProfiles();
    m_folder.Write(L"Mozilla\\firefox\\profiles.ini", "[Profile0]\r\nPath=Profiles/3czj8v8u.alpha\r\n");
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
    ExpectRecord(m_info, {"", "", 1, L"http=127.0.0.1:8899;https=127.0.0.1:8899;socks=127.0.0.1:1080;",
                          L"localhost, 127.0.0.1, .example.test", L""});
}

TEST_F(NSProxyInfoTest, GoesByItsOwnBrowserWhateverTheArgument)
{
    WriteRealProfiles();
    for (const DWORD dwBrowser : {0u, 1u, 3u, 4u, 5u})
    {
        CProxyInfo info;
        info.m_dwBrowser = dwBrowser;
        EXPECT_EQ(info.GetNSProxyInfo(2), 0) << dwBrowser;
        EXPECT_EQ(info.m_dwProxyType, 0u) << dwBrowser;
    }
    EXPECT_THAT(m_shell.m_calls, IsEmpty()) << "the profile is not looked for";
    EXPECT_THAT(m_trace.m_records, IsEmpty());
    EXPECT_EQ(m_info.GetNSProxyInfo(0), 1);
    EXPECT_EQ(m_info.m_dwProxyType, 2u);
}

TEST_F(NSProxyInfoTest, SucceedsWithTheSystemsSettingsWithoutAnyFile)
{
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
    ExpectRecord(m_info, {"", "", 5, L"", L"", L""});
    EXPECT_THAT(m_trace.m_records, ElementsAre(kTypeRecord));
}

TEST_F(NSProxyInfoTest, SucceedsWithTheSystemsSettingsWithoutPreferences)
{
    m_folder.Write(L"Mozilla\\firefox\\profiles.ini", "Path=a\n");
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
    ExpectRecord(m_info, {"", "", 5, L"", L"", L""});
}

TEST_F(NSProxyInfoTest, ReadsPreferencesBesideAProfileListThatNamesNone)
{
    m_folder.Write(L"Mozilla\\firefox\\profiles.ini", "Path=a");
    m_folder.Write(L"Mozilla\\prefs.js", "user_pref(\"network.proxy.type\", 4);\n");
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
    ExpectRecord(m_info, {"", "", 4, L"", L"", L""});
}

std::vector<std::string> g_opened;
decltype(fopen_s)* g_pfnOpen = nullptr;

errno_t __cdecl ScriptedOpen(FILE** ppFile, const char* path, const char* mode)
{
    g_opened.push_back(path);
    return g_pfnOpen(ppFile, path, mode);
}

TEST_F(NSProxyInfoTest, LoadsNothingWithoutMemoryForTheNarrowPath)
{
    m_folder.Write(L"Mozilla\\firefox\\profiles.ini", "Path=a\n");
    m_folder.Write(L"Mozilla\\firefox\\a\\prefs.js", "user_pref(\"network.proxy.type\", 4);\n");
    const std::string firefox = m_folder.Narrow() + "\\Mozilla\\firefox\\";
    const std::string prefs = firefox + "a\\prefs.js";
    const CImportPatch open(GetModuleHandleW(nullptr), "fopen_s", ScriptedOpen);
    g_pfnOpen = open.Original<decltype(fopen_s)>();
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
    ExpectRecord(m_info, {"", "", 4, L"", L"", L""});
    EXPECT_THAT(g_opened, ElementsAre(firefox + "profiles.ini", prefs));

    g_opened.clear();
    {
        const CFailingHeap memory{prefs.size() + 1};
        EXPECT_EQ(m_info.GetNSProxyInfo(2), 1);
        EXPECT_GE(memory.Refusals(), 1);
    }
    ExpectRecord(m_info, {"", "", 5, L"", L"", L""});
    EXPECT_THAT(g_opened, ElementsAre(firefox + "profiles.ini"));
}

TEST_F(NSProxyInfoTest, TracesThatThereIsNoProfileFolder)
{
    m_shell.m_bAllocator = false;
    m_shell.m_cchWindows = 260;
    EXPECT_EQ(m_info.GetNSProxyInfo(2), 0);
    ExpectRecord(m_info, {"", "", 0, L"", L"", L""});
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(Progress("CProxyInfo::GetNSProxyInfo--GetMozillaProfile--error")));
}

}  // namespace
