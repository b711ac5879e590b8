// Refuses memory to this program: every allocation whose size is in the set fails.
#pragma once

#include <windows.h>

#include <set>

#include "support/ImportPatch.h"

class CRefusedMemory
{
public:
    explicit CRefusedMemory(std::initializer_list<size_t> sizes)
        : m_sizes(sizes), m_dwThread(GetCurrentThreadId())
    {
        s_pfnMalloc = m_patch.Original<void* __cdecl(size_t)>();
        s_pCurrent = this;
    }
    ~CRefusedMemory() { s_pCurrent = nullptr; }
    CRefusedMemory(const CRefusedMemory&) = delete;
    CRefusedMemory& operator=(const CRefusedMemory&) = delete;

    int Refusals() const { return m_refusals; }

private:
    static void* __cdecl Scripted(size_t cb)
    {
        if (s_pCurrent != nullptr && GetCurrentThreadId() == s_pCurrent->m_dwThread &&
            s_pCurrent->m_sizes.count(cb) != 0)
        {
            ++s_pCurrent->m_refusals;
            return nullptr;
        }
        return s_pfnMalloc(cb);
    }

    static inline void*(__cdecl* s_pfnMalloc)(size_t) = nullptr;
    static inline CRefusedMemory* s_pCurrent = nullptr;

    const std::set<size_t> m_sizes;
    const DWORD m_dwThread;
    int m_refusals = 0;
    CImportPatch m_patch{GetModuleHandleW(nullptr), "malloc", Scripted};
};
