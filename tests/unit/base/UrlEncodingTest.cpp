#include "base/UrlEncoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <string>
#include <vector>

#include "support/guarded_heap/GuardedHeap.h"
#include "support/ImportPatch.h"
#include "unit/base/StringBlock.h"

namespace
{

class UrlEncodingTest : public testing::Test
{
protected:
    ~UrlEncodingTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

struct Row
{
    const char* label;
    const wchar_t* text;
    const wchar_t* expected;
};

TEST_F(UrlEncodingTest, EncodesEveryByteOfTheUtf8Form)
{
    const Row rows[] = {
        {"empty", L"", L""},
        {"letters and a space", L"a b", L"%61%20%62"},
        {"a capital letter", L"A", L"%41"},
        {"digits", L"09", L"%30%39"},
        {"unreserved marks", L"-_.~", L"%2D%5F%2E%7E"},
        {"reserved marks", L"?&=+/%", L"%3F%26%3D%2B%2F%25"},
        {"upper-case hexadecimal digits", L"\x7f*+,-./:;<=>?JKLMNO",
         L"%7F%2A%2B%2C%2D%2E%2F%3A%3B%3C%3D%3E%3F%4A%4B%4C%4D%4E%4F"},
        {"control characters", L"\x01\t\r\n", L"%01%09%0D%0A"},
        {"two bytes", L"\u00FC", L"%C3%BC"},
        {"two bytes, e with acute", L"\u00E9", L"%C3%A9"},
        {"three bytes", L"\u20AC", L"%E2%82%AC"},
        {"a pair is four bytes", L"\xD83D\xDE00", L"%F0%9F%98%80"},
        {"a lone half is replaced", L"\xD83Dx", L"%EF%BF%BD%78"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        CStringEx str(row.text);
        EXPECT_TRUE(EncodeURL(str));
        EXPECT_STREQ(str.c_str(), row.expected);
        EXPECT_FALSE(IsLocked(str));
    }
}

TEST_F(UrlEncodingTest, TakesABlockForThreeCharactersAByteAndSevenMore)
{
    CStringEx str(L"a\u00FC");
    EncodeURL(str);
    EXPECT_EQ(BlockLength(str), 3u * 4 + 6 + 1);
}

TEST_F(UrlEncodingTest, GivesAStringWithoutABlockTheEmptyText)
{
    CStringEx str;
    EXPECT_TRUE(EncodeURL(str));
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 3u + 6 + 1);
}

TEST_F(UrlEncodingTest, ReleasesTheLock)
{
    CStringEx str(L"a");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    EncodeURL(str);
    EXPECT_STREQ(str.c_str(), L"%61");
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(UrlEncodingTest, KeepsTheTextWhenThereIsNoMemoryForItsUtf8Form)
{
    CStringEx str(L"text");
    bool bEncoded = true;
    {
        const CFailingHeap failing(1, 1);
        bEncoded = EncodeURL(str);
    }
    EXPECT_FALSE(bEncoded);
    EXPECT_STREQ(str.c_str(), L"text");
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(UrlEncodingTest, IsEmptyWhenThereIsNoMemoryForTheResult)
{
    CStringEx str(L"text");
    bool bEncoded = true;
    unsigned requests = 0;
    {
        const CFailingHeap failing(2);
        bEncoded = EncodeURL(str);
        requests = failing.Requests();
    }
    EXPECT_FALSE(bEncoded);
    EXPECT_EQ(requests, 2u);
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 0u);
}

struct ConversionCall
{
    UINT codePage;
    DWORD dwFlags;
    int cch;
    int cb;
    bool hasDefault;
};

class CConversionScript
{
public:
    CConversionScript() { s_pThis = this; }

    const std::vector<ConversionCall>& Calls() const { return m_calls; }
    void FailFrom(size_t call) { m_failFrom = call; }
    // What the second conversion says that it has written; 0: the truth.
    void Report(int cb) { m_cbReported = cb; }

private:
    static int WINAPI Convert(UINT codePage, DWORD dwFlags, LPCWCH from, int cch, LPSTR to, int cb,
                              LPCCH pDefault, LPBOOL pbDefaultUsed)
    {
        s_pThis->m_calls.push_back(
            {codePage, dwFlags, cch, cb, pDefault != nullptr || pbDefaultUsed != nullptr});
        if (s_pThis->m_calls.size() >= s_pThis->m_failFrom)
        {
            return 0;
        }
        const auto pfnOriginal = s_pThis->m_patch.Original<decltype(Convert)>();
        const int cbWritten = pfnOriginal(codePage, dwFlags, from, cch, to, cb, pDefault, pbDefaultUsed);
        return s_pThis->m_calls.size() == 2 && s_pThis->m_cbReported != 0 ? s_pThis->m_cbReported : cbWritten;
    }

    static inline CConversionScript* s_pThis = nullptr;
    std::vector<ConversionCall> m_calls;
    size_t m_failFrom = 100;
    int m_cbReported = 0;
    CImportPatch m_patch{GetModuleHandleW(nullptr), "WideCharToMultiByte", Convert};
};

TEST_F(UrlEncodingTest, ConvertsToUtf8WithoutFlags)
{
    CConversionScript script;
    CStringEx str(L"a\u00FC");
    EncodeURL(str);
    ASSERT_EQ(script.Calls().size(), 2u);
    for (const ConversionCall& call : script.Calls())
    {
        EXPECT_EQ(call.codePage, UINT{CP_UTF8});
        EXPECT_EQ(call.dwFlags, 0u);
        EXPECT_EQ(call.cch, -1);
        EXPECT_FALSE(call.hasDefault);
    }
    EXPECT_EQ(script.Calls()[0].cb, 0);
    EXPECT_EQ(script.Calls()[1].cb, 4);
}

TEST_F(UrlEncodingTest, KeepsTheTextWhenItsUtf8LengthCannotBeHad)
{
    CConversionScript script;
    script.FailFrom(1);
    CStringEx str(L"text");
    EXPECT_FALSE(EncodeURL(str));
    EXPECT_STREQ(str.c_str(), L"text");

    CStringEx strNull;
    EXPECT_FALSE(EncodeURL(strNull));
    EXPECT_EQ(BlockLength(strNull), 1u);
}

TEST_F(UrlEncodingTest, SaysThatAStringWithoutMemoryForABlockIsNotEncoded)
{
    CStringEx str;
    bool bEncoded = true;
    {
        const CFailingHeap failing;
        bEncoded = EncodeURL(str);
    }
    EXPECT_FALSE(bEncoded);
    EXPECT_EQ(BlockLength(str), 0u);
}

TEST_F(UrlEncodingTest, IsEmptyWhenTheConversionReportsNothing)
{
    CConversionScript script;
    script.FailFrom(2);
    CStringEx str(L"text");
    EXPECT_FALSE(EncodeURL(str));
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 6u + 1);
    EXPECT_FALSE(IsLocked(str));
}

// A text of two thirds of a gigabyte, without the memory for it: only its length is made up.
TEST_F(UrlEncodingTest, IsEmptyWhenTheTextIsTooLongToBeEncoded)
{
    for (const int cb : {(INT_MAX - 6) / 3 + 1, INT_MAX})
    {
        CConversionScript script;
        script.Report(cb);
        CStringEx str(L"text");
        EXPECT_FALSE(EncodeURL(str)) << cb;
        EXPECT_EQ(BlockLength(str), 0u) << "\"" << str.c_str() << "\" stays, " << cb;
    }
}

TEST_F(UrlEncodingTest, AsksForTheMemoryOfTheLongestTextThatCanBeEncoded)
{
    constexpr int kLongest = (INT_MAX - 6) / 3;
    CConversionScript script;
    script.Report(kLongest);
    CStringEx str(L"text");
    int refusals = 0;
    {
        const CFailingHeap failing({(size_t{kLongest} * 3 + 6 + 1) * sizeof(wchar_t)});
        EncodeURL(str);
        refusals = failing.Refusals();
    }
    EXPECT_EQ(refusals, 1);
}

TEST_F(UrlEncodingTest, EncodesNoMoreThanTheConversionReports)
{
    CConversionScript script;
    script.Report(2);
    CStringEx str(L"a long text");
    EXPECT_TRUE(EncodeURL(str));
    EXPECT_STREQ(str.c_str(), L"%61");
    EXPECT_EQ(BlockLength(str), 3u * 2 + 6 + 1);
}

std::chrono::nanoseconds ShortestTimeFor(size_t length)
{
    const std::wstring text(length, L'x');
    auto shortest = std::chrono::nanoseconds::max();
    for (int round = 0; round < 3; ++round)
    {
        CStringEx str(text.c_str());
        const auto start = std::chrono::steady_clock::now();
        EncodeURL(str);
        shortest = std::min<std::chrono::nanoseconds>(shortest, std::chrono::steady_clock::now() - start);
    }
    return shortest;
}

// Walking from the front for every byte would make eight times the text cost sixty-four times the time,
// and 10 MB of it take hours. The bounds are far from both, so that a busy machine cannot break them.
TEST_F(UrlEncodingTest, TakesTimeInProportionToTheText)
{
    const auto small = ShortestTimeFor(1'000'000);
    const auto large = ShortestTimeFor(8'000'000);
    EXPECT_LT(large, small * 32) << small.count() << " ns for 1 MB, " << large.count() << " ns for 8 MB";
}

TEST_F(UrlEncodingTest, EncodesTenMegabytes)
{
    const std::wstring text(10'000'000, L'x');
    CStringEx str(text.c_str());
    const auto start = std::chrono::steady_clock::now();
    EncodeURL(str);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(str.GetLength(), 30'000'000);
    EXPECT_STREQ(str.Right(6).c_str(), L"%78%78");
    EXPECT_LT(taken, std::chrono::seconds(10));
}

}  // namespace
