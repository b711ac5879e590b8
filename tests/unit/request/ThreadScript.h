// A worker whose Run the test steers, and a record of what the thread base asks the platform for around
// it: thread start and handles closed.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <vector>

#include "request/Thread.h"
#include "support/ImportPatch.h"

// A platform event. The locks of the C++ library would go through the very functions that these tests
// replace. Waiting is bounded: a product that never comes fails the test instead of hanging it.
class CEvent
{
public:
    CEvent() : m_hEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~CEvent() { CloseHandle(m_hEvent); }
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    void Set() { SetEvent(m_hEvent); }
    bool Wait() const { return WaitForSingleObject(m_hEvent, kPatienceMs) == WAIT_OBJECT_0; }
    HANDLE Get() const { return m_hEvent; }

    static constexpr DWORD kPatienceMs = 20000;

private:
    HANDLE m_hEvent;
};

class CTestThread : public Qel::CThread
{
public:
    // Runs on the worker; by default it waits until the test lets it go.
    std::function<unsigned()> m_run = [this]
    {
        m_go.Wait();
        return 0u;
    };
    CEvent m_running;
    CEvent m_go;
    std::atomic<DWORD> m_dwWorkerId{0};

    unsigned Run() override
    {
        m_dwWorkerId = GetCurrentThreadId();
        m_running.Set();
        return m_run();
    }
};

// Replaces the functions of one module for the life of one test.
class CThreadScript
{
public:
    explicit CThreadScript(HMODULE hModule = GetModuleHandleW(nullptr));
    // Closes the handles that the tests had duplicated.
    ~CThreadScript();

    struct StartCall
    {
        void* pSecurity;
        unsigned stackSize;
        void* pObject;
        unsigned flags;
        unsigned* pThreadId;
        HANDLE hThread;     // as the product got it
        HANDLE hDuplicate;  // the tests' own
    };
    std::vector<StartCall> m_starts;
    // When false, starting a thread fails.
    bool m_bCanStart = true;
    // Runs within the start call, when the thread exists already.
    std::function<void(HANDLE)> m_onStarted;

    // How often that handle was closed, and by the thread of that identifier (0: any).
    int CountClosed(HANDLE handle, DWORD dwThreadId = 0) const;
    // Runs on the closing thread, after the handle was closed.
    std::function<void(HANDLE)> m_onClosed;

    // For a module that has been unloaded: nothing is put back.
    void Forget();

    // Waits for the nth thread's end and gives its exit code.
    DWORD ExitCode(size_t nth = 0) const;

private:
    static uintptr_t __cdecl ScriptedBegin(void* pSecurity, unsigned stackSize,
                                           unsigned(__stdcall* pfn)(void*), void* pObject, unsigned flags,
                                           unsigned* pThreadId);
    static BOOL WINAPI ScriptedClose(HANDLE handle);

    struct Closed
    {
        HANDLE handle;
        DWORD dwThreadId;
    };
    // Room for all of a test: both threads write here, and the test reads when the worker has ended.
    static constexpr LONG kMostClosed = 4096;
    std::vector<Closed> m_closed = std::vector<Closed>(kMostClosed);
    std::atomic<LONG> m_cClosed{0};

    CImportPatch m_begin;
    CImportPatch m_close;
};
