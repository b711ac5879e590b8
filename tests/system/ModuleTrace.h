// Stands for the trace library beside the built module and keeps what the module writes. Make it before
// the module's first record: the module looks for the library once.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "system/HttpRawHost.h"

class CModuleTrace
{
public:
    CModuleTrace();
    ~CModuleTrace();
    CModuleTrace(const CModuleTrace&) = delete;
    CModuleTrace& operator=(const CModuleTrace&) = delete;

    // "level|text" each, in their order: those of the calling thread, or those of the module's workers.
    // Their order between threads is chance.
    std::vector<std::string> OfThisThread() const { return Select(true); }
    std::vector<std::string> OfWorkers() const { return Select(false); }

private:
    struct Record
    {
        DWORD dwThreadId;
        std::string text;
    };

    static HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR pszPath);
    static FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName);
    static void __stdcall Keep(unsigned long level, unsigned long, unsigned long, const char* text);
    std::vector<std::string> Select(bool bThisThread) const;

    static inline CModuleTrace* s_pThis = nullptr;

    mutable SRWLOCK m_lock = SRWLOCK_INIT;  // around the records
    std::vector<Record> m_records;
    CImportPatch m_load{CHttpRawHost::Module(), "LoadLibraryW", ScriptedLoadLibrary};
    CImportPatch m_find{CHttpRawHost::Module(), "GetProcAddress", ScriptedGetProcAddress};
};
