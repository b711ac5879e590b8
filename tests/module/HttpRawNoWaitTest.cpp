// A send returns at once, whatever the worker of the last one does: the host's thread does not sleep, serves
// no messages and changes no cursor, and waits for no worker.
#include <algorithm>
#include <chrono>

#include "module/HttpRawTest.h"

using testing::IsEmpty;

namespace
{

using Milliseconds = std::chrono::duration<double, std::milli>;

// What a module could wait with, beside what is recorded below.
constexpr const char* kOtherWaits[] = {"SleepEx",
                                       "WaitForSingleObjectEx",
                                       "WaitForMultipleObjectsEx",
                                       "MsgWaitForMultipleObjectsEx",
                                       "SignalObjectAndWait",
                                       "SleepConditionVariableCS",
                                       "SleepConditionVariableSRW",
                                       "WaitOnAddress",
                                       "WaitMessage",
                                       "GetMessageA",
                                       "GetMessageW",
                                       "PeekMessageA",
                                       "DispatchMessageA"};

Texts* g_pCalls = nullptr;  // of the host's thread
DWORD g_dwHost = 0;

void Record(const char* pszCall)
{
    if (GetCurrentThreadId() == g_dwHost)
    {
        g_pCalls->push_back(pszCall);
    }
}

void WINAPI RecordSleep(DWORD dwMilliseconds)
{
    Record("Sleep");
    Sleep(dwMilliseconds);
}

DWORD WINAPI RecordWaitOne(HANDLE hHandle, DWORD dwMilliseconds)
{
    Record("WaitForSingleObject");
    return WaitForSingleObject(hHandle, dwMilliseconds);
}

DWORD WINAPI RecordWaitMany(DWORD cHandles, const HANDLE* pHandles, BOOL bAll, DWORD dwMilliseconds)
{
    Record("WaitForMultipleObjects");
    return WaitForMultipleObjects(cHandles, pHandles, bAll, dwMilliseconds);
}

DWORD WINAPI RecordWaitWithMessages(DWORD cHandles, const HANDLE* pHandles, BOOL bAll, DWORD dwMilliseconds,
                                    DWORD dwMask)
{
    Record("MsgWaitForMultipleObjects");
    return MsgWaitForMultipleObjects(cHandles, pHandles, bAll, dwMilliseconds, dwMask);
}

BOOL WINAPI RecordPeek(LPMSG pMsg, HWND hWnd, UINT first, UINT last, UINT remove)
{
    Record("PeekMessageW");
    return PeekMessageW(pMsg, hWnd, first, last, remove);
}

LRESULT WINAPI RecordDispatch(const MSG* pMsg)
{
    Record("DispatchMessageW");
    return DispatchMessageW(pMsg);
}

HCURSOR WINAPI RecordLoadCursor(HINSTANCE, LPCWSTR)
{
    Record("LoadCursorW");
    return nullptr;
}

HCURSOR WINAPI RecordSetCursor(HCURSOR)
{
    Record("SetCursor");
    return nullptr;
}

class HttpRawNoWaitTest : public HttpRawTest
{
protected:
    HttpRawNoWaitTest()
    {
        g_pCalls = &m_calls;
        g_dwHost = GetCurrentThreadId();
        CImportPatches& imports = m_pModule->Imports();
        imports.AddIfImported("Sleep", RecordSleep);
        imports.AddIfImported("WaitForSingleObject", RecordWaitOne);
        imports.AddIfImported("WaitForMultipleObjects", RecordWaitMany);
        imports.AddIfImported("MsgWaitForMultipleObjects", RecordWaitWithMessages);
        imports.AddIfImported("PeekMessageW", RecordPeek);
        imports.AddIfImported("DispatchMessageW", RecordDispatch);
        imports.AddIfImported("LoadCursorW", RecordLoadCursor);
        imports.AddIfImported("SetCursor", RecordSetCursor);
    }

    void ExpectSendsWithoutWaiting(const char* pszWhen)
    {
        m_calls.clear();
        EXPECT_EQ(StartPost(), S_OK);
        EXPECT_THAT(m_calls, IsEmpty()) << pszWhen;
    }

    // Returns when the worker has written its final status, and keeps it from leaving. The host writes 5, the
    // worker 5, 6 and 9.
    std::unique_ptr<CHold> PostUntilOnTheWayOut()
    {
        auto hold = std::make_unique<CHold>(m_journal, Leave("CHttpRequest::UpdateRequestStatus"), 4);
        PostInto(*hold);
        EXPECT_EQ(Status(), 9u);
        return hold;
    }

    Texts m_calls;
};

TEST_F(HttpRawNoWaitTest, HostsThreadMakesNoCallThatWaits)
{
    for (const char* pszName : kOtherWaits)
    {
        EXPECT_FALSE(CImportPatch::IsImported(m_pModule->Handle(), pszName))
            << pszName << " is to be recorded here too";
    }
    ExpectSendsWithoutWaiting("at first");
    Finish();
    ExpectSendsWithoutWaiting("after an exchange");
    Finish();

    CHold sending(m_journal, "HttpSendRequestW");
    PostInto(sending);
    ExpectSendsWithoutWaiting("during an exchange");
    sending.LetGo();
    Finish();

    const std::unique_ptr<CHold> leaving = PostUntilOnTheWayOut();
    ExpectSendsWithoutWaiting("while the worker leaves");
}

TEST_F(HttpRawNoWaitTest, WorkerThatHasNotLeftIsOvertakenWithinMilliseconds)
{
    // The least of several: the machine may be busy with something else.
    Milliseconds least = Milliseconds::max();
    for (int round = 0; round < 10; ++round)
    {
        const std::unique_ptr<CHold> leaving = PostUntilOnTheWayOut();
        void* const pFirst = m_system.Worker();
        m_winInet.m_reads.Then({"the second answer"});
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(StartPost(), S_OK);
        least = std::min(least, Milliseconds(std::chrono::steady_clock::now() - begin));
        EXPECT_NE(m_system.Worker(), pFirst);
        leaving->LetGo();
        Finish();
        EXPECT_EQ(Status(), 9u);
        EXPECT_EQ(Response(), L"the second answer");
    }
    EXPECT_LT(least.count(), 20.0) << "milliseconds";
}

}  // namespace
