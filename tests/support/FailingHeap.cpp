#include "support/FailingHeap.h"

CFailingHeap::CFailingHeap(unsigned first, unsigned count, HMODULE hModule)
    : CFailingHeap(first, count, {}, hModule)
{
}

CFailingHeap::CFailingHeap(std::initializer_list<size_t> sizes, HMODULE hModule)
    : CFailingHeap(1, 0, sizes, hModule)
{
}

CFailingHeap::CFailingHeap(unsigned first, unsigned count, std::initializer_list<size_t> sizes,
                           HMODULE hModule)
    : m_first(first), m_count(count), m_sizes(sizes)
{
    m_growths.reserve(64);
    if (!s_bOperators || hModule != GetModuleHandleW(nullptr))
    {
        m_malloc.emplace(hModule, "malloc", ScriptedMalloc);
        s_pfnMalloc = m_malloc->Original<decltype(ScriptedMalloc)>();
        if (CImportPatch::IsImported(hModule, "realloc"))
        {
            m_realloc.emplace(hModule, "realloc", ScriptedRealloc);
            s_pfnRealloc = m_realloc->Original<decltype(ScriptedRealloc)>();
        }
    }
    s_pCurrent = this;
}

CFailingHeap::~CFailingHeap()
{
    s_pCurrent = nullptr;
}

bool CFailingHeap::Refuses(size_t cb)
{
    CFailingHeap* const pHeap = s_pCurrent;
    if (pHeap == nullptr)
    {
        return false;
    }
    const unsigned request = ++pHeap->m_requests;
    const bool bByOrder = request >= pHeap->m_first && request - pHeap->m_first < pHeap->m_count;
    if (!bByOrder && pHeap->m_sizes.count(cb) == 0)
    {
        return false;
    }
    ++pHeap->m_refusals;
    pHeap->m_cbRefused = cb;
    return true;
}

void* __cdecl CFailingHeap::ScriptedMalloc(size_t cb)
{
    return Refuses(cb) ? nullptr : s_pfnMalloc(cb);
}

void* __cdecl CFailingHeap::ScriptedRealloc(void* block, size_t cb)
{
    if (CFailingHeap* const pHeap = s_pCurrent)
    {
        pHeap->m_growths.push_back(cb);
    }
    return Refuses(cb) ? nullptr : s_pfnRealloc(block, cb);
}
