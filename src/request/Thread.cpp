#include "request/Thread.h"

#include <process.h>

#include "trace/Trace.h"

namespace Qel
{

namespace
{

constexpr DWORD kKilledOnQuit = 0xFFFFFFFD;     // -3
constexpr DWORD kKilledOnTimeout = 0xFFFFFFFE;  // -2
constexpr wchar_t kTimeoutReason[] = L"wait the thread time out, kill the thread!!!";

// Every kind of input but raw input, which newer platform headers add to their QS_ALLINPUT.
constexpr DWORD kAnyInput = 0xFF;

// Ending a thread is not done when the call returns.
constexpr DWORD kKillWaitMs = 1000;

// Ten seconds or more. Turns and not ticks, since a machine that sleeps counts ticks, but lets no worker run.
constexpr int kTurnsToLeave = 10000;

// A worker on its way out needs microseconds, or as long as the trace library takes for a few records.
constexpr LONGLONG kBriefWaitsPerSecond = 500;

// Shows the wait cursor and puts the old one back at the end of the scope.
class CWaitCursor
{
public:
    CWaitCursor() : m_hPrevious(SetCursor(LoadCursorW(nullptr, IDC_WAIT))) {}
    ~CWaitCursor() { SetCursor(m_hPrevious); }
    CWaitCursor(const CWaitCursor&) = delete;
    CWaitCursor& operator=(const CWaitCursor&) = delete;

private:
    HCURSOR m_hPrevious;
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

CThread::~CThread()
{
    if (m_hThread != nullptr)
    {
        CloseHandle(m_hThread);
    }
}

bool CThread::Start()
{
    m_owner.Check();
    const bool bAutoDelete = m_bAutoDelete != 0;
    m_worker = WORKER_INSIDE;
    auto* const hThread =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, 0, &m_nThreadId));
    if (hThread == nullptr)
    {
        m_worker = NO_WORKER;
    }
    else if (bAutoDelete)
    {
        CloseHandle(hThread);  // the object may be gone
    }
    else
    {
        StoreHandle(hThread);
    }
    return hThread != nullptr;
}

void CThread::StoreHandle(HANDLE hThread)
{
    const CCriticalSectionLock lock(m_cs);
    if (m_worker == WORKER_INSIDE)
    {
        m_hThread = hThread;
        return;
    }
    // The worker was faster, and found no handle to drop.
    CloseHandle(hThread);
    m_nThreadId = 0;
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
    DropHandle();
    m_worker = NO_WORKER;  // the owner may destroy the object from here on
    return exitCode;
}

void CThread::DropHandle()
{
    const CCriticalSectionLock lock(m_cs);
    if (m_hThread != nullptr)
    {
        CloseHandle(m_hThread);
    }
    m_hThread = nullptr;
    m_nThreadId = 0;
    m_worker = WORKER_LEAVING;
}

// Preferably a handle of the waiter's own, since the worker may close the one in the object at any moment.
HANDLE CThread::GetThreadHandle(CKernelHandle& hDuplicate)
{
    const CCriticalSectionLock lock(m_cs);
    if (m_hThread != nullptr)
    {
        DuplicateHandle(GetCurrentProcess(), m_hThread, GetCurrentProcess(), hDuplicate.Put(), 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
    }
    return hDuplicate ? hDuplicate.Get() : m_hThread;
}

bool CThread::WaitThreadExit(DWORD dwTimeout, bool bFilterInput)
{
    m_owner.Check();
    Ending ending = ENDED;
    {
        const CWaitCursor cursor;
        ending = AwaitEnd(dwTimeout, bFilterInput);
    }
    if (ending == KILLED_TO_QUIT)
    {
        PostQuitMessage(0);
    }
    return ending == ENDED;
}

CThread::Ending CThread::AwaitEnd(DWORD dwTimeout, bool bFilterInput)
{
    CKernelHandle hDuplicate;
    const HANDLE hThread = GetThreadHandle(hDuplicate);
    if (hThread == nullptr)
    {
        return AwaitLeave(nullptr);
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
                return KILLED_TO_QUIT;
            }
            // As a signed difference, so that it does not matter when the tick count wraps.
            const LONG elapsed = static_cast<LONG>(GetTickCount() - dwStart);
            if (dwTimeout > 0 && elapsed > static_cast<LONG>(dwTimeout))
            {
                KillThread(hThread, kKilledOnTimeout, kTimeoutReason);
                return KILLED;
            }
            if (!bFilterInput || !IsUserInput(msg.message))
            {
                DispatchMessageW(&msg);
            }
        }
        const DWORD dwResult = MsgWaitForMultipleObjects(1, &hThread, FALSE, INFINITE, kAnyInput);
        if (dwResult == WAIT_OBJECT_0)
        {
            m_worker = NO_WORKER;  // also where somebody else has ended the thread
            return ENDED;
        }
        if (dwResult != WAIT_OBJECT_0 + 1)
        {
            return AwaitLeave(hThread);
        }
    }
}

// For a worker that cannot be waited for by its handle. One that somebody else has ended never says that it
// has left.
CThread::Ending CThread::AwaitLeave(HANDLE hThread)
{
    for (int turns = 0; turns < kTurnsToLeave && !HasLeft(); ++turns)
    {
        Sleep(1);
    }
    if (HasLeft())
    {
        return ENDED;
    }
    KillThread(hThread, kKilledOnTimeout, kTimeoutReason);
    return KILLED;
}

// Without the lock, which the worker may hold for ever.
void CThread::KillThread(HANDLE hThread, DWORD dwExitCode, const wchar_t* pszReason)
{
    TraceText(kTraceError, pszReason);
    DWORD dwCode = STILL_ACTIVE;
    GetExitCodeThread(hThread, &dwCode);
    // One that has left may be inside the loader, and needs no kill.
    if (dwCode == STILL_ACTIVE && !HasLeft())
    {
        if (TerminateThread(hThread, dwExitCode))
        {
            WaitForSingleObject(hThread, kKillWaitMs);
            m_hThread = nullptr;  // intended: the handle of a killed thread is never closed
        }
        else
        {
            // One that cannot be killed would go on in an object that has gone.
            WaitForSingleObject(hThread, INFINITE);
        }
    }
    m_worker = NO_WORKER;
}

bool CThread::AwaitLeaveBriefly() const
{
    LARGE_INTEGER frequency = {};
    LARGE_INTEGER now = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    const LONGLONG end = now.QuadPart + frequency.QuadPart / kBriefWaitsPerSecond;
    while (!HasLeft() && now.QuadPart < end)
    {
        SwitchToThread();
        QueryPerformanceCounter(&now);
    }
    return HasLeft();
}

}  // namespace Qel
