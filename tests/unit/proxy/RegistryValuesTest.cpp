#include "proxy/RegistryValues.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <string>

#include "support/ReportedVersion.h"
#include "support/TestHive.h"
#include "unit/proxy/RecordedRegistry.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kFiller = L'q';

// On a system of class 0, where the roots are used as they are given.
class RegistryValuesTest : public testing::Test
{
protected:
    RegistryValuesTest() { m_buffer.fill(kFiller); }

    // The reader's result; the text that it leaves is in m_buffer.
    int Read(const wchar_t* pszName = L"Value")
    {
        m_buffer.fill(kFiller);
        return ReadRegString(m_hive.Root(), L"Key", pszName, m_buffer.data(), kRegStringLength, 0);
    }

    std::wstring Text() const
    {
        return std::wstring(m_buffer.begin(), std::find(m_buffer.begin(), m_buffer.end(), L'\0'));
    }

    CReportedVersion m_version{5, 2};
    CTestHive m_hive;
    CTestHive m_user;
    CRedirectedKey m_redirected{HKEY_CURRENT_USER, m_user};
    std::array<wchar_t, 2100> m_buffer;
};

TEST_F(RegistryValuesTest, HasTheseLimits)
{
    EXPECT_EQ(kRegStringBytes, 4096u);
    EXPECT_EQ(kRegStringLength * sizeof(wchar_t), 4098u);
    EXPECT_STREQ(kInternetSettingsKey, kSettings);
}

TEST_F(RegistryValuesTest, ReadsAText)
{
    m_hive.SetText(L"Key", L"Value", L"some text");
    EXPECT_EQ(Read(), 1);
    EXPECT_EQ(Text(), L"some text");
    EXPECT_EQ(Read(L"VALUE"), 1);
    m_hive.SetText(L"Key", L"", L"default text");
    EXPECT_EQ(Read(L""), 1);
    EXPECT_EQ(Text(), L"default text");
    m_hive.SetText(L"Key", L"Empty", L"");
    EXPECT_EQ(Read(L"Empty"), 1);
    EXPECT_EQ(Text(), L"");
}

TEST_F(RegistryValuesTest, OpensForReadingAsksFor4096BytesAndClosesTheKeyOnly)
{
    m_hive.SetText(L"Key", L"Value", L"x");
    m_hive.SetText(L"Key", L"Expand", L"x", REG_EXPAND_SZ);
    CRecordedRegistry registry;
    registry.NameRoot(m_hive.Root(), "hive");
    EXPECT_EQ(Read(), 1);
    EXPECT_EQ(Read(L"Expand"), 0);
    EXPECT_EQ(Read(L"None"), 0);
    EXPECT_THAT(registry.m_calls, ElementsAre("Open(hive, Key, 0x20019)", "Query(Value, 4096)", "Close",
                                              "Open(hive, Key, 0x20019)", "Query(Expand, 4096)", "Close",
                                              "Open(hive, Key, 0x20019)", "Query(None, 4096)", "Close"));
    EXPECT_EQ(registry.OpenKeys(), 0u);
}

TEST_F(RegistryValuesTest, ClosesNothingWhenTheKeyDoesNotOpen)
{
    CRecordedRegistry registry;
    registry.NameRoot(m_hive.Root(), "hive");
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(Text(), L"");
    EXPECT_THAT(registry.m_calls, ElementsAre("Open(hive, Key, 0x20019)"));
}

TEST_F(RegistryValuesTest, TakesTextsOfTypeSzOnlyButLeavesWhatTheQueryWrote)
{
    m_hive.SetText(L"Key", L"Expand", L"%SystemRoot%\\x", REG_EXPAND_SZ);
    m_hive.SetText(L"Key", L"Multi", L"one", REG_MULTI_SZ);
    m_hive.SetBytes(L"Key", L"Binary", REG_BINARY, L"ab", 6);
    m_hive.SetNumber(L"Key", L"Number", 0x00420041);
    EXPECT_EQ(Read(L"Expand"), 0);
    EXPECT_EQ(Text(), L"%SystemRoot%\\x");
    EXPECT_EQ(Read(L"Multi"), 0);
    EXPECT_EQ(Text(), L"one");
    EXPECT_EQ(Read(L"Binary"), 0);
    EXPECT_EQ(Text(), L"ab");
    EXPECT_EQ(Read(L"Number"), 0);
    EXPECT_EQ(Text(), L"AB");
    EXPECT_EQ(Read(L"None"), 0);
    EXPECT_EQ(Text(), L"");
}

TEST_F(RegistryValuesTest, TakesAtMost4096Bytes)
{
    // The character behind the text keeps the platform from storing a terminator with it.
    const std::wstring text(2100, L'x');
    m_hive.SetBytes(L"Key", L"Full", REG_SZ, text.data(), 4096);
    EXPECT_EQ(Read(L"Full"), 1);
    EXPECT_EQ(std::wstring(m_buffer.begin(), m_buffer.begin() + 2048), std::wstring(2048, L'x'));
    EXPECT_EQ(m_buffer[2048], kFiller) << "written beyond 4096 bytes";

    m_hive.SetText(L"Key", L"Terminated", std::wstring(2047, L'x'));
    EXPECT_EQ(Read(L"Terminated"), 1);
    EXPECT_EQ(Text(), std::wstring(2047, L'x'));

    m_hive.SetText(L"Key", L"Long", std::wstring(2048, L'x'));
    EXPECT_EQ(Read(L"Long"), 0);
    EXPECT_EQ(m_buffer[2048], kFiller) << "written beyond 4096 bytes";
}

