#include "support/Watchdog.h"

#define PSAPI_VERSION 2  // the functions of kernel32
#include <psapi.h>
#include <tlhelp32.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

constexpr int kMaxFrames = 32;

template <typename T>
T* At(DWORD64 address)
{
    return reinterpret_cast<T*>(address);
}

// A line of text that needs no heap, whose lock a hung thread may own.
class CLine
{
public:
    CLine& Add(std::string_view text)
    {
        const size_t cch = text.copy(m_text.data() + m_cch, m_text.size() - m_cch);
        m_cch += cch;
        return *this;
    }
    CLine& Add(DWORD64 number, int base)
    {
        char* pEnd = m_text.data() + m_text.size();
        m_cch =
            static_cast<size_t>(std::to_chars(m_text.data() + m_cch, pEnd, number, base).ptr - m_text.data());
        return *this;
    }
    std::string_view Text() const { return {m_text.data(), m_cch}; }

private:
    std::array<char, 512> m_text{};
    size_t m_cch = 0;
};

}  // namespace

CWatchdog::CWatchdog()
{
    s_pWatchdog = this;
    SetUnhandledExceptionFilter(OnCrash);
    std::array<char, 16> value{};
    const DWORD cch = GetEnvironmentVariableA("KVHTTP_WATCHDOG_SECONDS", value.data(), DWORD{value.size()});
    if (cch != 0 && cch < value.size())
    {
        m_dwMilliseconds = std::strtoul(value.data(), nullptr, 10) * 1000;
    }
    // A person who steps through a test takes his time.
    if (m_dwMilliseconds != 0 && !IsDebuggerPresent())
    {
        m_hChange = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        m_hThread = CreateThread(nullptr, 0, ThreadProc, this, 0, nullptr);
    }
}

CWatchdog::~CWatchdog()
{
    if (m_hThread != nullptr)
    {
        m_bEnd = true;
        m_platform.pfnSetEvent(m_hChange);
        m_platform.pfnWait(m_hThread, INFINITE);
        m_platform.pfnCloseHandle(m_hThread);
        m_platform.pfnCloseHandle(m_hChange);
    }
}

void CWatchdog::Start(const char* pszSuite, const char* pszTest)
{
    m_pszSuite = pszSuite;
    m_pszTest = pszTest;
    if (m_hThread != nullptr)
    {
        m_platform.pfnSetEvent(m_hChange);
    }
}

void CWatchdog::Stop()
{
    Start(nullptr, nullptr);
    Note("");
}

void CWatchdog::Note(std::string_view text)
{
    const std::string note = text.empty() ? "" : " (" + std::string(text) + ")";
    s_szNote[note.copy(s_szNote, sizeof(s_szNote) - 1)] = '\0';
}

DWORD WINAPI CWatchdog::ThreadProc(void* pWatchdog)
{
    static_cast<CWatchdog*>(pWatchdog)->Watch();
    return 0;
}

void CWatchdog::Watch()
{
    while (!m_bEnd)
    {
        const char* pszTest = m_pszTest;
        if (m_platform.pfnWait(m_hChange, pszTest != nullptr ? m_dwMilliseconds : INFINITE) == WAIT_TIMEOUT)
        {
            Bite(m_pszSuite, pszTest);
        }
    }
}

