#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <string>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "unit/base/StringBlock.h"

namespace
{

class StringExEditTest : public testing::Test
{
protected:
    ~StringExEditTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

struct DeleteRow
{
    const char* label;
    int index;
    int count;
    const wchar_t* expected;
    int length;
    size_t block;
};

TEST_F(StringExEditTest, DeleteRemovesAndReturnsTheNewLength)
{
    const DeleteRow rows[] = {
        {"in the middle", 1, 2, L"adef", 4, 5},
        {"at the front", 0, 2, L"cdef", 4, 5},
        {"exactly to the end", 4, 2, L"abcd", 4, 5},
        {"the whole text", 0, 6, L"", 0, 1},
        {"nothing", 2, 0, L"abcdef", 6, 7},
        {"nothing at the end", 6, 0, L"abcdef", 6, 7},
        {"one past the end, in place", 4, 3, L"abcd", 4, 7},
        {"far past the end, in place", 1, 10, L"a", 1, 7},
        {"the greatest count", 2, INT_MAX, L"ab", 2, 7},
        {"everything and more", 0, 7, L"", 0, 7},
        {"from the end", 6, 1, L"abcdef", 6, 7},
        {"behind the end", 7, 1, L"abcdef", 6, 7},
        {"far behind the end", INT_MAX, INT_MAX, L"abcdef", 6, 7},
        {"before the front", -1, 3, L"abcdef", 6, 7},
        {"a count below zero", 3, -2, L"abcdef", 6, 7},
        {"the least count", 3, INT_MIN, L"abcdef", 6, 7},
    };
    for (const DeleteRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        CStringEx str(L"abcdef");
        EXPECT_EQ(str.Delete(row.index, row.count), row.length);
        EXPECT_STREQ(str.c_str(), row.expected);
        EXPECT_EQ(BlockLength(str), row.block);
    }
}

TEST_F(StringExEditTest, DeleteInAStringWithoutABlockGivesZero)
{
    CStringEx str;
    EXPECT_EQ(str.Delete(0, 0), 0);
    EXPECT_EQ(str.Delete(3, 1), 0);
    EXPECT_EQ(BlockLength(str), 0u);
}

TEST_F(StringExEditTest, DeleteLeavesNothingWithoutMemory)
{
    CStringEx str(L"abcdef");
    int length = -1;
    {
        const CFailingHeap failing;
        length = str.Delete(1, 2);
    }
    EXPECT_EQ(length, 0);
    EXPECT_EQ(str.GetLength(), 0);
    EXPECT_EQ(BlockLength(str), 0u);
}

struct ReplaceRow
{
    const char* label;
    const wchar_t* text;
    const wchar_t* oldText;
    const wchar_t* newText;
    const wchar_t* expected;
    int result;
};

TEST_F(StringExEditTest, ReplaceReplacesEveryOccurrence)
{
    const ReplaceRow rows[] = {
        {"once: one more than the count", L"file:///c", L":///", L"://", L"file://c", 2},
        {"three times", L"a-b-c-d", L"-", L"+", L"a+b+c+d", 4},
        {"by a longer text", L"a-b-c", L"-", L"<=>", L"a<=>b<=>c", 3},
        {"by a shorter text", L"a<=>b<=>c", L"<=>", L"-", L"a-b-c", 3},
        {"the whole text is occurrences", L"xyxyxy", L"xy", L"abcde", L"abcdeabcdeabcde", 4},
        {"the whole text is one-letter occurrences", L"aaaa", L"a", L"bbb", L"bbbbbbbbbbbb", 5},
        {"a length that does not divide", L"xyzxyzq", L"xyz", L"abcdefgh", L"abcdefghabcdefghq", 3},
        {"occurrence at the end", L"ab-", L"-", L"++", L"ab++", 2},
        {"the new text holds the old", L"a.b", L".", L"..", L"a..b", 2},
        {"the new text makes a new occurrence", L"aab", L"ab", L"b", L"ab", 2},
        {"overlapping occurrences from the front", L"aaa", L"aa", L"b", L"ba", 2},
        {"of another case", L"aBc", L"b", L"x", L"aBc", 0},
        {"deletion: the plain count", L"a-b-c", L"-", L"", L"abc", 2},
        {"deletion of everything", L"----", L"--", L"", L"", 2},
        {"deletion finds what deletion has joined", L"aabb", L"ab", L"", L"", 2},
        {"absent", L"abc", L"x", L"y", L"abc", 0},
        {"absent, deletion", L"abc", L"x", L"", L"abc", 0},
        {"the same", L"abc", L"b", L"b", L"abc", 0},
        {"empty old text", L"abc", L"", L"x", L"abc", 0},
        {"null old text", L"abc", nullptr, L"x", L"abc", 0},
        {"null new text", L"abc", L"b", nullptr, L"abc", 0},
        {"the empty text", L"", L"a", L"b", L"", 0},
    };
    for (const ReplaceRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        CStringEx str(row.text);
        EXPECT_EQ(str.Replace(row.oldText, row.newText), row.result);
        EXPECT_STREQ(str.c_str(), row.expected);
        EXPECT_EQ(BlockLength(str), std::wcslen(row.expected) + 1);
    }
}

TEST_F(StringExEditTest, ReplaceInAStringWithoutABlockGivesZero)
{
    CStringEx str;
    EXPECT_EQ(str.Replace(L"a", L"b"), 0);
    EXPECT_EQ(str.Replace(L"", L""), 0);
    EXPECT_EQ(BlockLength(str), 0u);
}

TEST_F(StringExEditTest, ReplaceReleasesTheLockOnlyWithANewText)
{
    CStringEx str(L"a-b");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    EXPECT_EQ(str.Replace(L"x", L"y"), 0);
    EXPECT_TRUE(IsLocked(str));
    EXPECT_EQ(str.Replace(L"-", L""), 1);
    EXPECT_TRUE(IsLocked(str));
    EXPECT_EQ(str.Replace(L"b", L"c"), 2);
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExEditTest, ReplaceKeepsTheTextWithoutMemoryForTheNewOne)
{
    CStringEx str(L"a-b");
    int result = -1;
    {
        const CFailingHeap failing;
        result = str.Replace(L"-", L"<=>");
    }
    EXPECT_EQ(result, 0);
    EXPECT_STREQ(str.c_str(), L"a-b");
}

// More than it needs where the length does not divide, and never for a shorter text.
TEST_F(StringExEditTest, ReplaceAsksForWhatTheMostOccurrencesWouldTake)
{
    struct Row
    {
        const wchar_t* oldText;
        const wchar_t* newText;
        size_t cch;
    };
    for (const Row& row :
         {Row{L"-", L"+", 6}, Row{L"b-c", L"x", 6}, Row{L"-", L"<=>", 16}, Row{L"-c", L"1234567", 18}})
    {
        CStringEx str(L"ab-cd");
        size_t cbRefused = 0;
        {
            const CFailingHeap failing;
            str.Replace(row.oldText, row.newText);
            cbRefused = failing.RefusedSize();
        }
        EXPECT_EQ(cbRefused, row.cch * sizeof(wchar_t)) << row.newText;
    }
}

TEST_F(StringExEditTest, ReplaceLeavesNothingWithoutMemoryForTheBlockOfTheNewText)
{
    CStringEx str(L"a-b");
    int result = -1;
    {
        const CFailingHeap failing(2);
        result = str.Replace(L"-", L"<=>");
    }
    EXPECT_EQ(result, 2);
    EXPECT_EQ(BlockLength(str), 0u);
}

// As the C runtime does it, for letters beyond ASCII too.
TEST_F(StringExEditTest, LowerCasesLettersAsTheRuntimeDoes)
{
    wchar_t szExpected[] = L"AZ[ \u00C4\u00D6\u00DC\u00DF \u0130\u03A9\u0416 \uFF21";
    CStringEx str(szExpected);
    _wcslwr(szExpected);
    str.MakeLower();
    EXPECT_STREQ(str.c_str(), szExpected);
}

TEST_F(StringExEditTest, LowerCasesItsText)
{
    CStringEx str(L"C:\\Dir\\FILE.Ini 123");
    const wchar_t* text = str.c_str();
    str.MakeLower();
    EXPECT_EQ(str.c_str(), text);
    EXPECT_STREQ(str.c_str(), L"c:\\dir\\file.ini 123");

    CStringEx strEmpty(L"");
    strEmpty.MakeLower();
    EXPECT_STREQ(strEmpty.c_str(), L"");

    CStringEx strNull;
    strNull.MakeLower();
    EXPECT_EQ(BlockLength(strNull), 0u);
}

}  // namespace