TEST_F(RegistryValuesTest, Zeroes4096BytesWhateverTheSize)
{
    m_hive.SetText(L"Key", L"Value", L"abc");
    for (const size_t cch : {size_t{0}, size_t{1}, size_t{5}, size_t{100000}})
    {
        m_buffer.fill(kFiller);
        EXPECT_EQ(ReadRegString(m_hive.Root(), L"Key", L"Value", m_buffer.data(), cch, 77), 1) << cch;
        EXPECT_EQ(Text(), L"abc") << cch;
        EXPECT_EQ(std::count(m_buffer.begin() + 3, m_buffer.end(), L'\0'), 2045) << cch;
        EXPECT_EQ(m_buffer[2047], L'\0') << cch;
        EXPECT_EQ(m_buffer[2048], kFiller) << cch;
    }
    EXPECT_EQ(Read(L"None"), 0);
    EXPECT_EQ(std::count(m_buffer.begin(), m_buffer.end(), L'\0'), 2048);
}

TEST_F(RegistryValuesTest, TouchesNothingForANullArgument)
{
    m_hive.SetText(L"Key", L"Value", L"abc");
    const CRecordedRegistry registry;
    EXPECT_EQ(ReadRegString(nullptr, L"Key", L"Value", m_buffer.data(), kRegStringLength, 0), 0);
    EXPECT_EQ(ReadRegString(m_hive.Root(), nullptr, L"Value", m_buffer.data(), kRegStringLength, 0), 0);
    EXPECT_EQ(ReadRegString(m_hive.Root(), L"Key", nullptr, m_buffer.data(), kRegStringLength, 0), 0);
    EXPECT_EQ(ReadRegString(m_hive.Root(), L"Key", L"Value", nullptr, kRegStringLength, 0), 0);
    EXPECT_EQ(std::count(m_buffer.begin(), m_buffer.end(), kFiller), 2100);
    EXPECT_THAT(registry.m_calls, IsEmpty());
}

TEST_F(RegistryValuesTest, ReadsWhetherTheProxyIsEnabled)
{
    struct Row
    {
        const char* label;
        DWORD dwType;
        DWORD dwValue;
        size_t cb;
        int expected;
        bool bStored;  // the output has the value, whatever the result
    };
    const Row rows[] = {
        {"on", REG_DWORD, 1, 4, 1, true},
        {"off", REG_DWORD, 0, 4, 1, true},
        {"another number", REG_DWORD, 0x80000000, 4, 1, true},
        {"a text of four bytes", REG_SZ, L'1', 4, 0, true},
        {"binary", REG_BINARY, 1, 4, 0, true},
        {"big-endian", REG_DWORD_BIG_ENDIAN, 1, 4, 0, true},
    };
    for (const Row& row : rows)
    {
        m_user.SetBytes(kSettings, L"ProxyEnable", row.dwType, &row.dwValue, row.cb);
        DWORD dwEnable = 77;
        EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), row.expected) << row.label;
        EXPECT_EQ(dwEnable, row.bStored ? row.dwValue : 77u) << row.label;
    }
    m_user.SetText(kSettings, L"ProxyEnable", L"1 and more");
    DWORD dwEnable = 77;
    EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), 0) << "longer than four bytes";
    m_user.SetBytes(kSettings, L"ProxyEnable", REG_QWORD, L"abcd", 8);
    EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), 0) << "eight bytes";
}

TEST_F(RegistryValuesTest, DoesNotReadWhetherTheProxyIsEnabledWithoutTheValueOrAnOutput)
{
    DWORD dwEnable = 77;
    EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), 0);
    m_user.AddKey(kSettings);
    EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), 0);
    EXPECT_EQ(dwEnable, 77u);
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    const CRecordedRegistry registry;
    EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, nullptr), 0);
    EXPECT_THAT(registry.m_calls, IsEmpty());
}

TEST_F(RegistryValuesTest, AsksWhetherTheProxyIsEnabledInFourBytes)
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    m_hive.SetNumber(kSettings, L"ProxyEnable", 2);
    CRecordedRegistry registry;
    registry.NameRoot(m_hive.Root(), "hive");
    DWORD dwEnable = 0;
    EXPECT_EQ(ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable), 1);
    EXPECT_EQ(dwEnable, 1u);
    EXPECT_EQ(ReadProxyEnable(m_hive.Root(), &dwEnable), 1);
    EXPECT_EQ(dwEnable, 2u);
    const std::string key = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
    EXPECT_THAT(registry.m_calls,
                ElementsAre("Open(HKCU, " + key + ", 0x20019)", "Query(ProxyEnable, 4)", "Close",
                            "Open(hive, " + key + ", 0x20019)", "Query(ProxyEnable, 4)", "Close"));
}

}  // namespace
