// Refuses memory while it lives, to this test program or to a module that it has loaded: what is asked for
// through malloc and realloc, or, in programs with operators new of their own, through these. The test
// framework asks for memory, too: take results inside its scope and look at them outside.
#pragma once

#include <windows.h>

#include <atomic>
#include <initializer_list>
#include <limits>
#include <optional>
#include <set>
#include <vector>

#include "support/ImportPatch.h"

class CFailingHeap
{
public:
    // Refuses count requests from the first-th on (counted from 1).
    explicit CFailingHeap(unsigned first = 1, unsigned count = std::numeric_limits<unsigned>::max(),
                          HMODULE hModule = GetModuleHandleW(nullptr));
    // Refuses every request of one of these sizes, in bytes.
    explicit CFailingHeap(std::initializer_list<size_t> sizes, HMODULE hModule = GetModuleHandleW(nullptr));
    ~CFailingHeap();
    CFailingHeap(const CFailingHeap&) = delete;
    CFailingHeap& operator=(const CFailingHeap&) = delete;

    // Requests so far, refused ones included.
    unsigned Requests() const { return m_requests; }
    int Refusals() const { return m_refusals; }
    // The size that was refused last.
    size_t RefusedSize() const { return m_cbRefused; }
    // The sizes that realloc was asked for. To be read when no other thread asks any more.
    const std::vector<size_t>& Growths() const { return m_growths; }

    // For a program's own operators new: each request asks, and malloc is left alone in that program, since
    // raising an exception needs it.
    static bool Refuses(size_t cb);
    static bool UseOperators() { return s_bOperators = true; }

private:
    CFailingHeap(unsigned first, unsigned count, std::initializer_list<size_t> sizes, HMODULE hModule);

    static void* __cdecl ScriptedMalloc(size_t cb);
    static void* __cdecl ScriptedRealloc(void* block, size_t cb);

    static inline bool s_bOperators = false;
    static inline std::atomic<CFailingHeap*> s_pCurrent = nullptr;
    static inline void*(__cdecl* s_pfnMalloc)(size_t) = nullptr;
    static inline void*(__cdecl* s_pfnRealloc)(void*, size_t) = nullptr;

    const unsigned m_first;
    const unsigned m_count;
    const std::set<size_t> m_sizes;
    std::atomic<unsigned> m_requests{0};
    std::atomic<int> m_refusals{0};
    std::atomic<size_t> m_cbRefused{0};
    std::vector<size_t> m_growths;
    std::optional<CImportPatch> m_malloc;
    std::optional<CImportPatch> m_realloc;
};
