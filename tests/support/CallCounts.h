// Counts what a loaded module asks of others while it lives: each call through the module's import table, the
// memory that it asks for, and the bytes that it has copied by the C runtime, a kilobyte or more at a time:
// it is the compiler that decides about less.
#pragma once

#include <windows.h>

#include <atomic>
#include <string>
#include <vector>

#include "support/ImportPatch.h"

struct CCounts
{
    long long platformCalls = 0;   // of all libraries but the C runtime
    long long allocations = 0;     // malloc, calloc and realloc
    long long bytesAllocated = 0;  // asked for by these
    long long bytesCopied = 0;     // by memcpy and memmove, and by a realloc at worst
};

class CCallCounts
{
public:
    // What the entries lead to at this moment is called as before. Make one while no other thread calls it.
    explicit CCallCounts(HMODULE hModule);
    ~CCallCounts();
    CCallCounts(const CCallCounts&) = delete;
    CCallCounts& operator=(const CCallCounts&) = delete;

    // Both are to be read when the module's threads have ended.
    CCounts Counts() const;
    // Calls by name, for a person who looks for what has grown.
    std::string Text() const;

private:
    struct Slot;

    void AddMemoryFunctions();
    static void AddSize(size_t cbAllocated, size_t cbCopied);

    static void* __cdecl CountedMalloc(size_t cb);
    static void* __cdecl CountedCalloc(size_t count, size_t cb);
    static void* __cdecl CountedRealloc(void* block, size_t cb);
    static void* __cdecl CountedMemcpy(void* to, const void* from, size_t cb);
    static void* __cdecl CountedMemmove(void* to, const void* from, size_t cb);

    static inline std::atomic<CCallCounts*> s_pCurrent = nullptr;

    CImportPatches m_memory;
    Slot* m_pSlots = nullptr;
    struct Entry
    {
        std::string name;
        bool bPlatform;
        void** ppEntry;
        const Slot* pSlot;
    };
    std::vector<Entry> m_entries;
    std::atomic<long long> m_allocations{0};
    std::atomic<long long> m_bytesAllocated{0};
    std::atomic<long long> m_bytesCopied{0};
};
