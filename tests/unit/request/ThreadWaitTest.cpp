#include "unit/request/ThreadWaitTest.h"

#include <gmock/gmock.h>

#include <process.h>

namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;

TEST_F(ThreadWaitTest, ReturnsAtOnceWithoutAWorker)
{
    EXPECT_TRUE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "cursor old"));
}

TEST_F(ThreadWaitTest, ReturnsAtOnceWhenTheWorkerHasEnded)
{
    m_thread.m_go.Set();
    StartWorker();
    WaitForSingleObject(m_script.m_starts[0].hDuplicate, CEvent::kPatienceMs);
    Queue(WM_QUIT);
    EXPECT_TRUE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "cursor old"));
}

TEST_F(ThreadWaitTest, WaitsUntilTheWorkerHasEnded)
{
    StartWorker();
    EXPECT_TRUE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "wait", "cursor old"));
    EXPECT_TRUE(m_thread.HasLeft());
}

TEST_F(ThreadWaitTest, GoesBackToTheQueueWhenInputArrives)
{
    StartWorker();
    Queue(WM_PAINT);
    Queue(WM_USER);
    QueuePause();
    Queue(WM_SIZE);
    EXPECT_TRUE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "dispatch 0xF", "dispatch 0x400", "wait", "dispatch 0x5",
                                   "wait", "cursor old"));
}

class ThreadFailedWaitTest : public ThreadWaitTest, public testing::WithParamInterface<DWORD>
{
};

TEST_P(ThreadFailedWaitTest, EndsButNotBeforeTheWorkerHasLeft)
{
    m_dwWaitResult = GetParam();
    StartWorker();
    EXPECT_TRUE(Wait());
    EXPECT_TRUE(m_thread.HasLeft());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "wait", "cursor old"));
}

INSTANTIATE_TEST_SUITE_P(Results, ThreadFailedWaitTest,
                         testing::Values(DWORD{WAIT_FAILED}, DWORD{WAIT_TIMEOUT}, DWORD{WAIT_ABANDONED_0}));

TEST_F(ThreadWaitTest, KillsTheWorkerOnAQuitMessageAndPostsItAgain)
{
    StartWorker();
    Queue(WM_QUIT);
    Queue(WM_PAINT);
    EXPECT_FALSE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "trace 8 quit process, kill the thread!!!,\n", "exit code?",
                                   "terminate 0xFFFFFFFD", "cursor old", "quit 0"));
    EXPECT_TRUE(m_thread.HasLeft()) << "a killed worker counts as gone";
    EXPECT_EQ(m_queue.size(), 1u) << "what is behind the quit message stays in the queue";
    EXPECT_EQ(m_script.ExitCode(), 0xFFFFFFFDu);
}

TEST_F(ThreadWaitTest, KillsTheWorkerOnAMessageAfterTheTimeout)
{
    StartWorker();
    Queue(WM_PAINT, 60001);
    EXPECT_FALSE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "trace 8 wait the thread time out, kill the thread!!!,\n",
                                   "exit code?", "terminate 0xFFFFFFFE", "cursor old"));
    EXPECT_TRUE(m_thread.HasLeft());
    EXPECT_EQ(m_script.ExitCode(), 0xFFFFFFFEu);
}

int g_sleeps = 0;

void WINAPI CountSleep(DWORD dwMilliseconds)
{
    EXPECT_EQ(dwMilliseconds, 1u);
    ++g_sleeps;
}

// Nothing wakes such a waiter when the worker ends, or makes it see a message.
TEST_F(ThreadWaitTest, KillsAWorkerThatStaysWhenTheWaitFails)
{
    m_thread.m_run = []
    {
        WaitForSingleObject(GetCurrentProcess(), INFINITE);
        return 0u;
    };
    m_dwWaitResult = WAIT_FAILED;
    g_sleeps = 0;
    StartWorker();
    const CImportPatch sleep(GetModuleHandleW(nullptr), "Sleep", CountSleep);
    EXPECT_FALSE(Wait());
    EXPECT_THAT(m_log,
                ElementsAre("cursor wait", "wait", "trace 8 wait the thread time out, kill the thread!!!,\n",
                            "exit code?", "terminate 0xFFFFFFFE", "cursor old"));
    EXPECT_EQ(g_sleeps, 10000);
    EXPECT_TRUE(m_thread.HasLeft());
    EXPECT_EQ(m_script.ExitCode(), 0xFFFFFFFEu);
}

