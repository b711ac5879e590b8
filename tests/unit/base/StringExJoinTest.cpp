#include <gtest/gtest.h>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "support/ImportPatch.h"
#include "unit/base/StringBlock.h"

namespace
{

class StringExJoinTest : public testing::Test
{
protected:
    ~StringExJoinTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

TEST_F(StringExJoinTest, AppendsText)
{
    CStringEx str(L"ab");
    str += L"cde";
    EXPECT_STREQ(str.c_str(), L"abcde");
    EXPECT_EQ(BlockLength(str), 7u);
}

TEST_F(StringExJoinTest, AppendingToAStringWithoutABlockAssigns)
{
    CStringEx str;
    str += L"abc";
    EXPECT_STREQ(str.c_str(), L"abc");
    EXPECT_EQ(BlockLength(str), 4u);

    CStringEx strNull;
    strNull += nullptr;
    EXPECT_STREQ(strNull.c_str(), L"");
    EXPECT_EQ(BlockLength(strNull), 1u);
}

TEST_F(StringExJoinTest, AppendingNullOrNothingKeepsTheText)
{
    CStringEx str(L"ab");
    str += nullptr;
    EXPECT_STREQ(str.c_str(), L"ab");
    str += L"";
    EXPECT_STREQ(str.c_str(), L"ab");
    EXPECT_EQ(BlockLength(str), 4u);
}

TEST_F(StringExJoinTest, AppendingNothingToTheEmptyTextLeavesNoBlock)
{
    CStringEx str(L"");
    str += L"";
    EXPECT_EQ(str.GetLength(), 0);
    EXPECT_EQ(BlockLength(str), 0u);
}

TEST_F(StringExJoinTest, AppendsItsOwnText)
{
    CStringEx str(L"abc");
    str += str.c_str();
    EXPECT_STREQ(str.c_str(), L"abcabc");
    str += str.c_str() + 4;
    EXPECT_STREQ(str.c_str(), L"abcabcbc");
}

TEST_F(StringExJoinTest, AppendsCharacters)
{
    CStringEx str;
    str.AppendChar(L'a');
    EXPECT_EQ(BlockLength(str), 2u);
    str.AppendChar(L'\x20AC');
    EXPECT_STREQ(str.c_str(), L"a\x20AC");
    EXPECT_EQ(BlockLength(str), 4u);
    str.AppendChar(L'\0');
    EXPECT_STREQ(str.c_str(), L"a\x20AC");
}

TEST_F(StringExJoinTest, AppendingIgnoresTheLock)
{
    CStringEx str(L"ab");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    str += L"c";
    str.AppendChar(L'd');
    EXPECT_STREQ(str.c_str(), L"abcd");
    EXPECT_TRUE(IsLocked(str));
    str.Delete(0, 1);
    str.PathAppend(L"E");
    str.MakeLower();
    EXPECT_STREQ(str.c_str(), L"bcd\\e");
    EXPECT_TRUE(IsLocked(str));
}

TEST_F(StringExJoinTest, IsEmptyWhenThereIsNoMemoryToAppend)
{
    CStringEx str(L"ab");
    {
        const CFailingHeap failing;
        str += L"c";
    }
    EXPECT_EQ(str.GetLength(), 0);
    EXPECT_EQ(BlockLength(str), 0u);
}

struct ConcatRow
{
    const char* label;
    const wchar_t* a;
    const wchar_t* b;
    const wchar_t* expected;
};

TEST_F(StringExJoinTest, ConcatJoinsInABlockOfTwoCharactersMore)
{
    const ConcatRow rows[] = {
        {"both", L"ab", L"cde", L"abcde"},     {"second null", L"ab", nullptr, L"ab"},
        {"first null", nullptr, L"cd", L"cd"}, {"second empty", L"ab", L"", L"ab"},
        {"first empty", L"", L"cd", L"cd"},
    };
    for (const ConcatRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        wchar_t* joined = nullptr;
        CStringEx::Concat(row.a, row.b, &joined);
        ASSERT_NE(joined, nullptr);
        EXPECT_STREQ(joined, row.expected);
        EXPECT_EQ(CGuardedHeap::SizeOf(joined) / sizeof(wchar_t), std::wcslen(row.expected) + 2);
        delete[] joined;
    }
}

TEST_F(StringExJoinTest, ConcatOfNothingGivesNull)
{
    for (const wchar_t* a : {static_cast<const wchar_t*>(nullptr), L""})
    {
        for (const wchar_t* b : {static_cast<const wchar_t*>(nullptr), L""})
        {
            wchar_t* joined = nullptr;
            CStringEx::Concat(a, b, &joined);
            EXPECT_EQ(joined, nullptr);
        }
    }
}

TEST_F(StringExJoinTest, ConcatReleasesTheBlockThatItReplaces)
{
    wchar_t* joined = new wchar_t[10]();
    CStringEx::Concat(L"a", L"b", &joined);
    EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart + 1);
    EXPECT_STREQ(joined, L"ab");
    CStringEx::Concat(nullptr, nullptr, &joined);
    EXPECT_EQ(joined, nullptr);
    EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart);
}

