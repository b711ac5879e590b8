#include "proxy/SystemProxy.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

#include "proxy/ProxyInfo.h"
#include "support/ReportedVersion.h"
#include "support/TestHive.h"
#include "unit/proxy/RecordedRegistry.h"

namespace
{

using testing::ElementsAre;

constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

TEST(ManualListOfTest, JoinsTheValueBehindABackslash)
{
    struct Row
    {
        const wchar_t* value;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {L"proxy:8080", L"http=\\proxy:8080"},
        {L"http=a:1;https=b:2", L"\\http=a:1;https=b:2"},
        {L"ftp=f:21", L"\\ftp=f:21"},
        {L"gopher=g:70", L"\\gopher=g:70"},
        {L"https=b:2", L"\\https=b:2"},
        {L"socks=s:1080", L"\\socks=s:1080"},
        {L"proxy:1;socks=s:1080", L"\\proxy:1;socks=s:1080"},
        {L"xhttp=a", L"\\xhttp=a"},
        {L"ftps=x:1", L"http=\\ftps=x:1"},
        {L"socks5=x:1", L"http=\\socks5=x:1"},
        {L"HTTP=a:1", L"http=\\HTTP=a:1"},
        {L"http:a", L"http=\\http:a"},
        {L"http =a", L"http=\\http =a"},
        {L"", L"http=\\"},
        {L"/proxy:1", L"http=\\proxy:1"},
        {L"///proxy:1", L"http=\\proxy:1"},
        {L"\\\\proxy:1", L"http=\\proxy:1"},
        {L"/\\proxy:1", L"http=\\proxy:1"},
        {L"\\/proxy:1", L"http=\\/proxy:1"},
        {L"//http=a:1", L"\\http=a:1"},
        {L"proxy:1/", L"http=\\proxy:1/"},
        {L"http://proxy:1", L"http=\\http://proxy:1"},
    };
    for (const Row& row : rows)
    {
        EXPECT_STREQ(ManualListOf(row.value).c_str(), row.expected);
    }
}

// On a system of class 0, where the current user's own key is read.
class IEProxyInfoTest : public testing::Test
{
protected:
    void SetText(const wchar_t* pszName, const std::wstring& text, DWORD dwType = REG_SZ) const
    {
        m_user.SetText(kSettings, pszName, text, dwType);
    }

    void Expect(int result, DWORD dwType, const std::wstring& manual, const std::wstring& bypass,
                const std::wstring& autoURL)
    {
        CProxyInfo info;
        info.m_dwBrowser = BROWSER_IE;
        EXPECT_EQ(info.GetIEProxyInfo(), result);
        EXPECT_EQ(info.m_dwProxyType, dwType);
        EXPECT_EQ(info.m_strManual.c_str(), manual);
        EXPECT_EQ(info.m_strBypass.c_str(), bypass);
        EXPECT_EQ(info.m_strAutoURL.c_str(), autoURL);
        EXPECT_EQ(info.m_dwBrowser, 1u);
    }

    static std::vector<std::string> Reads(std::initializer_list<const char*> values)
    {
        std::vector<std::string> calls;
        for (const char* const value : values)
        {
            calls.emplace_back(
                "Open(HKCU, Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings, 0x20019)");
            calls.push_back(std::string("Query(") + value + ")");
            calls.emplace_back("Close");
        }
        return calls;
    }

    CReportedVersion m_version{5, 2};
    CTestHive m_user;
    CRedirectedKey m_redirected{HKEY_CURRENT_USER, m_user};
};

TEST_F(IEProxyInfoTest, FindsNothingWithoutAnyValue)
{
    Expect(0, 0, L"", L"", L"");
    m_user.AddKey(kSettings);
    Expect(0, 0, L"", L"", L"");
}

TEST_F(IEProxyInfoTest, TakesAllFourValues)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyServer", L"proxy:8080");
    SetText(L"ProxyOverride", L"*.local;<local>");
    SetText(L"AutoConfigURL", L"http://x/p.pac");
    Expect(1, 1, L"http=\\proxy:8080", L"*.local;<local>", L"http://x/p.pac");
}

TEST_F(IEProxyInfoTest, ReadsInThisOrderAndLeavesNoKeyOpen)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyServer", L"proxy:8080");
    SetText(L"ProxyOverride", L"a");
    SetText(L"AutoConfigURL", L"u");
    const CRecordedRegistry registry;
    CProxyInfo info;
    EXPECT_EQ(info.GetIEProxyInfo(), 1);
    EXPECT_EQ(registry.m_calls,
              Reads({"ProxyEnable, 4", "ProxyServer, 4096", "ProxyOverride, 4096", "AutoConfigURL, 4096"}));
    EXPECT_EQ(registry.OpenKeys(), 0u);
}

TEST_F(IEProxyInfoTest, ReadsOnlyTheScriptWhenTheProxyIsOff)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 0);
    SetText(L"ProxyServer", L"proxy:8080");
    SetText(L"ProxyOverride", L"a");
    SetText(L"AutoConfigURL", L"u");
    {
        const CRecordedRegistry registry;
        CProxyInfo info;
        EXPECT_EQ(info.GetIEProxyInfo(), 1);
        EXPECT_EQ(registry.m_calls, Reads({"ProxyEnable, 4", "AutoConfigURL, 4096"}));
    }
    Expect(1, 0, L"", L"", L"u");
}

