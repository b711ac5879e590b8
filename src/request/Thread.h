// Gives one object one worker thread of its own. The owner's thread starts it, and waits for it before
// the object goes; the worker runs Run and then drops its own handle, so that an object whose thread
// has ended holds none.
#pragma once

#include <windows.h>

#include <atomic>

namespace Qel
{

class CThread
{
public:
    CThread();
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // The worker's job, on the worker thread; its result becomes the thread's exit code.
    virtual unsigned Run() = 0;

    // Does not wait for the thread: a derived class waits first, with WaitThreadExit.
    virtual ~CThread();

    // Starts the worker; false when no thread could be created. The previous worker of the object must
    // have left it (HasLeft).
    bool Start();

    // True when no worker is inside the object: none was started, or the last one will not touch the
    // object any more, though its thread may still be in its last instructions.
    bool HasLeft() const { return m_cWorkers == 0; }

    // Gives a worker that is on its way out a moment to leave; true when it has left.
    bool AwaitLeaveBriefly() const;

    // Waits, on the owner's thread, until the worker has left the object. Dispatches the thread's
    // messages meanwhile; with bFilterInput, keyboard, mouse, WM_COMMAND and WM_TIMER messages are
    // discarded. True when the worker ended by itself or there was none. False when it was killed:
    // on WM_QUIT, which is posted again, or when a message arrives after dwTimeout milliseconds (0: no
    // limit). Intended: while no message arrives the wait has no limit.
    bool WaitThreadExit(DWORD dwTimeout, bool bFilterInput);

protected:
    // Set by a derived class whose objects are deleted by their own thread after Run.
    void SetAutoDelete(bool bAutoDelete) { m_bAutoDelete = bAutoDelete; }

private:
    static unsigned __stdcall ThreadProc(void* object);
    unsigned Execute();
    void KillThread(HANDLE hThread, DWORD dwExitCode, const wchar_t* pszReason);
    void AwaitLeave() const;

    HANDLE m_hThread = nullptr;
    unsigned m_nThreadId = 0;
    CRITICAL_SECTION m_cs{};  // around m_hThread, m_nThreadId and m_bStopped
    unsigned m_bAutoDelete : 1 = 0;
    LONG m_bStopped = 1;  // 0 while Run executes
    // Workers that may still touch the object. The last thing a worker does to it is to count itself
    // out: the handle is no sign of that, since the worker clears it while it holds the lock.
    std::atomic<LONG> m_cWorkers{0};
};

}  // namespace Qel
