// Stands in for the trace library beside the product, and keeps the records that it writes, from all its
// threads. The product looks for the library once in its life: make this before its first record.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/ImportPatch.h"
#include "support/Journal.h"
#include "support/Mutex.h"
#include "support/Script.h"

class CRecordedTrace
{
public:
    // The library of this test program, or of a module that it has loaded.
    explicit CRecordedTrace(HMODULE hModule = GetModuleHandleW(nullptr));
    // The library of the modules that Attach is given. Records and what else is asked of it go to the
    // journal, too.
    explicit CRecordedTrace(CJournal& journal);
    ~CRecordedTrace();
    CRecordedTrace(const CRecordedTrace&) = delete;
    CRecordedTrace& operator=(const CRecordedTrace&) = delete;

    void Attach(CImportPatches& imports);

    static HMODULE Handle() { return reinterpret_cast<HMODULE>(INT_PTR{0x7ACE0000}); }

    bool m_bFound = true;
    CScript<bool> m_exports{true};  // whether the export is found
    bool IsLoaded() const { return m_bLoaded; }

    // "level|text" each, in their order. To be read when no other thread of the product writes.
    std::vector<std::string> m_records;
    std::vector<std::string> Take() { return std::exchange(m_records, {}); }
    // The same at any time: those of the calling thread, and those of all others, whose order between
    // threads is chance.
    std::vector<std::string> OfThisThread() const { return Select(true); }
    std::vector<std::string> OfWorkers() const { return Select(false); }

    // Runs within each record, on the thread that writes it.
    std::function<void(const std::string& record)> m_onRecord;

    // The library's export.
    static void __stdcall Write(unsigned long level, unsigned long second, unsigned long third,
                                const char* text);

private:
    static HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR pszPath);
    static BOOL WINAPI ScriptedFreeLibrary(HMODULE hModule);
    static FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName);
    static HMODULE WINAPI ScriptedGetModuleHandle(LPCWSTR pszName);
    void Add(CallKind kind, const std::string& text);
    std::vector<std::string> Select(bool bThisThread) const;

    // The product may look for it, or write, before and after the life of this object.
    static inline std::atomic<CRecordedTrace*> s_pCurrent = nullptr;
    static inline decltype(&LoadLibraryW) s_pfnLoadLibrary = nullptr;
    static inline decltype(&FreeLibrary) s_pfnFreeLibrary = nullptr;
    static inline decltype(&GetProcAddress) s_pfnGetProcAddress = nullptr;
    static inline decltype(&GetModuleHandleW) s_pfnGetModuleHandle = nullptr;

    CJournal* m_pJournal = nullptr;
    std::atomic<bool> m_bLoaded{false};
    mutable CMutex m_mutex;
    std::vector<std::pair<DWORD, std::string>> m_byThread;
    CImportPatches m_imports;
};

// The record of a text without variables, at the level of progress.
inline std::string Progress(const std::string& text)
{
    return "2| " + text + ",\n";
}
