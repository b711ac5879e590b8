// The end of a worker and the unloading of the module, held open at the moments that could hurt.
#include <gtest/gtest.h>

#include "module/com/ServerModule.h"
#include "support/Hold.h"
#include "support/ProcessResources.h"
#include "support/ScriptedWinInet.h"
#include "unit/request/ThreadScript.h"

namespace
{

constexpr wchar_t kModuleName[] = L"kvHttp.dll";

CEvent* g_pHeld = nullptr;
CEvent* g_pGo = nullptr;
std::atomic<bool> g_bOut = false;

[[noreturn]] void WINAPI HoldBeforeTheEnd(HMODULE hModule, DWORD dwExitCode)
{
    g_pHeld->Set();
    g_pGo->Wait();
    FreeLibraryAndExitThread(hModule, dwExitCode);
}

// The platform under a module that is unloaded by the test.
struct Platform
{
    explicit Platform(HMODULE hModule) : threads(hModule), imports(hModule) { winInet.Attach(imports); }

    void Forget()
    {
        threads.Forget();
        imports.Forget();
    }

    CJournal journal;
    CScriptedWinInet winInet{journal};
    CThreadScript threads;
    CImportPatches imports;
};

class WorkerUnloadTest : public testing::Test
{
protected:
    WorkerUnloadTest()
    {
        g_pHeld = &m_held;
        g_pGo = &m_go;
        g_bOut = false;
    }

    CEvent m_held;
    CEvent m_go;
};

TEST_F(WorkerUnloadTest, ModuleStaysUntilItsLastWorkerHasEnded)
{
#if defined(_MSC_VER) || defined(_UCRT)
    GTEST_SKIP() << "here the C runtime itself keeps the module for its threads";
#endif
    CServerModule module;
    {
        Platform platform(module.Handle());
        CImportPatch end(module.Handle(), "FreeLibraryAndExitThread", HoldBeforeTheEnd);
        IHttpRaw* pHttpRaw = module.CreateHttpRaw();
        ASSERT_NE(pHttpRaw, nullptr);
        ASSERT_EQ(pHttpRaw->PostRequest(L"http://host/", L"x"), S_OK);
        ASSERT_TRUE(m_held.Wait());
        // The host does everything right: it releases, asks, and frees the module.
        EXPECT_EQ(pHttpRaw->Release(), 0u);
        EXPECT_EQ(module.CanUnloadNow(), S_OK);
        module.Unload();
        EXPECT_NE(GetModuleHandleW(kModuleName), nullptr) << "the worker's code is gone under its feet";
        m_go.Set();
        EXPECT_EQ(platform.threads.ExitCode(), 0u);
        end.Forget();
        platform.Forget();
    }
    EXPECT_EQ(GetModuleHandleW(kModuleName), nullptr) << "the worker has left a reference behind";
}

class WorkerLockTest : public WorkerUnloadTest
{
protected:
    WorkerLockTest()
    {
        s_pTest = this;
        m_platform.threads.m_onClosed = [this](HANDLE hClosed)
        {
            const auto& starts = m_platform.threads.m_starts;
            if (GetCurrentThreadId() != m_dwOwnerId && hClosed == starts.at(0).hThread)
            {
                m_bHandleClosed = true;
            }
        };
    }
    ~WorkerLockTest() override { s_pTest = nullptr; }

    // Holds the first worker when it has left the lock for the last time, still inside that call.
    static void WINAPI Leave(CRITICAL_SECTION* pcs)
    {
        LeaveCriticalSection(pcs);
        if (s_pTest->m_bHandleClosed && GetCurrentThreadId() != s_pTest->m_dwOwnerId &&
            !s_pTest->m_bHeldOnce.exchange(true))
        {
            g_pHeld->Set();
            g_pGo->Wait();
            g_bOut = true;
        }
    }
    // The owner waits: the worker may go.
    static void LetGo()
    {
        if (GetCurrentThreadId() == s_pTest->m_dwOwnerId)
        {
            g_pGo->Set();
            s_pTest->m_platform.threads.ExitCode();
        }
    }
    static void WINAPI LetGoAndSleep(DWORD dwMilliseconds)
    {
        LetGo();
        Sleep(dwMilliseconds);
    }
    static BOOL WINAPI LetGoAndSwitch()
    {
        LetGo();
        return SwitchToThread();
    }

