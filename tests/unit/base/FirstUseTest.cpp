#include "base/FirstUse.h"

#include <gtest/gtest.h>

#include <list>

#include "support/SideThread.h"

namespace
{

std::atomic<int> g_cExpected{0};  // threads that making waits for
std::atomic<int> g_cMade{0};
std::atomic<int> g_cDestroyed{0};

struct Counted
{
    explicit Counted(int argument) : value(argument)
    {
        ++g_cMade;
        while (g_cExpected > 0)
        {
            SwitchToThread();
        }
    }
    ~Counted() { ++g_cDestroyed; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    int value;
};

class FirstUseTest : public testing::Test
{
protected:
    FirstUseTest()
    {
        g_cMade = 0;
        g_cDestroyed = 0;
    }
};

TEST_F(FirstUseTest, MakesOneValueFromTheFirstArguments)
{
    CFirstUse<Counted> first;
    EXPECT_EQ(g_cMade, 0);
    const Counted& value = first.Get(7);
    EXPECT_EQ(value.value, 7);
    EXPECT_EQ(&first.Get(8), &value);
    EXPECT_EQ(value.value, 7);
    EXPECT_EQ(g_cMade, 1);
}

TEST_F(FirstUseTest, DestroysWhatItHasMade)
{
    {
        CFirstUse<Counted> first;
        CFirstUse<Counted> unused;
        first.Get(1);
        EXPECT_EQ(g_cDestroyed, 0);
    }
    EXPECT_EQ(g_cDestroyed, 1);
}

TEST_F(FirstUseTest, GivesAllThreadsTheSameFinishedValue)
{
    constexpr int kThreads = 8;
    CFirstUse<Counted> first;
    std::atomic<int> cRight{0};
    g_cExpected = kThreads;
    {
        std::list<CSideThread> threads;
        for (int i = 0; i < kThreads; ++i)
        {
            threads.emplace_back(
                [&]
                {
                    --g_cExpected;
                    cRight += first.Get(5).value == 5;
                });
        }
    }
    EXPECT_EQ(cRight, kThreads);
    EXPECT_EQ(g_cMade, 1);
}

}  // namespace
