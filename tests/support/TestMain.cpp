// Entry point of every test program.
#include <gmock/gmock.h>

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

}  // namespace

int main(int argc, char** argv)
{
    CWatchdog watchdog;
    testing::InitGoogleMock(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new CWatchdogListener(watchdog));
    return RUN_ALL_TESTS();
}