    static inline WorkerLockTest* s_pTest = nullptr;

    const DWORD m_dwOwnerId = GetCurrentThreadId();
    std::atomic<bool> m_bHandleClosed = false;
    std::atomic<bool> m_bHeldOnce = false;
    CServerModule m_module;
    Platform m_platform{m_module.Handle()};
    CImportPatch m_leave{m_module.Handle(), "LeaveCriticalSection", Leave};
    CImportPatch m_sleep{m_module.Handle(), "Sleep", LetGoAndSleep};
    CImportPatch m_switch{m_module.Handle(), "SwitchToThread", LetGoAndSwitch};
};

TEST_F(WorkerLockTest, ReleaseWaitsForAWorkerThatIsStillInsideItsLock)
{
    IHttpRaw* pHttpRaw = m_module.CreateHttpRaw();
    CHold send(m_platform.journal, "HttpSendRequestW");
    ASSERT_EQ(pHttpRaw->PostRequest(L"http://host/", L"x"), S_OK);
    send.LetGo();  // so that the worker has its handle, and closes it itself
    ASSERT_TRUE(m_held.Wait());
    EXPECT_EQ(pHttpRaw->Release(), 0u);
    EXPECT_TRUE(g_bOut) << "the object went while its worker was inside";
    m_go.Set();
    m_platform.threads.ExitCode();
}

// An exchange that has ended gets a moment to leave its object, so that one object serves them all.
TEST_F(WorkerLockTest, NextSendReusesTheObjectThatItsWorkerIsAboutToLeave)
{
    IHttpRaw* pHttpRaw = m_module.CreateHttpRaw();
    CHold send(m_platform.journal, "HttpSendRequestW");
    ASSERT_EQ(pHttpRaw->PostRequest(L"http://host/", L"x"), S_OK);
    ASSERT_TRUE(send.Reached());
    send.LetGo();  // so that the status is final afterwards
    ASSERT_TRUE(m_held.Wait());
    ASSERT_EQ(pHttpRaw->PostRequest(L"http://host/", L"y"), S_OK);
    EXPECT_TRUE(g_bOut);
    const auto& starts = m_platform.threads.m_starts;
    ASSERT_EQ(starts.size(), 2u);
    EXPECT_EQ(starts[1].pObject, starts[0].pObject);
    m_platform.threads.ExitCode(1);
    EXPECT_EQ(pHttpRaw->Release(), 0u);
}

// Workers that end before their starter knows their handle, and their objects, leave nothing behind.
TEST(WorkerResourcesTest, ManyQuickExchangesLeaveNoHandleAndNoThread)
{
    CServerModule module;
    Platform platform(module.Handle());
    const auto exchange = [&](int count)
    {
        for (int i = 0; i < count; ++i)
        {
            IHttpRaw* pHttpRaw = module.CreateHttpRaw();
            for (const wchar_t* pszData : {L"a", L"b"})
            {
                ASSERT_EQ(pHttpRaw->PostRequest(L"http://host/", pszData), S_OK);
                platform.threads.ExitCode(platform.threads.m_starts.size() - 1);
            }
            ASSERT_EQ(pHttpRaw->Release(), 0u);
        }
    };
    exchange(3);  // the runtime makes some of its own at first
    const int handles = CountHandles() - static_cast<int>(platform.threads.m_starts.size());
    const int threads = CountThreads();
    exchange(100);
    const int started = static_cast<int>(platform.threads.m_starts.size());
    EXPECT_LE(CountSettled(CountThreads, threads), threads);
    EXPECT_LE(CountSettled(CountHandles, handles + started) - started, handles);
    EXPECT_EQ(module.CanUnloadNow(), S_OK);
}

}  // namespace
