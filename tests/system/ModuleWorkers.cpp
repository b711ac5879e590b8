#include "system/ModuleWorkers.h"

#include <process.h>

namespace
{

constexpr int kStillLooks = 4;
constexpr DWORD kLookMs = 10;

struct Place
{
    DWORD64 instruction = 0;
    DWORD64 stack = 0;
    bool operator==(const Place&) const = default;
};

Place PlaceOf(HANDLE hThread)
{
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    SuspendThread(hThread);
    GetThreadContext(hThread, &context);
    ResumeThread(hThread);
    return {context.Rip, context.Rsp};
}

}  // namespace

CModuleWorkers::CModuleWorkers()
{
    s_pThis = this;
}

CModuleWorkers::~CModuleWorkers()
{
    for (const HANDLE hThread : m_handles)
    {
        CloseHandle(hThread);
    }
    s_pThis = nullptr;
}

DWORD CModuleWorkers::ExitCode(size_t worker) const
{
    DWORD dwCode = STILL_ACTIVE;
    WaitForSingleObject(m_handles.at(worker), kPatienceMs);
    GetExitCodeThread(m_handles.at(worker), &dwCode);
    return dwCode;
}

bool CModuleWorkers::IsRunning(size_t worker) const
{
    return WaitForSingleObject(m_handles.at(worker), 0) == WAIT_TIMEOUT;
}

bool CModuleWorkers::AwaitBlocked(size_t worker) const
{
    const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
    Place last;
    for (int looks = 0; looks < kStillLooks;)
    {
        Sleep(kLookMs);
        const Place place = PlaceOf(m_handles.at(worker));
        looks = place == last ? looks + 1 : 0;
        last = place;
        if (!IsRunning(worker) || GetTickCount64() >= deadline)
        {
            return false;
        }
    }
    return true;
}

std::uintptr_t __cdecl CModuleWorkers::ScriptedBegin(void* pSecurity, unsigned stackSize, ThreadProc pfnProc,
                                                     void* pArgument, unsigned flags, unsigned* pThreadId)
{
    // The worker cannot close its handle yet: the module holds the worker's lock until this returns.
    const std::uintptr_t thread = _beginthreadex(pSecurity, stackSize, pfnProc, pArgument, flags, pThreadId);
    HANDLE hDuplicate = nullptr;
    DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(thread), GetCurrentProcess(), &hDuplicate,
                    0, FALSE, DUPLICATE_SAME_ACCESS);
    s_pThis->m_handles.push_back(hDuplicate);
    return thread;
}
