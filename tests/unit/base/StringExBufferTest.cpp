#include <gtest/gtest.h>

#include <cwchar>

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"
#include "unit/base/StringBlock.h"

namespace
{

class StringExBufferTest : public testing::Test
{
protected:
    ~StringExBufferTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

struct BufferRow
{
    const char* label;
    int minLength;
    bool keepsBlock;
    size_t block;
};

TEST_F(StringExBufferTest, GrowsOnlyForMoreThanOneCharacterMoreThanTheText)
{
    const BufferRow rows[] = {
        {"nothing", 0, true, 4},  {"below zero", -1, true, 4}, {"the text", 3, true, 4},
        {"one more", 4, true, 4}, {"two more", 5, false, 6},   {"many more", 100, false, 101},
    };
    for (const BufferRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        CStringEx str(L"abc");
        const wchar_t* text = str.c_str();
        wchar_t* buffer = str.GetBuffer(row.minLength);
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(buffer, str.c_str());
        EXPECT_EQ(buffer == text, row.keepsBlock);
        EXPECT_EQ(BlockLength(str), row.block);
        EXPECT_STREQ(buffer, L"abc");
        for (size_t index = 3; index < row.block; ++index)
        {
            EXPECT_EQ(buffer[index], L'\0') << "index " << index;
        }
    }
}

TEST_F(StringExBufferTest, MeasuresTheTextNotTheBlock)
{
    CStringEx str(L"abcdef");
    str.Delete(1, 10);
    ASSERT_EQ(BlockLength(str), 7u);
    ASSERT_NE(str.GetBuffer(3), nullptr);
    EXPECT_EQ(BlockLength(str), 4u);
    EXPECT_STREQ(str.c_str(), L"a");
}

TEST_F(StringExBufferTest, MakesTheFirstBlock)
{
    CStringEx str;
    wchar_t* buffer = str.GetBuffer(2);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(BlockLength(str), 3u);
    std::wmemcpy(buffer, L"xy", 3);
    str.ReleaseBuffer();
    EXPECT_STREQ(str.c_str(), L"xy");
}

TEST_F(StringExBufferTest, MakesNoBlockForOneCharacter)
{
    CStringEx str;
    EXPECT_EQ(str.GetBuffer(1), nullptr);
    EXPECT_EQ(BlockLength(str), 0u);
    // The lock is taken all the same.
    EXPECT_EQ(str.GetBuffer(10), nullptr);
    str.ReleaseBuffer();
    wchar_t* buffer = str.GetBuffer(10);
    ASSERT_NE(buffer, nullptr);
    buffer[0] = L'\0';
}

TEST_F(StringExBufferTest, IsRefusedWhileItIsLocked)
{
    CStringEx str(L"abc");
    ASSERT_NE(str.GetBuffer(10), nullptr);
    const wchar_t* text = str.c_str();
    EXPECT_EQ(str.GetBuffer(1), nullptr);
    EXPECT_EQ(str.GetBuffer(100), nullptr);
    EXPECT_EQ(str.c_str(), text);
    str.ReleaseBuffer();
    EXPECT_EQ(str.GetBuffer(1), text);
}

TEST_F(StringExBufferTest, ReleasingTogglesTheLock)
{
    CStringEx str(L"abc");
    str.ReleaseBuffer();
    EXPECT_EQ(str.GetBuffer(1), nullptr);
    str.ReleaseBuffer();
    EXPECT_NE(str.GetBuffer(1), nullptr);
}

TEST_F(StringExBufferTest, IsEmptyWithoutMemory)
{
    CStringEx str(L"abc");
    wchar_t* buffer = nullptr;
    {
        const CFailingHeap failing;
        buffer = str.GetBuffer(10);
    }
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(str.GetLength(), 0);
    EXPECT_EQ(BlockLength(str), 0u);
    EXPECT_TRUE(str.GetBuffer(10) == nullptr) << "the lock is taken all the same";
    str.ReleaseBuffer();
    buffer = str.GetBuffer(10);
    ASSERT_NE(buffer, nullptr);
    buffer[0] = L'\0';
}

}  // namespace
