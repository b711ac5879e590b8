// Waiting for the worker, with a scripted message queue, clock and cursor: every call that the owner's
// thread makes is recorded in its order.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "request/Thread.h"
#include "support/CallText.h"
#include "support/RecordedTrace.h"
#include "unit/request/ThreadScript.h"

inline const HCURSOR kWaitCursor = reinterpret_cast<HCURSOR>(0x1111);
inline const HCURSOR kOldCursor = reinterpret_cast<HCURSOR>(0x2222);
constexpr DWORD kQueueEmpty = 0xFFFF;  // stands for the end of one drain of the queue

class ThreadWaitTest : public testing::Test
{
protected:
    ThreadWaitTest()
    {
        s_pTest = this;
        m_trace.m_onRecord = [this](const std::string& record)
        { m_log.push_back("trace " + record.substr(0, 1) + record.substr(2)); };
    }
    ~ThreadWaitTest() override
    {
        m_thread.m_go.Set();
        s_pTest = nullptr;
    }

    void StartWorker()
    {
        ASSERT_TRUE(m_thread.Start());
        ASSERT_TRUE(m_thread.m_running.Wait());
    }

    // A message that is in the queue when it is read; the clock shows dwTick then.
    void Queue(UINT message, DWORD dwTick = 0) { m_queue.push_back({message, dwTick}); }
    // Ends one drain of the queue: the wait says that there is input again, and what follows is read.
    void QueuePause() { m_queue.push_back({kQueueEmpty, 0}); }

    bool Wait(DWORD dwTimeout = 60000, bool bFilter = true)
    {
        return m_thread.WaitThreadExit(dwTimeout, bFilter);
    }

    std::vector<std::string> Dispatched() const
    {
        std::vector<std::string> result;
        for (const std::string& entry : m_log)
        {
            if (entry.rfind("dispatch", 0) == 0)
            {
                result.push_back(entry);
            }
        }
        return result;
    }

    struct QueuedMessage
    {
        UINT message;
        DWORD dwTick;
    };
    DWORD m_dwTick = 0;
    DWORD m_dwTicksPerWait = 0;
    std::deque<QueuedMessage> m_queue;
    std::vector<std::string> m_log;
    DWORD m_dwWaitResult = WAIT_OBJECT_0;  // once the queue is empty for good
    CRecordedTrace m_trace;
    CThreadScript m_script;
    CTestThread m_thread;

private:
    static HCURSOR WINAPI LoadCursorScripted(HINSTANCE hInstance, LPCWSTR pszName)
    {
        EXPECT_EQ(hInstance, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pszName), 32514u);
        return kWaitCursor;
    }

    static HCURSOR WINAPI SetCursorScripted(HCURSOR hCursor)
    {
        s_pTest->m_log.push_back(hCursor == kWaitCursor  ? "cursor wait"
                                 : hCursor == kOldCursor ? "cursor old"
                                                         : "cursor unknown");
        return hCursor == kWaitCursor ? kOldCursor : kWaitCursor;
    }

    static BOOL WINAPI PeekScripted(MSG* pMsg, HWND hWnd, UINT first, UINT last, UINT flags)
    {
        EXPECT_EQ(hWnd, nullptr);
        EXPECT_EQ(first, 0u);
        EXPECT_EQ(last, 0u);
        EXPECT_EQ(flags, static_cast<UINT>(PM_REMOVE));
        std::deque<QueuedMessage>& queue = s_pTest->m_queue;
        if (queue.empty() || queue.front().message == kQueueEmpty)
        {
            return FALSE;
        }
        *pMsg = {};
        pMsg->message = queue.front().message;
        pMsg->wParam = 0xABCD;
        s_pTest->m_dwTick = queue.front().dwTick;
        queue.pop_front();
        return TRUE;
    }

    static LRESULT WINAPI DispatchScripted(const MSG* pMsg)
    {
        EXPECT_EQ(pMsg->wParam, 0xABCDu);
        s_pTest->m_log.push_back("dispatch " + Hex(pMsg->message));
        return 0;
    }

    static DWORD WINAPI WaitScripted(DWORD cHandles, const HANDLE* pHandles, BOOL bAll, DWORD dwTimeout,
                                     DWORD dwMask)
    {
        EXPECT_EQ(cHandles, 1u);
        EXPECT_EQ(GetThreadId(pHandles[0]), GetThreadId(s_pTest->m_script.m_starts.at(0).hDuplicate));
        EXPECT_FALSE(bAll);
        EXPECT_EQ(dwTimeout, INFINITE);
        EXPECT_EQ(dwMask, 0xFFu);
        s_pTest->m_log.push_back("wait");
        s_pTest->m_dwTick += s_pTest->m_dwTicksPerWait;
        std::deque<QueuedMessage>& queue = s_pTest->m_queue;
        if (!queue.empty())
        {
            queue.pop_front();  // the pause
            return WAIT_OBJECT_0 + 1;
        }
        s_pTest->m_thread.m_go.Set();
        if (s_pTest->m_dwWaitResult == WAIT_OBJECT_0)
        {
            return WaitForSingleObject(pHandles[0], CEvent::kPatienceMs);
        }
        return s_pTest->m_dwWaitResult;
    }

    static void WINAPI PostQuitScripted(int exitCode)
    {
        s_pTest->m_log.push_back("quit " + std::to_string(exitCode));
    }

    static BOOL WINAPI ExitCodeScripted(HANDLE hThread, LPDWORD pdwCode)
    {
        s_pTest->m_log.push_back("exit code?");
        return s_pTest->m_exitCode.Original<BOOL WINAPI(HANDLE, LPDWORD)>()(hThread, pdwCode);
    }

    static BOOL WINAPI TerminateScripted(HANDLE hThread, DWORD dwExitCode)
    {
        s_pTest->m_log.push_back("terminate " + Hex(dwExitCode));
        return s_pTest->m_terminate.Original<BOOL WINAPI(HANDLE, DWORD)>()(hThread, dwExitCode);
    }

    static DWORD WINAPI TickScripted() { return s_pTest->m_dwTick; }

    static inline ThreadWaitTest* s_pTest = nullptr;

    const HMODULE m_hProgram = GetModuleHandleW(nullptr);
    CImportPatch m_loadCursor{m_hProgram, "LoadCursorW", LoadCursorScripted};
    CImportPatch m_setCursor{m_hProgram, "SetCursor", SetCursorScripted};
    CImportPatch m_peek{m_hProgram, "PeekMessageW", PeekScripted};
    CImportPatch m_dispatch{m_hProgram, "DispatchMessageW", DispatchScripted};
    CImportPatch m_wait{m_hProgram, "MsgWaitForMultipleObjects", WaitScripted};
    CImportPatch m_postQuit{m_hProgram, "PostQuitMessage", PostQuitScripted};
    CImportPatch m_exitCode{m_hProgram, "GetExitCodeThread", ExitCodeScripted};
    CImportPatch m_terminate{m_hProgram, "TerminateThread", TerminateScripted};
    CImportPatch m_tick{m_hProgram, "GetTickCount", TickScripted};
};