TEST_F(StringExJoinTest, ConcatGivesNullWithoutMemory)
{
    wchar_t* joined = new wchar_t[10]();
    {
        const CFailingHeap failing;
        CStringEx::Concat(L"a", L"b", &joined);
    }
    EXPECT_EQ(joined, nullptr);
}

struct PathRow
{
    const char* label;
    const wchar_t* path;
    const wchar_t* file;
    const wchar_t* expected;
};

TEST_F(StringExJoinTest, PathAppendJoinsWithOneBackslash)
{
    const PathRow rows[] = {
        {"plain", L"C:\\dir", L"sub", L"C:\\dir\\sub"},
        {"a backslash on both sides", L"C:\\dir\\", L"\\sub", L"C:\\dir\\sub"},
        {"a slash at the end", L"C:/dir/", L"\\x", L"C:/dir\\x"},
        {"a slash at the end of a backslash path", L"C:\\dir/", L"x", L"C:\\dir\\x"},
        {"runs of backslashes", L"C:\\dir\\\\\\", L"\\\\\\x", L"C:\\dir\\x"},
        {"runs of slashes", L"C:/dir///", L"///x", L"C:/dir\\x"},
        {"slashes behind backslashes at the end", L"d\\\\//", L"x", L"d\\x"},
        {"backslashes behind slashes at the end", L"d//\\\\", L"x", L"d//\\x"},
        {"slashes before backslashes in front", L"d", L"//\\\\x", L"d\\x"},
        {"backslashes before slashes in front", L"d", L"\\\\//x", L"d\\//x"},
        {"a mixed front", L"d", L"/\\/x", L"d\\/x"},
        {"inner separators stay", L"a\\\\b", L"c//d\\", L"a\\\\b\\c//d\\"},
        {"the empty text", L"", L"x", L"\\x"},
        {"nothing to append", L"d", L"", L"d\\"},
        {"separators only", L"d", L"/\\", L"d\\"},
        {"separators to separators", L"\\\\", L"\\", L"\\"},
        {"null", L"d", nullptr, L"d\\"},
        {"an absolute path", L"C:\\dir", L"D:\\other", L"C:\\dir\\D:\\other"},
    };
    for (const PathRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        CStringEx str(row.path);
        str.PathAppend(row.file);
        EXPECT_STREQ(str.c_str(), row.expected);

        CStringEx strPath(row.path);
        CStringEx strFile(row.file);
        strPath.PathAppend(strFile);
        EXPECT_STREQ(strPath.c_str(), row.expected);
    }
}

TEST_F(StringExJoinTest, PathAppendToAStringWithoutABlockIsALoneBackslashAndTheFile)
{
    CStringEx str;
    str.PathAppend(L"x");
    EXPECT_STREQ(str.c_str(), L"\\x");

    CStringEx strFile;
    str.PathAppend(strFile);
    EXPECT_STREQ(str.c_str(), L"\\x\\");
}

TEST_F(StringExJoinTest, PathAppendTakesItsOwnText)
{
    CStringEx str(L"\\dir\\");
    str.PathAppend(str.c_str());
    EXPECT_STREQ(str.c_str(), L"\\dir\\dir\\");
    CStringEx strSame(L"\\dir\\");
    strSame.PathAppend(strSame);
    EXPECT_STREQ(strSame.c_str(), L"\\dir\\dir\\");
}

const wchar_t* g_debuggerText = nullptr;
int g_debuggerCalls = 0;

void WINAPI ScriptedOutputDebugString(LPCWSTR text)
{
    g_debuggerText = text;
    ++g_debuggerCalls;
}

TEST_F(StringExJoinTest, PathAppendReportsAStringThatCanHaveNoBlock)
{
    g_debuggerCalls = 0;
    const CImportPatch patch(GetModuleHandleW(nullptr), "OutputDebugStringW", ScriptedOutputDebugString);
    CStringEx str(L"dir");
    CStringEx strFile;
    {
        const CFailingHeap failing;
        str.PathAppend(strFile);
    }
    ASSERT_EQ(g_debuggerCalls, 1);
    EXPECT_STREQ(g_debuggerText, L"CStringEx::PathAppend: lpszFile == NULL\n");
    EXPECT_STREQ(str.c_str(), L"dir");

    str.PathAppend(strFile);
    str.PathAppend(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(g_debuggerCalls, 1);
}

}  // namespace
