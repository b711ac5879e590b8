#include "unit/request/ThreadScript.h"

#include <process.h>

#include <cstring>

namespace
{

using BeginThread = uintptr_t __cdecl(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned,
                                      unsigned*);

std::atomic<CThreadScript*> g_pScript = nullptr;
BeginThread* g_pfnBegin = nullptr;
decltype(&CloseHandle) g_pfnClose = nullptr;

class CExclusive
{
public:
    explicit CExclusive(SRWLOCK& lock) : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~CExclusive() { ReleaseSRWLockExclusive(&m_lock); }
    CExclusive(const CExclusive&) = delete;
    CExclusive& operator=(const CExclusive&) = delete;

private:
    SRWLOCK& m_lock;
};

void __stdcall FakeTrace(unsigned long level, unsigned long, unsigned long, const char* text)
{
    CThreadScript* pScript = g_pScript;
    if (pScript != nullptr)
    {
        const CExclusive lock(pScript->m_recordLock);
        pScript->m_records.push_back({level, text});
        if (pScript->m_onRecord)
        {
            pScript->m_onRecord(pScript->m_records.back());
        }
    }
}

}  // namespace

// The test program stands in for the trace library.
class CFakeTraceLibrary
{
public:
    explicit CFakeTraceLibrary(HMODULE hModule)
        : m_load(hModule, "LoadLibraryW", Load), m_proc(hModule, "GetProcAddress", Proc)
    {
        s_pfnLoad = m_load.Original<HMODULE WINAPI(LPCWSTR)>();
        s_pfnProc = m_proc.Original<FARPROC WINAPI(HMODULE, LPCSTR)>();
    }

    void Forget()
    {
        m_load.Forget();
        m_proc.Forget();
    }

private:
    static HMODULE WINAPI Load(LPCWSTR pszName)
    {
        const wchar_t* pszFile = std::wcsrchr(pszName, L'\\');
        if (pszFile != nullptr && std::wcscmp(pszFile + 1, L"qnztraceX64.dll") == 0)
        {
            return s_pfnLoad(L"kernel32.dll");
        }
        return s_pfnLoad(pszName);
    }
    static FARPROC WINAPI Proc(HMODULE hModule, LPCSTR pszName)
    {
        if (reinterpret_cast<uintptr_t>(pszName) > 0xFFFF && std::strcmp(pszName, "QNZTRACERAWA") == 0)
        {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(FakeTrace));
        }
        return s_pfnProc(hModule, pszName);
    }

    static inline HMODULE(WINAPI* s_pfnLoad)(LPCWSTR) = nullptr;
    static inline FARPROC(WINAPI* s_pfnProc)(HMODULE, LPCSTR) = nullptr;

    CImportPatch m_load;
    CImportPatch m_proc;
};

namespace
{

const CFakeTraceLibrary g_traceLibrary(GetModuleHandleW(nullptr));

}  // namespace

CThreadScript::CThreadScript(HMODULE hModule)
    : m_begin(hModule, "_beginthreadex", ScriptedBegin), m_close(hModule, "CloseHandle", ScriptedClose)
{
    if (hModule != GetModuleHandleW(nullptr))
    {
        m_traceLibrary = std::make_unique<CFakeTraceLibrary>(hModule);
    }
    g_pfnBegin = m_begin.Original<BeginThread>();
    g_pfnClose = m_close.Original<BOOL WINAPI(HANDLE)>();
    m_records.reserve(256);
    g_pScript = this;
}

CThreadScript::~CThreadScript()
{
    g_pScript = nullptr;
    for (const StartCall& start : m_starts)
    {
        WaitForSingleObject(start.hDuplicate, CEvent::kPatienceMs);
        g_pfnClose(start.hDuplicate);
    }
}

void CThreadScript::Forget()
{
    m_begin.Forget();
    m_close.Forget();
    m_traceLibrary->Forget();
}

std::vector<std::string> CThreadScript::TakeTexts()
{
    const CExclusive lock(m_recordLock);
    std::vector<std::string> texts;
    for (const TraceRecord& record : m_records)
    {
        texts.push_back(std::to_string(record.level) + ":" + record.text);
    }
    m_records.clear();
    return texts;
}

int CThreadScript::CountClosed(HANDLE handle, DWORD dwThreadId) const
{
    int count = 0;
    for (LONG i = 0; i < m_cClosed; ++i)
    {
        const Closed& closed = m_closed[static_cast<size_t>(i)];
        count += closed.handle == handle && (dwThreadId == 0 || closed.dwThreadId == dwThreadId);
    }
    return count;
}

DWORD CThreadScript::ExitCode(size_t nth) const
{
    DWORD dwCode = STILL_ACTIVE;
    WaitForSingleObject(m_starts.at(nth).hDuplicate, CEvent::kPatienceMs);
    GetExitCodeThread(m_starts.at(nth).hDuplicate, &dwCode);
    return dwCode;
}

uintptr_t __cdecl CThreadScript::ScriptedBegin(void* pSecurity, unsigned stackSize,
                                               unsigned(__stdcall* pfn)(void*), void* pObject, unsigned flags,
                                               unsigned* pThreadId)
{
    CThreadScript& script = *g_pScript.load();
    StartCall call = {pSecurity, stackSize, pObject, flags, pThreadId, nullptr, nullptr};
    if (script.m_bCanStart)
    {
        call.hThread =
            reinterpret_cast<HANDLE>(g_pfnBegin(pSecurity, stackSize, pfn, pObject, flags, pThreadId));
        DuplicateHandle(GetCurrentProcess(), call.hThread, GetCurrentProcess(), &call.hDuplicate, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
    }
    script.m_starts.push_back(call);
    if (script.m_onStarted)
    {
        script.m_onStarted(call.hThread);
    }
    return reinterpret_cast<uintptr_t>(call.hThread);
}

BOOL WINAPI CThreadScript::ScriptedClose(HANDLE handle)
{
    const BOOL bClosed = g_pfnClose(handle);
    CThreadScript* pScript = g_pScript;
    if (pScript != nullptr)
    {
        const LONG i = pScript->m_cClosed++;
        if (i < kMostClosed)
        {
            pScript->m_closed[static_cast<size_t>(i)] = {handle, GetCurrentThreadId()};
        }
        if (pScript->m_onClosed)
        {
            pScript->m_onClosed(handle);
        }
    }
    return bClosed;
}
