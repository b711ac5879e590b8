// The moments at which owner and worker could hurt each other, held open by the test.
#include "request/Thread.h"

#include <gtest/gtest.h>

#include "unit/request/ThreadScript.h"

namespace
{

using LockFunction = void WINAPI(CRITICAL_SECTION*);
using SleepFunction = void WINAPI(DWORD);
using SwitchFunction = BOOL WINAPI();

class ThreadHazardTest : public testing::Test
{
protected:
    enum Hold
    {
        HOLD_NOWHERE,
        HOLD_BEFORE_LEAVING,  // the worker still owns the lock
        HOLD_AFTER_LEAVING,   // the worker is inside the call, the lock is free
    };

    ThreadHazardTest()
    {
        s_pTest = this;
        s_sleeps = 0;
        s_bSkipSleeps = false;
        s_pfnEnter = m_enter.Original<LockFunction>();
        s_pfnLeave = m_leave.Original<LockFunction>();
        s_pfnSleep = m_sleep.Original<SleepFunction>();
        s_pfnSwitch = m_switch.Original<SwitchFunction>();
        m_thread.m_run = [] { return 0u; };
    }
    ~ThreadHazardTest() override
    {
        m_release.Set();
        m_script.ExitCode();
        s_pTest = nullptr;
    }

    // How often the calling thread has entered the lock and not left it.
    int& Locks() { return GetCurrentThreadId() == m_dwOwnerId ? m_locksOfOwner : m_locksOfWorker; }
    bool IsWorker() const { return GetCurrentThreadId() == m_thread.m_dwWorkerId; }

    // Starts the worker and waits until it is held in the call with which it leaves the lock, its handle
    // closed and the field cleared.
    void StartAndHold(Hold hold)
    {
        m_hold = hold;
        ASSERT_TRUE(m_thread.Start());
        ASSERT_TRUE(m_held.Wait());
    }

    static void WINAPI ScriptedEnter(CRITICAL_SECTION* pcs)
    {
        ThreadHazardTest* pTest = s_pTest;
        if (pTest != nullptr && !TryEnterCriticalSection(pcs))
        {
            if (GetCurrentThreadId() == pTest->m_dwOwnerId)
            {
                pTest->m_release.Set();
            }
            s_pfnEnter(pcs);
        }
        else if (pTest == nullptr)
        {
            s_pfnEnter(pcs);
        }
        if (pTest != nullptr)
        {
            ++pTest->Locks();
        }
    }

    static void WINAPI ScriptedLeave(CRITICAL_SECTION* pcs)
    {
        ThreadHazardTest* pTest = s_pTest;
        // Behind Run it leaves the lock twice.
        const bool bLast = pTest != nullptr && pTest->IsWorker() && ++pTest->m_cLeaves == 2;
        if (bLast && pTest->m_hold == HOLD_BEFORE_LEAVING)
        {
            pTest->HoldWorker();
        }
        if (pTest != nullptr)
        {
            --pTest->Locks();
        }
        s_pfnLeave(pcs);
        if (bLast && pTest->m_hold == HOLD_AFTER_LEAVING)
        {
            pTest->HoldWorker();
        }
    }

    // The owner may sleep or give way while it waits for the worker to get out.
    static void ReleaseWorker()
    {
        ThreadHazardTest* pTest = s_pTest;
        if (pTest != nullptr && GetCurrentThreadId() == pTest->m_dwOwnerId)
        {
            pTest->m_release.Set();
        }
    }
    static void WINAPI ScriptedSleep(DWORD dwMilliseconds)
    {
        ReleaseWorker();
        ++s_sleeps;
        if (!s_bSkipSleeps)
        {
            s_pfnSleep(dwMilliseconds);
        }
    }
    static BOOL WINAPI ScriptedSwitch()
    {
        ReleaseWorker();
        ++s_switches;
        return s_pfnSwitch();
    }