TEST_F(ThreadWaitTest, CountsOutAWorkerThatSomebodyElseHasEnded)
{
    StartWorker();
    TerminateThread(m_script.m_starts.at(0).hDuplicate, 7);
    EXPECT_TRUE(Wait());
    EXPECT_TRUE(m_thread.HasLeft());
    EXPECT_EQ(m_script.ExitCode(), 7u);
}

TEST_F(ThreadWaitTest, QuitMessageComesBeforeTheTimeout)
{
    StartWorker();
    Queue(WM_QUIT, 60001);
    EXPECT_FALSE(Wait());
    EXPECT_EQ(m_script.ExitCode(), 0xFFFFFFFDu);
}

TEST_F(ThreadWaitTest, TimesOutOnAMessageThatTheFilterWouldSwallow)
{
    StartWorker();
    Queue(WM_TIMER, 60001);
    EXPECT_FALSE(Wait());
    EXPECT_EQ(m_script.ExitCode(), 0xFFFFFFFEu);
}

TEST_F(ThreadWaitTest, NeverClosesTheHandleOfAKilledWorker)
{
    HANDLE hThread = nullptr;
    {
        CTestThread thread;
        ASSERT_TRUE(thread.Start());
        ASSERT_TRUE(thread.m_running.Wait());
        hThread = m_script.m_starts[0].hThread;
        Queue(WM_QUIT);
        EXPECT_FALSE(thread.WaitThreadExit(60000, true));
    }
    EXPECT_EQ(m_script.CountClosed(hThread), 0);
    DWORD dwFlags = 0;
    EXPECT_TRUE(GetHandleInformation(hThread, &dwFlags));
    CloseHandle(hThread);
}

TEST_F(ThreadWaitTest, LeavesAWorkerThatHasEndedInsideRunAlone)
{
    m_thread.m_run = []() -> unsigned
    {
        _endthreadex(5);
        return 0;
    };
    StartWorker();
    EXPECT_EQ(m_script.ExitCode(), 5u);
    m_log.clear();
    Queue(WM_QUIT);
    EXPECT_FALSE(Wait());
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "trace 8 quit process, kill the thread!!!,\n", "exit code?",
                                   "cursor old", "quit 0"));
    Queue(WM_PAINT, 60001);
    m_dwTick = 0;
    m_log.clear();
    EXPECT_FALSE(Wait()) << "the handle stays with the object";
    EXPECT_THAT(m_log, ElementsAre("cursor wait", "trace 8 wait the thread time out, kill the thread!!!,\n",
                                   "exit code?", "cursor old"));
}

TEST_F(ThreadWaitTest, MeasuresTheTimeoutAsASignedDifferenceOfTicks)
{
    struct Row
    {
        const char* label;
        DWORD dwStart;
        DWORD dwTimeout;
        DWORD dwTick;
        bool bKilled;
    };
    const Row rows[] = {
        {"at once", 5000, 60000, 5000, false},
        {"exactly the time-out", 5000, 60000, 65000, false},
        {"one more", 5000, 60000, 65001, true},
        {"ticks wrap, within", 0xFFFFFF00, 60000, 60000 - 0x100, false},
        {"ticks wrap, beyond", 0xFFFFFF00, 60000, 60001 - 0x100, true},
        {"difference beyond the sign", 0, 60000, 0x80000000, false},
        {"largest difference", 0, 60000, 0x7FFFFFFF, true},
        {"another time-out", 0, 10, 11, true},
        {"another time-out, exactly", 0, 10, 10, false},
        {"no time-out", 0, 0, 0x7FFFFFFF, false},
    };
    for (const Row& row : rows)
    {
        CThreadScript::StartCall call = {};
        {
            CTestThread thread;
            m_script.m_starts.clear();
            m_dwTick = row.dwStart;
            m_queue.clear();
            Queue(WM_PAINT, row.dwTick);
            m_log.clear();
            thread.m_run = [this]
            {
                m_thread.m_go.Wait();  // the scripted wait opens this one
                return 0u;
            };
            ResetEvent(m_thread.m_go.Get());
            ASSERT_TRUE(thread.Start());
            ASSERT_TRUE(thread.m_running.Wait());
            EXPECT_EQ(thread.WaitThreadExit(row.dwTimeout, true), !row.bKilled) << row.label;
            EXPECT_EQ(Dispatched().size(), row.bKilled ? 0u : 1u) << row.label;
            call = m_script.m_starts.at(0);
        }
        WaitForSingleObject(call.hDuplicate, CEvent::kPatienceMs);
        CloseHandle(call.hDuplicate);
        if (row.bKilled)
        {
            CloseHandle(call.hThread);
        }
    }
    m_script.m_starts.clear();
}

