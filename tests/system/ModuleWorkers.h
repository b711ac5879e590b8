// Keeps a handle of each worker that the built module starts while this object lives, so that a test can
// look at a worker whose own handle has gone.
#pragma once

#include <windows.h>

#include <vector>

#include "support/ImportPatch.h"
#include "system/HttpRawHost.h"

class CModuleWorkers
{
public:
    CModuleWorkers();
    ~CModuleWorkers();
    CModuleWorkers(const CModuleWorkers&) = delete;
    CModuleWorkers& operator=(const CModuleWorkers&) = delete;

    // Of the nth worker, counted from 0; STILL_ACTIVE when it does not end within kPatienceMs.
    DWORD ExitCode(size_t worker) const;
    bool IsRunning(size_t worker) const;

    // Waits until the worker stands still, as it does in a blocking call. A test that has it killed waits
    // for that: a thread that is killed on its way may hold a lock that the process needs.
    bool AwaitBlocked(size_t worker) const;

private:
    using ThreadProc = unsigned(__stdcall*)(void*);

    static std::uintptr_t __cdecl ScriptedBegin(void* pSecurity, unsigned stackSize, ThreadProc pfnProc,
                                                void* pArgument, unsigned flags, unsigned* pThreadId);

    static inline CModuleWorkers* s_pThis = nullptr;

    std::vector<HANDLE> m_handles;  // of the one thread that posts
    CImportPatch m_begin{CHttpRawHost::Module(), "_beginthreadex", ScriptedBegin};
};
