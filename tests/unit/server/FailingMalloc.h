// Makes one allocation of a module fail, so that a test sees what it does without memory. Raising the
// exception of the C++ runtime allocates too: only the one allocation fails, everything after it works.
#pragma once

#include <windows.h>

#include <cstddef>

#include "support/ImportPatch.h"

class CFailingMalloc
{
public:
    explicit CFailingMalloc(HMODULE hModule) : m_patch(hModule, "malloc", Scripted)
    {
        s_pfnMalloc = m_patch.Original<void* __cdecl(size_t)>();
        s_dwThreadId = GetCurrentThreadId();
        s_bArmed = false;
        s_cbFailed = 0;
    }

    // The next allocation of the calling thread fails.
    void FailNext() { s_bArmed = true; }

    // True when the allocation that was to fail has been asked for.
    bool HasFailed() const { return !s_bArmed && s_cbFailed != 0; }

    size_t FailedSize() const { return s_cbFailed; }

private:
    static void* __cdecl Scripted(size_t cb)
    {
        if (s_bArmed && GetCurrentThreadId() == s_dwThreadId)
        {
            s_bArmed = false;
            s_cbFailed = cb;
            return nullptr;
        }
        return s_pfnMalloc(cb);
    }

    static inline void*(__cdecl* s_pfnMalloc)(size_t) = nullptr;
    static inline DWORD s_dwThreadId = 0;
    static inline bool s_bArmed = false;
    static inline size_t s_cbFailed = 0;

    CImportPatch m_patch;
};
