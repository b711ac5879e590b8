#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "support/ImportPatch.h"
#include "unit/base/StringBlock.h"

namespace
{

struct ConversionCall
{
    UINT codePage;
    DWORD dwFlags;
    int cb;
    int cch;
};

// Stands for a system whose ANSI code page is 1252, whatever the machine has, and keeps the calls.
class CConversionScript
{
public:
    CConversionScript() { s_pThis = this; }

    const std::vector<ConversionCall>& Calls() const { return m_calls; }
    void Fail() { m_bFail = true; }

private:
    static int WINAPI Convert(UINT codePage, DWORD dwFlags, LPCCH from, int cb, LPWSTR to, int cch)
    {
        s_pThis->m_calls.push_back({codePage, dwFlags, cb, cch});
        if (s_pThis->m_bFail)
        {
            return 0;
        }
        const auto pfnOriginal = s_pThis->m_patch.Original<decltype(Convert)>();
        return pfnOriginal(codePage == CP_ACP ? 1252 : codePage, dwFlags, from, cb, to, cch);
    }

    static inline CConversionScript* s_pThis = nullptr;
    std::vector<ConversionCall> m_calls;
    bool m_bFail = false;
    CImportPatch m_patch{GetModuleHandleW(nullptr), "MultiByteToWideChar", Convert};
};

const char kTooLong[] = "new";

size_t(__cdecl* g_pfnLength)(const char*) = nullptr;

size_t __cdecl MeasureTooMuch(const char* text)
{
    return text == kTooLong ? size_t{INT_MAX} + 1 : g_pfnLength(text);
}

class StringExConvertTest : public testing::Test
{
protected:
    ~StringExConvertTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
    CConversionScript m_script;
};

TEST_F(StringExConvertTest, ReadsNarrowTextInTheAnsiCodePage)
{
    CStringEx str(L"old");
    str = "caf\xE9 \x80";
    EXPECT_STREQ(str.c_str(), L"caf\u00E9 \u20AC");
    EXPECT_EQ(BlockLength(str), 7u);
    ASSERT_EQ(m_script.Calls().size(), 2u);
    for (const ConversionCall& call : m_script.Calls())
    {
        EXPECT_EQ(call.codePage, UINT{CP_ACP});
        EXPECT_EQ(call.dwFlags, 0u);
        EXPECT_EQ(call.cb, -1);
    }
    EXPECT_EQ(m_script.Calls()[0].cch, 0);
    EXPECT_EQ(m_script.Calls()[1].cch, 7);
}

TEST_F(StringExConvertTest, TakesNullNarrowTextForTheEmptyText)
{
    CStringEx str(L"old");
    str = static_cast<const char*>(nullptr);
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 1u);
}

TEST_F(StringExConvertTest, IsEmptyWhenNarrowTextCannotBeConverted)
{
    m_script.Fail();
    CStringEx str(L"old");
    str = "new";
    EXPECT_EQ(str.GetLength(), 0);
}

struct Utf8Row
{
    const char* label;
    const char* utf8;
    const wchar_t* expected;
};

TEST_F(StringExConvertTest, ReadsUtf8)
{
    const Utf8Row rows[] = {
        {"ascii", "abc", L"abc"},
        {"two bytes", "\xC3\xBC", L"\u00FC"},
        {"three bytes", "\xE2\x82\xAC", L"\u20AC"},
        {"four bytes become a pair", "\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
        {"a byte order mark stays", "\xEF\xBB\xBFx", L"\xFEFFx"},
        {"a stray byte is replaced", "a\xFFz", L"a\xFFFDz"},
    };
    for (const Utf8Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        CStringEx str(L"old");
        EXPECT_EQ(str.SetUTF8(row.utf8), TRUE);
        EXPECT_STREQ(str.c_str(), row.expected);
        EXPECT_EQ(BlockLength(str), std::wstring(row.expected).size() + 1);
    }
}

TEST_F(StringExConvertTest, PassesTheLengthOfUtf8TextWithoutItsTerminator)
{
    CStringEx str;
    str.SetUTF8("a\xC3\xBC");
    ASSERT_EQ(m_script.Calls().size(), 2u);
    for (const ConversionCall& call : m_script.Calls())
    {
        EXPECT_EQ(call.codePage, UINT{CP_UTF8});
        EXPECT_EQ(call.dwFlags, 0u);
        EXPECT_EQ(call.cb, 3);
    }
    EXPECT_EQ(m_script.Calls()[0].cch, 0);
}

TEST_F(StringExConvertTest, KeepsItsTextWhenUtf8TextIsEmptyOrCannotBeConverted)
{
    CStringEx str(L"old");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    EXPECT_EQ(str.SetUTF8(""), FALSE);
    EXPECT_STREQ(str.c_str(), L"old");
    EXPECT_TRUE(IsLocked(str));

    m_script.Fail();
    EXPECT_EQ(str.SetUTF8("new"), FALSE);
    EXPECT_STREQ(str.c_str(), L"old");
}

TEST_F(StringExConvertTest, KeepsItsTextWhenUtf8TextIsTooLong)
{
    CStringEx str(L"old");
    const CImportPatch patch(GetModuleHandleW(nullptr), "strlen", MeasureTooMuch);
    g_pfnLength = patch.Original<size_t __cdecl(const char*)>();
    EXPECT_EQ(str.SetUTF8(kTooLong), FALSE);
    EXPECT_STREQ(str.c_str(), L"old");
    EXPECT_EQ(m_script.Calls().size(), 0u);
}

// Without the script, whose own allocations would be the ones to fail.
TEST(StringExConvertMemoryTest, IsEmptyWhenThereIsNoMemoryForTheNewText)
{
    CStringEx strNarrow(L"old");
    CStringEx strUtf8(L"old");
    BOOL bSet = FALSE;
    {
        const CFailingHeap failing;
        strNarrow = "new";
        bSet = strUtf8.SetUTF8("new");
    }
    EXPECT_STREQ(strNarrow.c_str(), L"");
    EXPECT_EQ(BlockLength(strNarrow), 0u);
    EXPECT_EQ(bSet, TRUE);
    EXPECT_STREQ(strUtf8.c_str(), L"");
    EXPECT_EQ(BlockLength(strUtf8), 0u);
}

}  // namespace
