#include "request/Thread.h"

#include <process.h>

#include "base/CriticalSectionLock.h"
#include "base/ScopedHandle.h"
#include "trace/Trace.h"

namespace Qel
{

namespace
{

constexpr DWORD kKilledOnQuit = 0xFFFFFFFD;     // -3
constexpr DWORD kKilledOnTimeout = 0xFFFFFFFE;  // -2

// Every kind of input but raw input, which newer platform headers add to their QS_ALLINPUT.
constexpr DWORD kAnyInput = 0xFF;

// Ending a thread is not done when the call returns.
constexpr DWORD kKillWaitMs = 1000;

// A worker on its way out needs microseconds, or as long as the trace library takes for a few records.
constexpr int kTurnsToLeave = 1000;
constexpr int kSleepsToLeave = 50;

// Shows the wait cursor and puts the old one back at the end of the scope.
class CWaitCursor
{
public:
    CWaitCursor() : m_hPrevious(SetCursor(LoadCursorW(nullptr, IDC_WAIT))) {}
    ~CWaitCursor() { Restore(); }
    CWaitCursor(const CWaitCursor&) = delete;
    CWaitCursor& operator=(const CWaitCursor&) = delete;

    void Restore()
    {
        if (!m_bRestored)
        {
            SetCursor(m_hPrevious);
            m_bRestored = true;
        }
    }

private:
    HCURSOR m_hPrevious;
    bool m_bRestored = false;
};

bool IsUserInput(UINT message)
{
    return (message >= WM_MOUSEFIRST && message <= 0x20A) || (message >= WM_KEYFIRST && message <= 0x108) ||
           message == WM_COMMAND || message == WM_TIMER;
}

// The worker keeps the module loaded: after the last release the host may free it while the worker is
// still on its way out. Null when the worker needs no help: the universal C runtime does it itself.
HMODULE ReferenceOwnModule()
{
    HMODULE hModule = nullptr;
#if !defined(_MSC_VER) && !defined(_UCRT)
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(&ReferenceOwnModule)), &hModule);
#endif
    return hModule;
}

}  // namespace

CThread::CThread()
{
    InitializeCriticalSection(&m_cs);
}

CThread::~CThread()
{
    if (m_hThread != nullptr)
    {
        CloseHandle(m_hThread);
    }
    DeleteCriticalSection(&m_cs);
}

bool CThread::Start()
{
    ++m_cWorkers;
    // Under the lock, so that a worker that ends at once finds its handle stored and closes it.
    const CCriticalSectionLock lock(m_cs);
    m_hThread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, 0, &m_nThreadId));
    if (m_hThread == nullptr)
    {
        --m_cWorkers;
    }
    return m_hThread != nullptr;
}

unsigned __stdcall CThread::ThreadProc(void* object)
{
    const HMODULE hModule = ReferenceOwnModule();
    const unsigned exitCode = static_cast<CThread*>(object)->Execute();
    if (hModule != nullptr)
    {
        FreeLibraryAndExitThread(hModule, exitCode);
    }
    return exitCode;
}

unsigned CThread::Execute()
{
    {
        const CCriticalSectionLock lock(m_cs);
        m_bStopped = 0;
    }
    const unsigned exitCode = Run();

    bool bAutoDelete = false;
    {
        const CCriticalSectionLock lock(m_cs);
        bAutoDelete = m_bAutoDelete != 0;
        m_bStopped = 1;
    }
    if (bAutoDelete)
    {
        delete this;
        return exitCode;
    }
    {
        const CCriticalSectionLock lock(m_cs);
        CloseHandle(m_hThread);
        m_hThread = nullptr;
        m_nThreadId = 0;
    }
    --m_cWorkers;  // the owner may destroy the object from here on
    return exitCode;
}

bool CThread::WaitThreadExit(DWORD dwTimeout, bool bFilterInput)
{
    CWaitCursor cursor;
    CKernelHandle hWait;
    {
        // A handle of the waiter's own: the worker may close the one in the object at any moment.
        const CCriticalSectionLock lock(m_cs);
        if (m_hThread != nullptr)
        {
            DuplicateHandle(GetCurrentProcess(), m_hThread, GetCurrentProcess(), hWait.Put(), 0, FALSE,
                            DUPLICATE_SAME_ACCESS);
        }
    }
    const HANDLE hThread = hWait ? hWait.Get() : m_hThread;
    if (hThread == nullptr)
    {
        AwaitLeave();
        return true;
    }

    const DWORD dwStart = GetTickCount();
    for (;;)
    {
        MSG msg = {};
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        {
            if (msg.message == WM_QUIT)
            {
                KillThread(hThread, kKilledOnQuit, L"quit process, kill the thread!!!");
                cursor.Restore();
                PostQuitMessage(0);
                return false;
            }
            const LONG elapsed = static_cast<LONG>(GetTickCount() - dwStart);
            if (dwTimeout > 0 && elapsed > static_cast<LONG>(dwTimeout))
            {
                KillThread(hThread, kKilledOnTimeout, L"wait the thread time out, kill the thread!!!");
                return false;
            }
            if (!bFilterInput || !IsUserInput(msg.message))
            {
                DispatchMessageW(&msg);
            }
        }
        const DWORD dwResult = MsgWaitForMultipleObjects(1, &hThread, FALSE, INFINITE, kAnyInput);
        if (dwResult == WAIT_OBJECT_0)
        {
            return true;
        }
        if (dwResult != WAIT_OBJECT_0 + 1)
        {
            AwaitLeave();
            return true;
        }
    }
}

void CThread::KillThread(HANDLE hThread, DWORD dwExitCode, const wchar_t* pszReason)
{
    TraceText(kTraceError, pszReason);
    DWORD dwCode = 0;
    GetExitCodeThread(hThread, &dwCode);
    if (dwCode == STILL_ACTIVE && !HasLeft())
    {
        TerminateThread(hThread, dwExitCode);
        WaitForSingleObject(hThread, kKillWaitMs);
        m_hThread = nullptr;  // intended: the handle of a killed thread is never closed
    }
}

bool CThread::AwaitLeaveBriefly() const
{
    for (int turns = 0; turns < kTurnsToLeave && !HasLeft(); ++turns)
    {
        SwitchToThread();
    }
    for (int sleeps = 0; sleeps < kSleepsToLeave && !HasLeft(); ++sleeps)
    {
        Sleep(1);
    }
    return HasLeft();
}

void CThread::AwaitLeave() const
{
    while (!HasLeft())
    {
        Sleep(1);
    }
}

}  // namespace Qel
