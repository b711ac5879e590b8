#include "support/HeapCheck.h"

#include <gtest/gtest.h>

namespace
{

class HeapCheckTest : public testing::Test
{
protected:
    HeapCheckTest() : m_hHeap(HeapCreate(0, 0, 0)), m_pBlock(static_cast<BYTE*>(HeapAlloc(m_hHeap, 0, 100)))
    {
    }
    ~HeapCheckTest() override { HeapDestroy(m_hHeap); }

    // The last byte of what the heap notes about the block.
    void Damage() { m_pBlock[-1] ^= 1; }
    void Mend() { Damage(); }

    const HANDLE m_hHeap;
    BYTE* const m_pBlock;
    const CHeapCheck m_check;
};

TEST_F(HeapCheckTest, HeapsInUseAreSound)
{
    EXPECT_TRUE(m_check.AreHeapsSound());
}

TEST_F(HeapCheckTest, DamageIsFound)
{
    Damage();
    EXPECT_FALSE(m_check.AreHeapsSound());
    Mend();
    EXPECT_TRUE(m_check.AreHeapsSound());
}

}  // namespace
