#include <gtest/gtest.h>

#include <climits>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "unit/base/StringBlock.h"

namespace
{

struct MidRow
{
    const char* label;
    const wchar_t* text;
    int start;
    int count;
    const wchar_t* expected;
};

TEST(StringExSearchTest, MidTakesAPart)
{
    const MidRow rows[] = {
        {"inner part", L"abcdef", 2, 3, L"cde"},
        {"from the front", L"abcdef", 0, 2, L"ab"},
        {"nothing", L"abcdef", 3, 0, L""},
        {"to the very end", L"abcdef", 4, 2, L"ef"},
        {"past the end", L"abcdef", 4, 3, L"ef"},
        {"far past the end", L"abcdef", 1, INT_MAX, L"bcdef"},
        {"all the rest", L"abcdef", 2, -1, L"cdef"},
        {"all the rest, least count", L"abcdef", 2, INT_MIN, L"cdef"},
        {"start below zero", L"abcdef", -3, 2, L"ab"},
        {"least start", L"abcdef", INT_MIN, 2, L"ab"},
        {"start at the end", L"abc", 3, 1, L""},
        {"start behind the end", L"abc", 4, 1, L""},
        {"start far behind the end", L"abc", 5, 2, L""},
        {"greatest start", L"abc", INT_MAX, INT_MAX, L""},
        {"of the empty text", L"", 0, 1, L""},
    };
    for (const MidRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        const CStringEx str(row.text);
        const CStringEx strPart = str.Mid(row.start, row.count);
        EXPECT_STREQ(strPart.c_str(), row.expected);
        EXPECT_STREQ(str.c_str(), row.text);
    }
}

TEST(StringExSearchTest, MidOfAStringWithoutABlockIsEmpty)
{
    const CStringEx str;
    EXPECT_STREQ(str.Mid(0, 1).c_str(), L"");
    EXPECT_STREQ(str.Left(1).c_str(), L"");
    EXPECT_STREQ(str.Right(1).c_str(), L"");
}

TEST(StringExSearchTest, MidMakesABlockOfThePartAndItsTerminator)
{
    const CStringEx str(L"abcdef");
    EXPECT_EQ(BlockLength(str.Mid(1, 3)), 4u);
    EXPECT_EQ(BlockLength(str.Mid(6, 3)), 1u);
}

TEST(StringExSearchTest, MidIsEmptyWithoutMemory)
{
    const CStringEx str(L"abcdef");
    int length = -1;
    {
        const CFailingHeap failing;
        length = str.Mid(1, 3).GetLength();
    }
    EXPECT_EQ(length, 0);
}

struct EndRow
{
    const char* label;
    int count;
    const wchar_t* left;
    const wchar_t* right;
};

TEST(StringExSearchTest, LeftAndRightTakeTheEnds)
{
    const EndRow rows[] = {
        {"none", 0, L"", L""},
        {"one", 1, L"a", L"c"},
        {"two", 2, L"ab", L"bc"},
        {"all", 3, L"abc", L"abc"},
        {"more than all", 4, L"abc", L"abc"},
        {"greatest", INT_MAX, L"abc", L"abc"},
        {"below zero", -1, L"abc", L""},
        {"least", INT_MIN, L"abc", L""},
    };
    const CStringEx str(L"abc");
    for (const EndRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        EXPECT_STREQ(str.Left(row.count).c_str(), row.left);
        EXPECT_STREQ(str.Right(row.count).c_str(), row.right);
    }
}

struct FindRow
{
    const char* label;
    const wchar_t* text;
    const wchar_t* sub;
    int first;
    int last;
};

TEST(StringExSearchTest, FindsTheFirstAndTheLastOccurrence)
{
    const FindRow rows[] = {
        {"once", L"abcdef", L"cd", 2, 2},
        {"twice", L"a.exe.exe", L".exe", 1, 5},
        {"at the front only", L"http://x", L"http", 0, 0},
        {"at the end only", L"file.ini", L".ini", 4, 4},
        {"overlapping itself", L"aaaa", L"aa", 0, 2},
        {"the whole text", L"abc", L"abc", 0, 0},
        {"absent", L"abcdef", L"x", -1, -1},
        {"longer than the text", L"abc", L"abcd", -1, -1},
        {"in another case", L"ABC", L"b", -1, -1},
        {"begun but not ended", L"abab", L"abc", -1, -1},
        {"empty", L"abc", L"", 0, 3},
        {"in the empty text", L"", L"a", -1, -1},
        {"empty in the empty text", L"", L"", -1, -1},
        {"low bytes alike only", L"\x0141", L"\x0041", -1, -1},
    };
    for (const FindRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        const CStringEx str(row.text);
        EXPECT_EQ(str.Find(row.sub), row.first);
        EXPECT_EQ(str.ReverseFind(row.sub), row.last);
    }
}

TEST(StringExSearchTest, FindsNothingInAStringWithoutABlock)
{
    const CStringEx str;
    EXPECT_EQ(str.Find(L"a"), -1);
    EXPECT_EQ(str.ReverseFind(L"a"), -1);
    EXPECT_EQ(str.ReverseFind(L""), -1);
}

TEST(StringExSearchTest, FindsNothingForNull)
{
    const CStringEx str(L"abc");
    EXPECT_EQ(str.Find(nullptr), -1);
    EXPECT_EQ(str.ReverseFind(nullptr), -1);
}

}  // namespace