LONG WINAPI CWatchdog::OnCrash(EXCEPTION_POINTERS* pException)
{
    CWatchdog& watchdog = *s_pWatchdog;
    const char* pszTest = watchdog.m_pszTest;
    watchdog.Print(CLine()
                       .Add("\nCrash in ")
                       .Add(pszTest != nullptr ? pszTest : "no test")
                       .Add(s_szNote)
                       .Add(": exception 0x")
                       .Add(pException->ExceptionRecord->ExceptionCode, 16)
                       .Add(", innermost place first:\n")
                       .Text());
    watchdog.ReportFrames(*pException->ContextRecord);
    watchdog.Print("To name the places: scripts/where MODULE+OFFSET...\n");
    watchdog.m_platform.pfnTerminateProcess(GetCurrentProcess(), kCrashExitCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

void CWatchdog::Bite(const char* pszSuite, const char* pszTest)
{
    Print(CLine()
              .Add("\nWatchdog: ")
              .Add(pszSuite)
              .Add(".")
              .Add(pszTest)
              .Add(s_szNote)
              .Add(" still runs after ")
              .Add(m_dwMilliseconds / 1000, 10)
              .Add(" s. The threads, innermost place first:\n")
              .Text());
    ReportThreads();
    Print("To name the places: scripts/where MODULE+OFFSET...\n");
    // Nothing gentler: a hung thread may own the loader's lock.
    m_platform.pfnTerminateProcess(GetCurrentProcess(), kExitCode);
    std::abort();
}

void CWatchdog::ReportThreads()
{
    const HANDLE hSnapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL bMore = Thread32First(hSnapshot, &entry); bMore; bMore = Thread32Next(hSnapshot, &entry))
    {
        if (entry.th32OwnerProcessID == GetCurrentProcessId() && entry.th32ThreadID != GetCurrentThreadId())
        {
            ReportThread(entry.th32ThreadID);
        }
    }
    m_platform.pfnCloseHandle(hSnapshot);
}

void CWatchdog::ReportThread(DWORD dwThreadId)
{
    const char* pszRole = dwThreadId == m_dwMainThreadId ? " (runs the test)\n" : "\n";
    Print(CLine().Add("thread ").Add(dwThreadId, 16).Add(pszRole).Text());
    const HANDLE hThread =
        m_platform.pfnOpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, dwThreadId);
    if (hThread == nullptr)
    {
        Print("  has ended\n");
        return;
    }
    alignas(16) CONTEXT context{};
    context.ContextFlags = CONTEXT_FULL;
    // It runs on before its stack is read: a suspended thread might own a lock that reading needs, and
    // a thread that hangs does not move.
    m_platform.pfnSuspendThread(hThread);
    const BOOL bRead = m_platform.pfnGetThreadContext(hThread, &context);
    m_platform.pfnResumeThread(hThread);
    m_platform.pfnCloseHandle(hThread);
    if (bRead)
    {
        ReportFrames(context);
    }
}

void CWatchdog::ReportFrames(CONTEXT& context)
{
    const DWORD64 end = StackEnd(context.Rsp);
    for (int i = 0; i < kMaxFrames && context.Rip != 0; ++i)
    {
        ReportFrame(context.Rip);
        const DWORD64 previous = context.Rsp;
        DWORD64 imageBase = 0;
        PRUNTIME_FUNCTION pFunction = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
        if (pFunction != nullptr)
        {
            void* pHandlerData = nullptr;
            DWORD64 frame = 0;
            RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, pFunction, &context, &pHandlerData,
                             &frame, nullptr);
        }
        else
        {
            // A function that keeps nothing on the stack has no unwind data.
            context.Rip = *At<const DWORD64>(context.Rsp);
            context.Rsp += sizeof(DWORD64);
        }
        if (context.Rsp <= previous || context.Rsp + sizeof(DWORD64) > end)
        {
            return;
        }
    }
}

void CWatchdog::ReportFrame(DWORD64 address)
{
    // The module's name by way of the mapping, which needs none of the loader's locks.
    MEMORY_BASIC_INFORMATION region{};
    std::array<char, MAX_PATH> path{};
    if (m_platform.pfnVirtualQuery(At<const void>(address), &region, sizeof(region)) == 0 ||
        GetMappedFileNameA(GetCurrentProcess(), At<void>(address), path.data(), DWORD{path.size()}) == 0)
    {
        Print(CLine().Add("  0x").Add(address, 16).Add("\n").Text());
        return;
    }
    const char* pszName = std::strrchr(path.data(), '\\');
    const DWORD64 offset = address - reinterpret_cast<ULONG_PTR>(region.AllocationBase);
    Print(CLine()
              .Add("  ")
              .Add(pszName != nullptr ? pszName + 1 : path.data())
              .Add("+0x")
              .Add(offset, 16)
              .Add("\n")
              .Text());
}

DWORD64 CWatchdog::StackEnd(DWORD64 pointer)
{
    MEMORY_BASIC_INFORMATION region{};
    if (m_platform.pfnVirtualQuery(At<const void>(pointer), &region, sizeof(region)) == 0)
    {
        return 0;
    }
    return reinterpret_cast<ULONG_PTR>(region.BaseAddress) + region.RegionSize;
}

void CWatchdog::Print(std::string_view text)
{
    DWORD cbWritten = 0;
    m_platform.pfnWriteFile(m_platform.pfnGetStdHandle(STD_OUTPUT_HANDLE), text.data(),
                            static_cast<DWORD>(text.size()), &cbWritten, nullptr);
}
