#include "base/TimeCounter.h"

#include <gtest/gtest.h>

#include "support/ImportPatch.h"

namespace
{

DWORD g_dwTick = 0;

DWORD WINAPI ScriptedGetTickCount()
{
    return g_dwTick;
}

class TimeCounterTest : public testing::Test
{
protected:
    TimeCounterTest() { g_dwTick = 1000; }

    CImportPatch m_patch{GetModuleHandleW(nullptr), "GetTickCount", ScriptedGetTickCount};
    CTimeCounter m_counter;
};

TEST_F(TimeCounterTest, CountsFromStart)
{
    m_counter.Start();
    EXPECT_EQ(m_counter.GetElapsed(), 0u);
    g_dwTick = 6001;
    EXPECT_EQ(m_counter.GetElapsed(), 5001u);
}

TEST_F(TimeCounterTest, StandsStillAfterStop)
{
    m_counter.Start();
    g_dwTick = 1250;
    m_counter.Stop();
    g_dwTick = 9000;
    EXPECT_EQ(m_counter.GetElapsed(), 250u);
    EXPECT_EQ(m_counter.GetElapsed(), 250u);
}

TEST_F(TimeCounterTest, BeginsAgainFromZeroAfterStopAndRestart)
{
    m_counter.Start();
    g_dwTick = 5000;
    m_counter.Stop();
    g_dwTick = 7000;
    m_counter.Restart();
    EXPECT_EQ(m_counter.GetElapsed(), 0u);
    g_dwTick = 7300;
    EXPECT_EQ(m_counter.GetElapsed(), 300u);
}

TEST_F(TimeCounterTest, RestartDoesNothingWhileItRuns)
{
    m_counter.Start();
    g_dwTick = 1500;
    m_counter.Restart();
    EXPECT_EQ(m_counter.GetElapsed(), 500u);
}

TEST_F(TimeCounterTest, StartEndsAStop)
{
    m_counter.Start();
    g_dwTick = 1500;
    m_counter.Stop();
    g_dwTick = 2000;
    m_counter.Start();
    g_dwTick = 2100;
    EXPECT_EQ(m_counter.GetElapsed(), 100u);
}

TEST_F(TimeCounterTest, ReadsZeroWhenTheTickCountHasWrapped)
{
    g_dwTick = 0xFFFFFF00;
    m_counter.Start();
    g_dwTick = 0x100;
    EXPECT_EQ(m_counter.GetElapsed(), 0u);
}

TEST_F(TimeCounterTest, CountsAStopAtTickZeroAsRunning)
{
    g_dwTick = 0;
    m_counter.Start();
    m_counter.Stop();
    g_dwTick = 700;
    EXPECT_EQ(m_counter.GetElapsed(), 700u);
}

}  // namespace