    // A clock of milliseconds, one later each time that it is asked.
    static BOOL WINAPI ScriptedFrequency(LARGE_INTEGER* pFrequency)
    {
        pFrequency->QuadPart = 1000;
        return TRUE;
    }
    static BOOL WINAPI ScriptedCounter(LARGE_INTEGER* pCount)
    {
        pCount->QuadPart = s_milliseconds++;
        return TRUE;
    }
    static BOOL WINAPI ScriptedDuplicate(HANDLE hFrom, HANDLE hSource, HANDLE hTo, LPHANDLE phTarget,
                                         DWORD dwAccess, BOOL bInherit, DWORD dwOptions)
    {
        ThreadHazardTest* pTest = s_pTest;
        pTest->m_locksAtDuplication = pTest->Locks();
        EXPECT_FALSE(bInherit) << "a program that the host starts would keep it";
        const BOOL bDone = s_pfnDuplicate(hFrom, hSource, hTo, phTarget, dwAccess, bInherit, dwOptions);
        pTest->m_thread.m_go.Set();
        return bDone;
    }

    void HoldWorker()
    {
        m_held.Set();
        m_release.Wait();
        m_bOut = true;
    }

    static inline std::atomic<ThreadHazardTest*> s_pTest = nullptr;
    static inline LockFunction* s_pfnEnter = nullptr;
    static inline LockFunction* s_pfnLeave = nullptr;
    static inline SleepFunction* s_pfnSleep = nullptr;
    static inline SwitchFunction* s_pfnSwitch = nullptr;
    static inline decltype(&DuplicateHandle) s_pfnDuplicate = nullptr;
    static inline std::atomic<int> s_switches = 0;
    static inline std::atomic<LONGLONG> s_milliseconds = 0;
    static inline std::atomic<int> s_sleeps = 0;
    static inline std::atomic<bool> s_bSkipSleeps = false;

