#include "support/CallCounts.h"

#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <map>

namespace
{

constexpr size_t kMostImports = 1024;
constexpr size_t kSmallCopy = 1024;

// lock inc qword ptr [rip + 8]; jmp qword ptr [rip + 10]: counts and goes on, with every register as it was.
constexpr unsigned char kCountAndJump[16] = {0xF0, 0x48, 0xFF, 0x05, 8, 0, 0,    0,
                                             0xFF, 0x25, 10,   0,    0, 0, 0xCC, 0xCC};

// Not so the C runtime's variables.
bool IsCode(const void* pAddress)
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQuery(pAddress, &information, sizeof(information));
    return (information.Protect &
            (PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY)) != 0;
}

bool IsRuntime(const char* pszLibrary)
{
    return _strnicmp(pszLibrary, "msvcr", 5) == 0 || _strnicmp(pszLibrary, "ucrt", 4) == 0 ||
           _strnicmp(pszLibrary, "api-ms-win-crt", 14) == 0;
}

}  // namespace

struct CCallCounts::Slot
{
    unsigned char code[sizeof(kCountAndJump)];
    long long calls;
    void* pTarget;
};

CCallCounts::CCallCounts(HMODULE hModule) : m_memory(hModule)
{
    s_pCurrent = this;
    AddMemoryFunctions();
    m_pSlots = static_cast<Slot*>(
        VirtualAlloc(nullptr, kMostImports * sizeof(Slot), MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    Slot* pSlot = m_pSlots;
    CImportPatch::ForEach(hModule,
                          [&](const char* pszLibrary, const char* pszFunction, void** ppEntry)
                          {
                              if (!IsCode(*ppEntry) || pSlot == m_pSlots + kMostImports)
                              {
                                  return;
                              }
                              std::memcpy(pSlot->code, kCountAndJump, sizeof(kCountAndJump));
                              pSlot->pTarget = *ppEntry;
                              CImportPatch::Write(ppEntry, pSlot);
                              m_entries.push_back({pszFunction, !IsRuntime(pszLibrary), ppEntry, pSlot++});
                          });
}

CCallCounts::~CCallCounts()
{
    for (const Entry& entry : m_entries)
    {
        CImportPatch::Write(entry.ppEntry, entry.pSlot->pTarget);
    }
    VirtualFree(m_pSlots, 0, MEM_RELEASE);
    s_pCurrent = nullptr;
}

void CCallCounts::AddMemoryFunctions()
{
    m_memory.AddIfImported("malloc", CountedMalloc);
    m_memory.AddIfImported("calloc", CountedCalloc);
    m_memory.AddIfImported("realloc", CountedRealloc);
    m_memory.AddIfImported("memcpy", CountedMemcpy);
    m_memory.AddIfImported("memmove", CountedMemmove);
}

CCounts CCallCounts::Counts() const
{
    CCounts counts = {0, m_allocations, m_bytesAllocated, m_bytesCopied};
    for (const Entry& entry : m_entries)
    {
        counts.platformCalls += entry.bPlatform ? entry.pSlot->calls : 0;
    }
    return counts;
}

std::string CCallCounts::Text() const
{
    std::map<std::string, long long> calls;
    for (const Entry& entry : m_entries)
    {
        calls[entry.name] += entry.pSlot->calls;
    }
    std::string text;
    for (const auto& [name, count] : calls)
    {
        text += count == 0 ? "" : name + " " + std::to_string(count) + "\n";
    }
    return text;
}

void CCallCounts::AddSize(size_t cbAllocated, size_t cbCopied)
{
    if (CCallCounts* const pCounts = s_pCurrent)
    {
        pCounts->m_allocations += cbAllocated != 0;
        pCounts->m_bytesAllocated += static_cast<long long>(cbAllocated);
        pCounts->m_bytesCopied += static_cast<long long>(cbCopied < kSmallCopy ? 0 : cbCopied);
    }
}

void* __cdecl CCallCounts::CountedMalloc(size_t cb)
{
    AddSize(cb, 0);
    return malloc(cb);
}

void* __cdecl CCallCounts::CountedCalloc(size_t count, size_t cb)
{
    AddSize(count * cb, 0);
    return calloc(count, cb);
}

void* __cdecl CCallCounts::CountedRealloc(void* block, size_t cb)
{
    AddSize(cb, block != nullptr ? std::min(_msize(block), cb) : 0);
    return realloc(block, cb);
}

void* __cdecl CCallCounts::CountedMemcpy(void* to, const void* from, size_t cb)
{
    AddSize(0, cb);
    return std::memcpy(to, from, cb);
}

void* __cdecl CCallCounts::CountedMemmove(void* to, const void* from, size_t cb)
{
    AddSize(0, cb);
    return std::memmove(to, from, cb);
}
