// Gives one object one worker thread of its own. The owner's thread, the one that made the object, starts
// the worker and waits for it before the object goes; the worker runs Run and then drops its own handle, so
// that an object whose thread has ended holds none.
//
//   no worker ---- Start ----> inside -- Run has returned --> leaving -- last instruction --> no worker
//                     inside or leaving -- killed by WaitThreadExit --> no worker
//
// Both threads touch the handle and the identifier under the lock; a kill writes the handle without, since
// the worker may have died with the lock. That the worker has left the object shows only in m_worker: it
// clears the handle while it still holds the lock.
#pragma once

#include <windows.h>

#include <atomic>

#include "base/CriticalSection.h"
#include "base/OwnerThread.h"
#include "base/ScopedHandle.h"

namespace Qel
{

class CThread
{
public:
    CThread() = default;
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // The worker's job, on the worker thread; its result becomes the thread's exit code.
    virtual unsigned Run() = 0;

    // Does not wait for the thread: a derived class waits first, with WaitThreadExit.
    virtual ~CThread();

    // Owner. Starts the worker; false when no thread could be created. The previous worker of the object must
    // have left it (HasLeft). The new one may have run to its end when this returns.
    bool Start();

    // Either thread. True when no worker is inside the object: none was started, or the last one will not
    // touch the object any more, though its thread may still be in its last instructions.
    bool HasLeft() const { return m_worker == NO_WORKER; }

    // Owner. Gives a worker that is on its way out some two milliseconds, without sleeping; true when it has
    // left.
    bool AwaitLeaveBriefly() const;

    // Owner. Waits until the worker has left the object. Dispatches the thread's messages meanwhile; with
    // bFilterInput, keyboard, mouse, WM_COMMAND and WM_TIMER messages are discarded. True when the worker
    // ended by itself or there was none. False when it was killed: on WM_QUIT, which is posted again, or
    // when a message arrives after dwTimeout milliseconds (0: no limit). Intended: while no message arrives
    // the wait has no limit. Where the platform cannot wait for the thread, ten seconds or more without
    // messages bound it.
    bool WaitThreadExit(DWORD dwTimeout, bool bFilterInput);

protected:
    // Set by a derived class whose objects are deleted by their own thread after Run.
    void SetAutoDelete(bool bAutoDelete) { m_bAutoDelete = bAutoDelete; }

    const COwnerThread& Owner() const { return m_owner; }

private:
    enum Worker
    {
        NO_WORKER,
        WORKER_INSIDE,
        WORKER_LEAVING,  // it has dropped its handle and is about to leave the lock
    };

    enum Ending
    {
        ENDED,
        KILLED,
        KILLED_TO_QUIT,
    };

    static unsigned __stdcall ThreadProc(void* object);
    unsigned Execute();
    void StoreHandle(HANDLE hThread);
    void DropHandle();
    HANDLE GetThreadHandle(CKernelHandle& hDuplicate);
    Ending AwaitEnd(DWORD dwTimeout, bool bFilterInput);
    Ending AwaitLeave(HANDLE hThread);
    void KillThread(HANDLE hThread, DWORD dwExitCode, const wchar_t* pszReason) KVHTTP_UNCHECKED;

    HANDLE m_hThread KVHTTP_GUARDED_BY(m_cs) = nullptr;
    unsigned m_nThreadId = 0;  // written by the platform within the start, then under the lock
    CCriticalSection m_cs;
    unsigned m_bAutoDelete : 1 = 0;
    LONG m_bStopped KVHTTP_GUARDED_BY(m_cs) = 1;  // 0 while Run executes
    std::atomic<Worker> m_worker{NO_WORKER};      // the last thing that a worker touches
    COwnerThread m_owner;
};

}  // namespace Qel
