#include "unit/request/ThreadScript.h"

#include <process.h>

namespace
{

using BeginThread = uintptr_t __cdecl(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned,
                                      unsigned*);

std::atomic<CThreadScript*> g_pScript = nullptr;
BeginThread* g_pfnBegin = nullptr;
decltype(&CloseHandle) g_pfnClose = nullptr;

}  // namespace

CThreadScript::CThreadScript(HMODULE hModule)
    : m_begin(hModule, "_beginthreadex", ScriptedBegin), m_close(hModule, "CloseHandle", ScriptedClose)
{
    g_pfnBegin = m_begin.Original<BeginThread>();
    g_pfnClose = m_close.Original<BOOL WINAPI(HANDLE)>();
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