    const DWORD m_dwOwnerId = GetCurrentThreadId();
    std::atomic<Hold> m_hold = HOLD_NOWHERE;
    std::atomic<int> m_cLeaves = 0;
    std::atomic<bool> m_bOut = false;
    int m_locksOfOwner = 0;
    int m_locksOfWorker = 0;
    int m_locksAtDuplication = 0;
    int m_locksAtClose = 0;
    CEvent m_go;
    CEvent m_held;
    CEvent m_release;
    CThreadScript m_script;
    CTestThread m_thread;
    CImportPatch m_enter{GetModuleHandleW(nullptr), "EnterCriticalSection", ScriptedEnter};
    CImportPatch m_leave{GetModuleHandleW(nullptr), "LeaveCriticalSection", ScriptedLeave};
    CImportPatch m_sleep{GetModuleHandleW(nullptr), "Sleep", ScriptedSleep};
    CImportPatch m_switch{GetModuleHandleW(nullptr), "SwitchToThread", ScriptedSwitch};
};

TEST_F(ThreadHazardTest, WaitsForAWorkerThatIsAboutToLeaveTheLock)
{
    StartAndHold(HOLD_BEFORE_LEAVING);
    EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
    EXPECT_TRUE(m_bOut) << "the owner went on while the worker still held the lock";
    EXPECT_TRUE(m_thread.HasLeft());
}

TEST_F(ThreadHazardTest, WaitsForAWorkerThatIsStillInsideTheCallThatLeavesTheLock)
{
    StartAndHold(HOLD_AFTER_LEAVING);
    EXPECT_FALSE(m_thread.HasLeft());
    EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
    EXPECT_TRUE(m_bOut) << "the owner went on while the worker still was inside";
    EXPECT_TRUE(m_thread.HasLeft());
}

// It never says that it has left, and its handle is closed already.
TEST_F(ThreadHazardTest, DoesNotWaitForEverForAWorkerThatWasEndedOnItsWayOut)
{
    StartAndHold(HOLD_AFTER_LEAVING);
    s_bSkipSleeps = true;
    TerminateThread(m_script.m_starts.at(0).hDuplicate, 7);
    ASSERT_EQ(m_script.ExitCode(), 7u);
    EXPECT_FALSE(m_thread.HasLeft());
    EXPECT_FALSE(m_thread.WaitThreadExit(60000, true));
    EXPECT_EQ(s_sleeps, 10000);
    EXPECT_TRUE(m_thread.HasLeft());
}

// The worker may close it at any moment, and somebody else get its number.
TEST_F(ThreadHazardTest, DuplicatesTheHandleUnderTheLock)
{
    m_thread.m_run = [this]
    {
        m_thread.m_go.Wait();
        return 0u;
    };
    ASSERT_TRUE(m_thread.Start());
    {
        const CImportPatch patch(GetModuleHandleW(nullptr), "DuplicateHandle", ScriptedDuplicate);
        s_pfnDuplicate = patch.Original<decltype(DuplicateHandle)>();
        EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
    }
    EXPECT_EQ(m_locksAtDuplication, 1);
}

// The owner may be about to duplicate it.
TEST_F(ThreadHazardTest, ClosesTheHandleUnderTheLock)
{
    m_script.m_onClosed = [this](HANDLE handle)
    { m_locksAtClose += handle == m_script.m_starts.at(0).hThread ? Locks() : 0; };
    m_thread.m_run = [this]
    {
        m_thread.m_go.Wait();
        return 0u;
    };
    ASSERT_TRUE(m_thread.Start());
    m_thread.m_go.Set();
    EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
    m_script.ExitCode();
    EXPECT_EQ(m_locksAtClose, 1);
    m_script.m_onClosed = nullptr;
}

TEST_F(ThreadHazardTest, GivesAWorkerOnItsWayOutAMoment)
{
    StartAndHold(HOLD_AFTER_LEAVING);
    // Giving way lets the worker go; on a busy machine it may take longer than one moment.
    while (!m_thread.AwaitLeaveBriefly())
    {
    }
    EXPECT_TRUE(m_bOut);
    EXPECT_EQ(s_sleeps, 0) << "the caller of a send does not sleep";
}

TEST_F(ThreadHazardTest, WaitsTwoMillisecondsForAWorkerThatDoesNotLeave)
{
    m_thread.m_run = [this]
    {
        m_held.Set();
        m_thread.m_go.Wait();
        return 0u;
    };
    ASSERT_TRUE(m_thread.Start());
    ASSERT_TRUE(m_held.Wait());
    {
        const CImportPatch frequency(GetModuleHandleW(nullptr), "QueryPerformanceFrequency",
                                     ScriptedFrequency);
        const CImportPatch counter(GetModuleHandleW(nullptr), "QueryPerformanceCounter", ScriptedCounter);
        s_milliseconds = 1000;
        s_switches = 0;
        EXPECT_FALSE(m_thread.AwaitLeaveBriefly());
    }
    EXPECT_EQ(s_switches, 2);
    m_thread.m_go.Set();
    EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
}

// The starter holds no lock that the worker needs: it may run to its end before the call that started it has
// returned the handle.
TEST_F(ThreadHazardTest, WorkerMayBeFasterThanItsStarter)
{
    DWORD dwWaited = WAIT_FAILED;
    m_script.m_onStarted = [&](HANDLE hThread)
    { dwWaited = WaitForSingleObject(hThread, CEvent::kPatienceMs); };
    m_script.m_onClosed = [this](HANDLE) { m_locksAtClose = Locks(); };
    ASSERT_TRUE(m_thread.Start());
    m_script.m_onClosed = nullptr;
    EXPECT_EQ(m_locksAtClose, 1) << "the handle is looked after under the lock";
    EXPECT_EQ(dwWaited, WAIT_OBJECT_0) << "the worker waited for its starter";
    EXPECT_TRUE(m_thread.HasLeft());
    EXPECT_EQ(m_script.CountClosed(m_script.m_starts[0].hThread, m_dwOwnerId), 1);
    EXPECT_EQ(*m_script.m_starts[0].pThreadId, 0u);
    EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
    EXPECT_EQ(m_script.CountClosed(m_script.m_starts[0].hThread), 1);
}

// The starter finds a worker that has dropped its handle but not yet left.
TEST_F(ThreadHazardTest, WorkerMayBeLeavingWhenItsStarterHasTheHandle)
{
    m_script.m_onStarted = [this](HANDLE)
    {
        m_hold = HOLD_AFTER_LEAVING;
        m_go.Set();
        EXPECT_TRUE(m_held.Wait());
    };
    m_thread.m_run = [this]
    {
        m_go.Wait();
        return 0u;
    };
    ASSERT_TRUE(m_thread.Start());
    EXPECT_EQ(m_script.CountClosed(m_script.m_starts[0].hThread, m_dwOwnerId), 1);
    EXPECT_EQ(*m_script.m_starts[0].pThreadId, 0u);
    EXPECT_TRUE(m_thread.WaitThreadExit(60000, true));
    EXPECT_EQ(m_script.CountClosed(m_script.m_starts[0].hThread), 1);
}

}  // namespace