TEST_F(ThreadWaitTest, NeverTimesOutWithoutAMessage)
{
    StartWorker();
    // Input that turns out to be nothing wakes the wait again and again, while the clock runs far ahead.
    m_dwTicksPerWait = 50000;
    for (int i = 0; i < 100; ++i)
    {
        QueuePause();
    }
    EXPECT_TRUE(Wait());
    EXPECT_EQ(m_log.size(), 2u + 101u);
    EXPECT_EQ(m_dwTick, 101u * 50000u);
}

TEST_F(ThreadWaitTest, TimesOutAtTheFirstMessageAfterALongSilence)
{
    StartWorker();
    QueuePause();
    Queue(WM_PAINT, 600000);
    EXPECT_FALSE(Wait());
    EXPECT_EQ(m_script.ExitCode(), 0xFFFFFFFEu);
}

TEST_F(ThreadWaitTest, SwallowsUserInputAndDispatchesEverythingElse)
{
    struct Row
    {
        const char* label;
        UINT message;
        bool bDispatched;
    };
    const Row rows[] = {
        {"WM_NULL", 0x000, true},
        {"WM_PAINT", 0x00F, true},
        {"before the keyboard", 0x0FF, true},
        {"first of the keyboard", 0x100, false},
        {"WM_CHAR", 0x102, false},
        {"last of the keyboard", 0x108, false},
        {"behind the keyboard", 0x109, true},
        {"before WM_COMMAND", 0x110, true},
        {"WM_COMMAND", 0x111, false},
        {"WM_SYSCOMMAND", 0x112, true},
        {"WM_TIMER", 0x113, false},
        {"behind WM_TIMER", 0x114, true},
        {"before the mouse", 0x1FF, true},
        {"first of the mouse", 0x200, false},
        {"WM_LBUTTONDOWN", 0x201, false},
        {"last of the mouse", 0x20A, false},
        {"behind the mouse", 0x20B, true},
        {"WM_USER", 0x400, true},
        {"a registered message", 0xC123, true},
    };
    StartWorker();
    std::vector<std::string> expected;
    for (const Row& row : rows)
    {
        Queue(row.message);
        if (row.bDispatched)
        {
            expected.push_back("dispatch " + Hex(row.message));
        }
    }
    EXPECT_TRUE(Wait());
    EXPECT_THAT(Dispatched(), ElementsAreArray(expected));
}

TEST_F(ThreadWaitTest, DispatchesUserInputWithoutTheFilter)
{
    StartWorker();
    std::vector<std::string> expected;
    for (const UINT message : {0x100u, 0x101u, 0x111u, 0x113u, 0x200u, 0x20Au, 0xFu})
    {
        Queue(message);
        expected.push_back("dispatch " + Hex(message));
    }
    EXPECT_TRUE(Wait(60000, false));
    EXPECT_THAT(Dispatched(), ElementsAreArray(expected));
}

TEST_F(ThreadWaitTest, TranslatesNoKeystrokes)
{
    EXPECT_FALSE(CImportPatch::IsImported(GetModuleHandleW(nullptr), "TranslateMessage"));
}

// The same with the platform's own queue.
TEST(ThreadRealWaitTest, HandsAQuitMessageOnToTheOwnersLoop)
{
    CThreadScript script;
    CTestThread thread;
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(thread.m_running.Wait());
    PostQuitMessage(3);
    EXPECT_FALSE(thread.WaitThreadExit(60000, true));
    EXPECT_EQ(script.ExitCode(), 0xFFFFFFFDu);
    MSG msg = {};
    EXPECT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_QUIT));
    EXPECT_EQ(msg.wParam, 0u);
    CloseHandle(script.m_starts[0].hThread);
}

}  // namespace