TEST_F(IEProxyInfoTest, DoesNotReadTheBypassListWithoutAServer)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyOverride", L"a");
    {
        const CRecordedRegistry registry;
        CProxyInfo info;
        EXPECT_EQ(info.GetIEProxyInfo(), 0);
        EXPECT_EQ(registry.m_calls, Reads({"ProxyEnable, 4", "ProxyServer, 4096", "AutoConfigURL, 4096"}));
    }
    Expect(0, 1, L"", L"", L"");
    SetText(L"AutoConfigURL", L"u");
    Expect(1, 1, L"", L"", L"u");
}

TEST_F(IEProxyInfoTest, CountsOnlyANonzeroNumberAsOn)
{
    SetText(L"ProxyServer", L"p");
    SetText(L"AutoConfigURL", L"u");
    Expect(1, 0, L"", L"", L"u");
    SetText(L"ProxyEnable", L"1");
    Expect(1, 0, L"", L"", L"u");
    const DWORD dwOn = 1;
    m_user.SetBytes(kSettings, L"ProxyEnable", REG_BINARY, &dwOn, sizeof(dwOn));
    Expect(1, 0, L"", L"", L"u");
    m_user.SetNumber(kSettings, L"ProxyEnable", 2);
    Expect(1, 1, L"http=\\p", L"", L"u");
}

TEST_F(IEProxyInfoTest, TakesValuesOfTypeSzOnly)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyServer", L"p", REG_EXPAND_SZ);
    SetText(L"ProxyOverride", L"a");
    SetText(L"AutoConfigURL", L"u", REG_EXPAND_SZ);
    Expect(0, 1, L"", L"", L"");
    SetText(L"ProxyServer", L"p");
    SetText(L"ProxyOverride", L"a", REG_EXPAND_SZ);
    Expect(1, 1, L"http=\\p", L"", L"");
}

TEST_F(IEProxyInfoTest, LeavesOutValuesOfMoreThan4096Bytes)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyServer", L"p");
    SetText(L"ProxyOverride", std::wstring(2047, L'o'));
    SetText(L"AutoConfigURL", std::wstring(2047, L'u'));
    Expect(1, 1, L"http=\\p", std::wstring(2047, L'o'), std::wstring(2047, L'u'));
    SetText(L"ProxyOverride", std::wstring(2048, L'o'));
    SetText(L"AutoConfigURL", std::wstring(2048, L'u'));
    Expect(1, 1, L"http=\\p", L"", L"");
    SetText(L"ProxyServer", std::wstring(2047, L'p'));
    Expect(1, 1, L"http=\\" + std::wstring(2047, L'p'), L"", L"");
    SetText(L"ProxyServer", std::wstring(2048, L'p'));
    Expect(0, 1, L"", L"", L"");
}

TEST_F(IEProxyInfoTest, EndsAValueOfJust4096BytesWithoutATerminator)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    const std::wstring text(2100, L'p');
    m_user.SetBytes(kSettings, L"ProxyServer", REG_SZ, text.data(), 4096);
    m_user.SetBytes(kSettings, L"ProxyOverride", REG_SZ, text.data(), 4096);
    m_user.SetBytes(kSettings, L"AutoConfigURL", REG_SZ, text.data(), 4096);
    const std::wstring value(2048, L'p');
    Expect(1, 1, L"http=\\" + value, value, value);
}

TEST_F(IEProxyInfoTest, CountsAnyNonemptyTextAsFound)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyServer", L"");
    Expect(1, 1, L"http=\\", L"", L"");
    m_user.SetNumber(kSettings, L"ProxyEnable", 0);
    SetText(L"AutoConfigURL", L"");
    Expect(0, 0, L"", L"", L"");
}

TEST_F(IEProxyInfoTest, ReplacesOnlyWhatItReads)
{
    CProxyInfo info;
    info.m_strManual = L"m";
    info.m_strBypass = L"b";
    info.m_strAutoURL = L"u";
    info.m_dwProxyType = 4;
    EXPECT_EQ(info.GetIEProxyInfo(), 1);
    EXPECT_STREQ(info.m_strManual.c_str(), L"m");
    EXPECT_STREQ(info.m_strBypass.c_str(), L"b");
    EXPECT_STREQ(info.m_strAutoURL.c_str(), L"u");
    EXPECT_EQ(info.m_dwProxyType, 4u);

    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    SetText(L"ProxyServer", L"socks=s");
    SetText(L"ProxyOverride", L"x");
    SetText(L"AutoConfigURL", L"y");
    EXPECT_EQ(info.GetIEProxyInfo(), 1);
    EXPECT_STREQ(info.m_strManual.c_str(), L"\\socks=s");
    EXPECT_STREQ(info.m_strBypass.c_str(), L"x");
    EXPECT_STREQ(info.m_strAutoURL.c_str(), L"y");
    EXPECT_EQ(info.m_dwProxyType, 1u);
}

TEST_F(IEProxyInfoTest, CountsTheBypassListAloneAsFound)
{
    CProxyInfo info;
    info.m_strBypass = L"b";
    EXPECT_EQ(info.GetIEProxyInfo(), 1);
}

}  // namespace
