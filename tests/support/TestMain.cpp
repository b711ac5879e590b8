// Entry point of every test program.
#include <gmock/gmock.h>

#include "support/HeapCheck.h"
#include "support/Watchdog.h"

namespace
{

class CWatchdogListener : public testing::EmptyTestEventListener
{
public:
    explicit CWatchdogListener(CWatchdog& watchdog) : m_watchdog(watchdog) {}

    void OnTestStart(const testing::TestInfo& info) override
    {
        m_watchdog.Start(info.test_suite_name(), info.name());
    }
    void OnTestEnd(const testing::TestInfo&) override { m_watchdog.Stop(); }

private:
    CWatchdog& m_watchdog;
};

class CHeapCheckListener : public testing::EmptyTestEventListener
{
public:
    explicit CHeapCheckListener(const CHeapCheck& check) : m_check(check) {}

    void OnTestEnd(const testing::TestInfo&) override
    {
        EXPECT_TRUE(m_check.AreHeapsSound()) << "a heap of this process is damaged";
    }

private:
    const CHeapCheck& m_check;
};

}  // namespace

int main(int argc, char** argv)
{
    CWatchdog watchdog;
    const CHeapCheck heapCheck;
    testing::InitGoogleMock(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new CWatchdogListener(watchdog));
    if (heapCheck.IsOn())
    {
        testing::UnitTest::GetInstance()->listeners().Append(new CHeapCheckListener(heapCheck));
    }
    return RUN_ALL_TESTS();
}
