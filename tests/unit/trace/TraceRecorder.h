// A trace library that is "loaded" by scripting the platform calls of the test program, and keeps what
// reaches its export. GetTraceProc keeps what it found for the life of the process: a test that needs the
// first lookup runs in a process of its own, as ctest runs every test.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "support/ImportPatch.h"
#include "unit/trace/LibraryScript.h"

struct TraceCall
{
    unsigned long level;
    unsigned long second;
    unsigned long third;
    std::string text;
};

class CTraceRecorder
{
public:
    CTraceRecorder()
    {
        s_pThis = this;
        m_library.hLoaded = CLibraryScript::Handle(0x51);
    }
    CTraceRecorder(const CTraceRecorder&) = delete;
    CTraceRecorder& operator=(const CTraceRecorder&) = delete;

    CLibraryScript& Library() { return m_library; }
    bool hasExport = true;

    const std::vector<TraceCall>& Records() const { return m_records; }
    // The texts as one.
    std::string Text() const
    {
        std::string text;
        for (const TraceCall& record : m_records)
        {
            text += record.text;
        }
        return text;
    }
    void Forget() { m_records.clear(); }

    // Names looked up in the library.
    const std::vector<std::string>& Lookups() const { return m_lookups; }
    // Addresses whose module was asked for.
    const std::vector<const void*>& Queries() const { return m_queries; }

    static void __stdcall Export(unsigned long level, unsigned long second, unsigned long third,
                                 const char* text)
    {
        s_pThis->m_records.push_back({level, second, third, text});
    }

private:
    static FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR name)
    {
        if (hModule != CLibraryScript::Handle(0x51))
        {
            return s_pThis->m_procAddress.Original<decltype(ScriptedGetProcAddress)>()(hModule, name);
        }
        s_pThis->m_lookups.emplace_back(name);
        return s_pThis->hasExport ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Export)) : nullptr;
    }

    static SIZE_T WINAPI ScriptedVirtualQuery(LPCVOID address, PMEMORY_BASIC_INFORMATION pInformation,
                                              SIZE_T cb)
    {
        const SIZE_T cbWritten =
            s_pThis->m_virtualQuery.Original<decltype(ScriptedVirtualQuery)>()(address, pInformation, cb);
        s_pThis->m_queries.push_back(address);
        pInformation->AllocationBase = CLibraryScript::Handle(0x33);
        return cbWritten;
    }

    static inline CTraceRecorder* s_pThis = nullptr;
    std::vector<TraceCall> m_records;
    std::vector<std::string> m_lookups;
    std::vector<const void*> m_queries;
    CLibraryScript m_library;
    CImportPatch m_procAddress{GetModuleHandleW(nullptr), "GetProcAddress", ScriptedGetProcAddress};
    CImportPatch m_virtualQuery{GetModuleHandleW(nullptr), "VirtualQuery", ScriptedVirtualQuery};
};
