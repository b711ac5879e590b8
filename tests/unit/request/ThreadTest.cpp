#include "request/Thread.h"

#include <gtest/gtest.h>

#include <process.h>

#include "support/ProcessResources.h"
#include "unit/request/ThreadScript.h"

namespace
{

using Qel::CThread;

BOOL WINAPI FindNoModule(DWORD, LPCWSTR, HMODULE*)
{
    return FALSE;
}

class ThreadTest : public testing::Test
{
protected:
    HANDLE Handle() const { return m_script.m_starts.at(0).hThread; }

    CThreadScript m_script;
};

TEST_F(ThreadTest, AsksForAPlainThreadThatRunsAtOnce)
{
    CTestThread thread;
    ASSERT_TRUE(thread.Start());
    ASSERT_EQ(m_script.m_starts.size(), 1u);
    const CThreadScript::StartCall& call = m_script.m_starts[0];
    EXPECT_EQ(call.pSecurity, nullptr);
    EXPECT_EQ(call.stackSize, 0u);
    EXPECT_EQ(call.flags, 0u);
    EXPECT_EQ(call.pObject, static_cast<CThread*>(&thread));
    ASSERT_TRUE(thread.m_running.Wait());
    EXPECT_NE(thread.m_dwWorkerId, GetCurrentThreadId());
    ASSERT_NE(call.pThreadId, nullptr);
    EXPECT_EQ(*call.pThreadId, thread.m_dwWorkerId) << "the identifier is kept while the worker runs";
    thread.m_go.Set();
    EXPECT_TRUE(thread.WaitThreadExit(60000, true));
    m_script.ExitCode();
    EXPECT_EQ(*call.pThreadId, 0u) << "the worker clears the identifier";
}

TEST_F(ThreadTest, EndsWithTheResultOfRun)
{
    size_t started = 0;
    for (const unsigned exitCode : {0u, 7u, 0x80004005u, 0xFFFFFFFFu})
    {
        CTestThread thread;
        thread.m_run = [exitCode] { return exitCode; };
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(thread.WaitThreadExit(60000, true));
        EXPECT_EQ(m_script.ExitCode(started++), exitCode);
    }
}

TEST_F(ThreadTest, EndsWithTheResultOfRunWhereItsModuleIsNotFound)
{
    const CImportPatch modules(GetModuleHandleW(nullptr), "GetModuleHandleExW", FindNoModule);
    CTestThread thread;
    thread.m_run = [] { return 7u; };
    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.WaitThreadExit(60000, true));
    EXPECT_EQ(m_script.ExitCode(), 7u);
}

TEST_F(ThreadTest, TellsWhetherAWorkerIsInsideIt)
{
    CTestThread thread;
    EXPECT_TRUE(thread.HasLeft());
    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.HasLeft()) << "from the start on, not only once Run has been reached";
    ASSERT_TRUE(thread.m_running.Wait());
    EXPECT_FALSE(thread.HasLeft());
    thread.m_go.Set();
    EXPECT_TRUE(thread.WaitThreadExit(60000, true));
    EXPECT_TRUE(thread.HasLeft());
}

TEST_F(ThreadTest, WorkerClosesItsOwnHandleOnce)
{
    DWORD dwWorkerId = 0;
    HANDLE hThread = nullptr;
    {
        CTestThread thread;
        ASSERT_TRUE(thread.Start());
        hThread = Handle();
        ASSERT_TRUE(thread.m_running.Wait());
        EXPECT_EQ(m_script.CountClosed(hThread), 0);
        thread.m_go.Set();
        m_script.ExitCode();
        dwWorkerId = thread.m_dwWorkerId;
        EXPECT_EQ(m_script.CountClosed(hThread, dwWorkerId), 1);
    }
    EXPECT_EQ(m_script.CountClosed(hThread), 1) << "the destructor has nothing left to close";
}

TEST_F(ThreadTest, CanBeStartedAgainAfterItsWorkerHasEnded)
{
    CTestThread thread;
    thread.m_run = [] { return 0u; };
    for (size_t i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(thread.WaitThreadExit(60000, true));
        m_script.ExitCode(i);
    }
    EXPECT_EQ(m_script.m_starts.size(), 3u);
}

