#include "support/RecordedTrace.h"

#include <cstring>

namespace
{

CRecordedTrace* g_pTrace = nullptr;

void __stdcall Record(unsigned long level, unsigned long second, unsigned long third, const char* text)
{
    if (g_pTrace != nullptr)
    {
        const std::string prefix = second == 0 && third == 0 ? "" : "arguments that are not zero|";
        g_pTrace->m_records.push_back(prefix + std::to_string(level) + "|" + text);
    }
}

bool IsTraceLibrary(const std::wstring& path)
{
    const std::wstring name = L"\\qnztraceX64.dll";
    return path.size() > name.size() && path.compare(path.size() - name.size(), name.size(), name) == 0;
}

}  // namespace

CRecordedTrace::CRecordedTrace()
    : m_load(GetModuleHandleW(nullptr), "LoadLibraryW", ScriptedLoadLibrary),
      m_find(GetModuleHandleW(nullptr), "GetProcAddress", ScriptedGetProcAddress)
{
    g_pTrace = this;
}

CRecordedTrace::~CRecordedTrace()
{
    g_pTrace = nullptr;
}

// The program itself stands for the library: freeing it at the end of the process does nothing.
HMODULE CRecordedTrace::ScriptedLoadLibrary(LPCWSTR pszPath)
{
    return IsTraceLibrary(pszPath) ? GetModuleHandleW(nullptr)
                                   : g_pTrace->m_load.Original<decltype(LoadLibraryW)>()(pszPath);
}

FARPROC CRecordedTrace::ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName)
{
    return std::strcmp(pszName, "QNZTRACERAWA") == 0
               ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Record))
               : g_pTrace->m_find.Original<decltype(GetProcAddress)>()(hModule, pszName);
}
