// The mark that tells whether Run executes. Nobody reads it; it is looked for where the object keeps it,
// behind the handle, the identifier, the lock and the flag of self-deletion.
#include <gmock/gmock.h>

#include <cstddef>
#include <cstring>

#include "unit/request/ThreadScript.h"

namespace
{

struct ThreadLayout
{
    void* pSlots;
    HANDLE hThread;
    unsigned nThreadId;
    CRITICAL_SECTION cs;
    unsigned bAutoDelete;
    LONG bStopped;
};

LONG MarkOf(const Qel::CThread& thread)
{
    LONG bStopped = -1;
    std::memcpy(&bStopped, reinterpret_cast<const char*>(&thread) + offsetof(ThreadLayout, bStopped),
                sizeof(bStopped));
    return bStopped;
}

TEST(ThreadStoppedTest, IsClearedWhileRunExecutesAndSetBeforeTheHandleIsDropped)
{
    CThreadScript script;
    CTestThread thread;
    LONG bInRun = -1;
    LONG bAtClose = -1;
    thread.m_run = [&]
    {
        bInRun = MarkOf(thread);
        thread.m_go.Wait();
        return 0u;
    };
    script.m_onClosed = [&](HANDLE hClosed)
    {
        if (hClosed == script.m_starts.at(0).hThread)
        {
            bAtClose = MarkOf(thread);
        }
    };
    EXPECT_EQ(MarkOf(thread), 1) << "before the first start";
    ASSERT_TRUE(thread.Start());
    thread.m_go.Set();
    EXPECT_TRUE(thread.WaitThreadExit(60000, true));
    script.ExitCode();
    EXPECT_EQ(bInRun, 0);
    EXPECT_EQ(bAtClose, 1);
    EXPECT_EQ(MarkOf(thread), 1) << "after the end";
}

}  // namespace
