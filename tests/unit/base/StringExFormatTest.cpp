#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "unit/base/StringBlock.h"

namespace
{

class StringExFormatTest : public testing::Test
{
protected:
    ~StringExFormatTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

TEST_F(StringExFormatTest, FormatsANumber)
{
    CStringEx str;
    str.Format(L"%d", 5);
    EXPECT_STREQ(str.c_str(), L"5");
    EXPECT_EQ(BlockLength(str), 37u);
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExFormatTest, FormatsNothing)
{
    CStringEx str;
    str.Format(L"");
    EXPECT_STREQ(str.c_str(), L"");
    EXPECT_EQ(BlockLength(str), 5u);

    CStringEx strOld(L"a text");
    strOld.Format(L"");
    EXPECT_STREQ(strOld.c_str(), L"");
}

TEST_F(StringExFormatTest, FormatsTextsAndNumbersInOrder)
{
    CStringEx str(L"old");
    str.Format(L"%s=%u;%S;%hs;%ls;%c;%I64d;%08X;100%%", L"name", 4000000000u, "narrow", "small", L"wide",
               L'z', -5000000000LL, 0xBEEF);
    EXPECT_STREQ(str.c_str(), L"name=4000000000;narrow;small;wide;z;-5000000000;0000BEEF;100%");
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExFormatTest, FormatsFractions)
{
    CStringEx str;
    str.Format(L"%.2f|%f", 1.5, 0.25);
    EXPECT_STREQ(str.c_str(), L"1.50|0.250000");
}

TEST_F(StringExFormatTest, FormatsTheGreatestFraction)
{
    CStringEx str;
    str.Format(L"%.3f", -1.7976931348623157e308);
    EXPECT_EQ(str.GetLength(), 1 + 309 + 1 + 3);
    EXPECT_EQ(BlockLength(str), 3u + 312 + 4 + 1);
}

TEST_F(StringExFormatTest, FormatsALongText)
{
    const std::wstring text(100'000, L'x');
    CStringEx str;
    str.Format(L"[%s]", text.c_str());
    EXPECT_EQ(std::wstring(str.c_str()), L"[" + text + L"]");
    EXPECT_EQ(BlockLength(str), 100'000u + 2 + 4 + 1);
}

TEST_F(StringExFormatTest, KeepsABlockThatIsLargeEnough)
{
    CStringEx str(std::wstring(100, L'x').c_str());
    const wchar_t* text = str.c_str();
    str.Format(L"%d", 5);
    EXPECT_EQ(str.c_str(), text);
    EXPECT_STREQ(str.c_str(), L"5");
}

TEST_F(StringExFormatTest, CutsOffWhatTheEstimateDoesNotCover)
{
    CStringEx str;
    // A width below zero means left-justified in 40; the estimate does not see it.
    str.Format(L"%*d", -40, 5);
    EXPECT_EQ(std::wstring(str.c_str()), L"5" + std::wstring(35, L' '));
    EXPECT_EQ(BlockLength(str), 37u);
}

// Wine's runtime gives a length that would fit for one.
TEST_F(StringExFormatTest, EndsAPaddedFieldThatIsCutOff)
{
    CStringEx str(std::wstring(300, L'o').c_str());
    str.Format(L"% .128e%-54c", 1.5, L'x');  // 189 characters, of which the estimate covers 186
    EXPECT_EQ(str.GetLength(), 186);
}

TEST_F(StringExFormatTest, StaysWithinABlockThatIsKeptForOneCharacterMore)
{
    // The estimate of 36 keeps the block of 35 characters and a terminator.
    CStringEx str(std::wstring(35, L'x').c_str());
    const wchar_t* text = str.c_str();
    str.Format(L"%*d", -40, 5);
    EXPECT_EQ(str.c_str(), text);
    EXPECT_EQ(std::wstring(str.c_str()), L"5" + std::wstring(34, L' '));
    EXPECT_EQ(BlockLength(str), 36u);
}

TEST_F(StringExFormatTest, DoesNothingWhileItIsLocked)
{
    CStringEx str(L"text");
    ASSERT_NE(str.GetBuffer(50), nullptr);
    str.Format(L"%d", 5);
    EXPECT_STREQ(str.c_str(), L"text");
    EXPECT_TRUE(IsLocked(str));
    str.ReleaseBuffer();
    str.Format(L"%d", 5);
    EXPECT_STREQ(str.c_str(), L"5");
}

TEST_F(StringExFormatTest, DoesNothingWithoutAnEstimate)
{
    CStringEx str(L"text");
    // The estimate runs over and is below zero.
    str.Format(L"%*d", INT_MAX, 5);
    EXPECT_STREQ(str.c_str(), L"text");
    EXPECT_FALSE(IsLocked(str));
}

TEST_F(StringExFormatTest, IsEmptyWithoutMemory)
{
    CStringEx str(L"text");
    {
        const CFailingHeap failing;
        str.Format(L"%d", 5);
    }
    EXPECT_EQ(str.GetLength(), 0);
}

}  // namespace
