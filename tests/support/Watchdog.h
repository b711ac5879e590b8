// Ends the test program when a test hangs, and says where: the test's name, and for each thread the
// places it would return to. It acts before ctest's own time-out, which could only say that the
// program took too long. A crash ends the program in the same way; Wine would keep it for a debugger.
#pragma once

#include <windows.h>

#include <atomic>
#include <string_view>

class CWatchdog
{
public:
    static constexpr UINT kExitCode = 99;
    static constexpr UINT kCrashExitCode = 98;
    // KVHTTP_WATCHDOG_SECONDS in the environment gives another number; 0 switches the watchdog off.
    static constexpr DWORD kDefaultSeconds = 40;

    CWatchdog();
    ~CWatchdog();
    CWatchdog(const CWatchdog&) = delete;
    CWatchdog& operator=(const CWatchdog&) = delete;

    // From now on until Stop. The texts must live as long.
    void Start(const char* pszSuite, const char* pszTest);
    void Stop();

    // What the test does at the moment, for the report; cut off where it is too long.
    static void Note(std::string_view text);

private:
    // Taken before any test patches the import table of the program, so that a scripted platform
    // function never reaches the watchdog.
    struct Platform
    {
        decltype(&WaitForSingleObject) pfnWait = &WaitForSingleObject;
        decltype(&SetEvent) pfnSetEvent = &SetEvent;
        decltype(&WriteFile) pfnWriteFile = &WriteFile;
        decltype(&GetStdHandle) pfnGetStdHandle = &GetStdHandle;
        decltype(&TerminateProcess) pfnTerminateProcess = &TerminateProcess;
        decltype(&OpenThread) pfnOpenThread = &OpenThread;
        decltype(&SuspendThread) pfnSuspendThread = &SuspendThread;
        decltype(&ResumeThread) pfnResumeThread = &ResumeThread;
        decltype(&GetThreadContext) pfnGetThreadContext = &GetThreadContext;
        decltype(&CloseHandle) pfnCloseHandle = &CloseHandle;
        decltype(&VirtualQuery) pfnVirtualQuery = &VirtualQuery;
    };

    static DWORD WINAPI ThreadProc(void* pWatchdog);
    static LONG WINAPI OnCrash(EXCEPTION_POINTERS* pException);
    void Watch();
    [[noreturn]] void Bite(const char* pszSuite, const char* pszTest);
    void ReportThreads();
    void ReportThread(DWORD dwThreadId);
    void ReportFrames(CONTEXT& context);
    void ReportFrame(DWORD64 address);
    DWORD64 StackEnd(DWORD64 pointer);
    // Past the C runtime's streams: a hung thread may own their lock.
    void Print(std::string_view text);

    static inline CWatchdog* s_pWatchdog = nullptr;
    static inline char s_szNote[200] = {};

    Platform m_platform;
    DWORD m_dwMilliseconds = kDefaultSeconds * 1000;
    DWORD m_dwMainThreadId = GetCurrentThreadId();
    std::atomic<const char*> m_pszSuite = nullptr;
    std::atomic<const char*> m_pszTest = nullptr;
    std::atomic<bool> m_bEnd = false;
    HANDLE m_hChange = nullptr;
    HANDLE m_hThread = nullptr;
};
