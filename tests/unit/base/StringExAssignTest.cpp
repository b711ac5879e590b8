#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "unit/base/StringBlock.h"

namespace
{

class StringExAssignTest : public testing::Test
{
protected:
    ~StringExAssignTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

TEST_F(StringExAssignTest, StartsEmptyWithoutABlock)
{
    CStringEx str;
    EXPECT_EQ(str.GetLength(), 0);
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 0u);
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExAssignTest, GetsABlockWhenItsPointerIsAskedFor)
{
    CStringEx str;
    const wchar_t* text = str;
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, L"");
    EXPECT_EQ(BlockLength(str), 1u);
    EXPECT_EQ(text, str.c_str());
}

TEST_F(StringExAssignTest, ReadingTheTextChangesNothing)
{
    const CStringEx str;
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 0u);
}

TEST_F(StringExAssignTest, TakesABlockOfTheTextAndItsTerminator)
{
    const CStringEx str(L"hello");
    EXPECT_STREQ(str.c_str(), L"hello");
    EXPECT_EQ(str.GetLength(), 5);
    EXPECT_EQ(BlockLength(str), 6u);
}

TEST_F(StringExAssignTest, CopiesTheTextOfItsSource)
{
    wchar_t source[] = L"source";
    const CStringEx str(source);
    source[0] = L'S';
    EXPECT_STREQ(str.c_str(), L"source");
}

TEST_F(StringExAssignTest, ReplacesALongerTextByAShorterBlock)
{
    CStringEx str(L"a long text");
    str = L"abc";
    EXPECT_STREQ(str.c_str(), L"abc");
    EXPECT_EQ(BlockLength(str), 4u);
}

TEST_F(StringExAssignTest, TakesNullForTheEmptyText)
{
    CStringEx strConstructed(static_cast<const wchar_t*>(nullptr));
    EXPECT_STREQ(strConstructed.c_str(), L"");
    EXPECT_EQ(BlockLength(strConstructed), 1u);

    CStringEx str(L"text");
    str = static_cast<const wchar_t*>(nullptr);
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 1u);
}

TEST_F(StringExAssignTest, AssigningItsOwnBufferChangesNothing)
{
    CStringEx str(L"own");
    const wchar_t* text = str;
    str = text;
    EXPECT_EQ(str.c_str(), text);
    EXPECT_STREQ(str.c_str(), L"own");
}

TEST_F(StringExAssignTest, AssigningAPartOfItsOwnBufferKeepsThatPart)
{
    CStringEx str(L"own text");
    str = str.c_str() + 4;
    EXPECT_STREQ(str.c_str(), L"text");
    EXPECT_EQ(BlockLength(str), 5u);
}

TEST_F(StringExAssignTest, AssignmentReleasesTheLock)
{
    CStringEx str(L"locked");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    str = L"free";
    EXPECT_FALSE(IsLocked(str));

    ASSERT_NE(str.GetBuffer(1), nullptr);
    str = "narrow";
    EXPECT_FALSE(IsLocked(str));

    ASSERT_NE(str.GetBuffer(1), nullptr);
    EXPECT_TRUE(str.SetUTF8("utf-8"));
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExAssignTest, ACopyHasABlockOfItsOwn)
{
    CStringEx str(L"text");
    ASSERT_NE(str.GetBuffer(100), nullptr);
    CStringEx strCopy(str);
    EXPECT_NE(strCopy.c_str(), str.c_str());
    EXPECT_STREQ(strCopy.c_str(), L"text");
    EXPECT_EQ(BlockLength(strCopy), 5u);
    EXPECT_FALSE(IsLocked(strCopy));
    EXPECT_TRUE(IsLocked(str));

    CStringEx strAssigned(L"old");
    strAssigned = str;
    EXPECT_NE(strAssigned.c_str(), str.c_str());
    EXPECT_STREQ(strAssigned.c_str(), L"text");
}

TEST_F(StringExAssignTest, ACopyOfAStringWithoutABlockHasTheEmptyText)
{
    const CStringEx strNull;
    const CStringEx strCopy(strNull);
    EXPECT_EQ(BlockLength(strCopy), 1u);
    EXPECT_STREQ(strCopy.c_str(), L"");

    CStringEx strAssigned(L"old");
    strAssigned = strNull;
    EXPECT_EQ(BlockLength(strAssigned), 1u);
    EXPECT_STREQ(strAssigned.c_str(), L"");
    EXPECT_EQ(BlockLength(strNull), 0u);
}