TEST_F(ThreadTest, SaysThatNoThreadCouldBeCreated)
{
    m_script.m_bCanStart = false;
    {
        CTestThread thread;
        EXPECT_FALSE(thread.Start());
        EXPECT_TRUE(thread.HasLeft());
        EXPECT_TRUE(thread.WaitThreadExit(60000, true));
        m_script.m_bCanStart = true;
        EXPECT_TRUE(thread.Start()) << "a later start has its chance";
        thread.m_go.Set();
        EXPECT_TRUE(thread.WaitThreadExit(60000, true));
    }
    EXPECT_EQ(m_script.CountClosed(nullptr), 0);
}

// A thread that ends inside Run leaves its handle to the object.
TEST_F(ThreadTest, DestructorClosesAHandleThatTheWorkerHasLeftBehind)
{
    HANDLE hThread = nullptr;
    {
        CTestThread thread;
        thread.m_run = []() -> unsigned
        {
            _endthreadex(5);
            return 0;
        };
        ASSERT_TRUE(thread.Start());
        hThread = Handle();
        EXPECT_EQ(m_script.ExitCode(), 5u);
        EXPECT_TRUE(thread.WaitThreadExit(60000, true));
        EXPECT_EQ(m_script.CountClosed(hThread), 0);
    }
    EXPECT_EQ(m_script.CountClosed(hThread, GetCurrentThreadId()), 1);
}

class CSelfDeletingThread : public CThread
{
public:
    CSelfDeletingThread(CEvent& go, std::atomic<DWORD>& dwDeleter) : m_go(go), m_dwDeleter(dwDeleter)
    {
        SetAutoDelete(true);
    }
    ~CSelfDeletingThread() override { m_dwDeleter = GetCurrentThreadId(); }

    unsigned Run() override
    {
        m_go.Wait();
        return GetCurrentThreadId();
    }

private:
    CEvent& m_go;
    std::atomic<DWORD>& m_dwDeleter;
};

TEST_F(ThreadTest, DeletesItselfOnTheWorkerWhenAskedTo)
{
    CEvent go;
    std::atomic<DWORD> dwDeleter = 0;
    auto* pThread = new CSelfDeletingThread(go, dwDeleter);
    ASSERT_TRUE(pThread->Start());
    EXPECT_EQ(dwDeleter, 0u);
    go.Set();
    const DWORD dwWorkerId = m_script.ExitCode();
    EXPECT_EQ(dwDeleter, dwWorkerId);
    EXPECT_EQ(m_script.CountClosed(Handle()), 1)
        << "by the starter, since the object may be gone at any moment";
}

TEST_F(ThreadTest, HasRunAsItsFirstVirtualFunction)
{
    CTestThread thread;
    thread.m_run = [] { return 42u; };
    CThread* pThread = &thread;
    const auto* pSlots = *reinterpret_cast<void* const* const*>(pThread);
    EXPECT_EQ(reinterpret_cast<unsigned (*)(CThread*)>(pSlots[0])(pThread), 42u);
}

TEST_F(ThreadTest, KeepsNoHandleWhenItsWorkersEndQuickly)
{
    // Warm up: the runtime makes some of its own at the first threads.
    const auto run = [this](int threads)
    {
        CTestThread thread;
        thread.m_run = [] { return 0u; };
        for (int i = 0; i < threads; ++i)
        {
            ASSERT_TRUE(thread.Start());
            ASSERT_TRUE(thread.WaitThreadExit(60000, true));
            m_script.ExitCode(m_script.m_starts.size() - 1);
        }
    };
    run(5);
    const int before = CountHandles();
    const int started = static_cast<int>(m_script.m_starts.size());
    run(200);
    const int after = CountHandles();
    // The script holds one handle of its own for each thread.
    EXPECT_EQ(after - before, static_cast<int>(m_script.m_starts.size()) - started);
    for (const CThreadScript::StartCall& start : m_script.m_starts)
    {
        EXPECT_GE(m_script.CountClosed(start.hThread), 1);
    }
}

}  // namespace