TEST_F(StringExAssignTest, AssigningItselfKeepsItsBlock)
{
    CStringEx str(L"text");
    const wchar_t* text = str.c_str();
    const CStringEx& strSame = str;
    str = strSame;
    EXPECT_EQ(str.c_str(), text);
}

TEST_F(StringExAssignTest, AMoveHandsTheBlockOver)
{
    CStringEx str(L"text");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    const wchar_t* text = str.c_str();
    CStringEx strNew(std::move(str));
    EXPECT_EQ(strNew.c_str(), text);
    EXPECT_FALSE(IsLocked(strNew));

    CStringEx strAssigned(L"old");
    ASSERT_NE(strAssigned.GetBuffer(1), nullptr);
    strAssigned = std::move(strNew);
    EXPECT_EQ(strAssigned.c_str(), text);
    EXPECT_FALSE(IsLocked(strAssigned));
}

TEST_F(StringExAssignTest, EmptyReleasesBlockAndLock)
{
    CStringEx str(L"text");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    str.Empty();
    EXPECT_EQ(BlockLength(str), 0u);
    EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart);
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExAssignTest, IsReleasedThroughItsVirtualDestructor)
{
    class CDerived : public CStringEx
    {
    public:
        explicit CDerived(bool* pbDestroyed) : m_pbDestroyed(pbDestroyed) {}
        ~CDerived() override { *m_pbDestroyed = true; }
        CDerived(const CDerived&) = delete;
        CDerived& operator=(const CDerived&) = delete;
        using CStringEx::operator=;

    private:
        bool* m_pbDestroyed;
    };
    bool bDestroyed = false;
    CStringEx* pstr = new CDerived(&bDestroyed);
    *pstr = L"text";
    delete pstr;
    EXPECT_TRUE(bDestroyed);
}

TEST_F(StringExAssignTest, SaysThatACopyHasFoundMemory)
{
    CStringEx str(L"old");
    ASSERT_NE(str.GetBuffer(1), nullptr);
    EXPECT_TRUE(str.Assign(L"new"));
    EXPECT_STREQ(str.c_str(), L"new");
    EXPECT_EQ(BlockLength(str), 4u);
    EXPECT_FALSE(IsLocked(str));

    EXPECT_TRUE(str.Assign(L"")) << "an empty text";
    EXPECT_EQ(BlockLength(str), 1u);
    str = L"old";
    EXPECT_TRUE(str.Assign(nullptr));
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 1u);
}

TEST_F(StringExAssignTest, SaysThatItKeepsItsOwnBufferEvenWithoutMemory)
{
    CStringEx str(L"own");
    const wchar_t* const text = str.c_str();
    bool bAssigned = false;
    {
        const CFailingHeap failing;
        bAssigned = str.Assign(text);
    }
    EXPECT_TRUE(bAssigned);
    EXPECT_EQ(str.c_str(), text);
}

TEST_F(StringExAssignTest, SaysThatACopyHasFoundNoMemoryAndIsEmpty)
{
    const wchar_t* const texts[] = {L"new", L"", nullptr};
    for (const wchar_t* const text : texts)
    {
        SCOPED_TRACE(text == nullptr ? L"null" : text);
        CStringEx str(L"old");
        ASSERT_NE(str.GetBuffer(1), nullptr);
        bool bAssigned = true;
        {
            const CFailingHeap failing;
            bAssigned = str.Assign(text);
        }
        EXPECT_FALSE(bAssigned);
        EXPECT_EQ(BlockLength(str), 0u);
        EXPECT_NE(str.GetBuffer(2), nullptr) << "the lock stays";
    }
}

TEST_F(StringExAssignTest, HasNoTextWithoutMemory)
{
    CStringEx str(L"old");
    {
        const CFailingHeap failing;
        str = L"new";
    }
    EXPECT_EQ(str.GetLength(), 0);
    EXPECT_EQ(BlockLength(str), 0u);
    const wchar_t* text = L"";
    {
        const CFailingHeap failing;
        text = str;
    }
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(str.Find(L"o"), -1);
    EXPECT_EQ(str.Delete(0, 1), 0);
    EXPECT_STREQ(str.Mid(0, 1).c_str(), L"");
    str += L"again";
    EXPECT_STREQ(str.c_str(), L"again");
}

}  // namespace
