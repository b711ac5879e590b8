#include "system/ModuleTrace.h"

#include <cstring>

CModuleTrace::CModuleTrace()
{
    s_pThis = this;
}

CModuleTrace::~CModuleTrace()
{
    AcquireSRWLockExclusive(&m_lock);
    s_pThis = nullptr;
    ReleaseSRWLockExclusive(&m_lock);
}

// The program itself stands for the library: it stays loaded when the module frees it.
HMODULE CModuleTrace::ScriptedLoadLibrary(LPCWSTR pszPath)
{
    return std::wstring(pszPath).ends_with(L"\\qnztraceX64.dll")
               ? GetModuleHandleW(nullptr)
               : s_pThis->m_load.Original<decltype(LoadLibraryW)>()(pszPath);
}

FARPROC CModuleTrace::ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName)
{
    return hModule == GetModuleHandleW(nullptr) && std::strcmp(pszName, "QNZTRACERAWA") == 0
               ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Keep))
               : s_pThis->m_find.Original<decltype(GetProcAddress)>()(hModule, pszName);
}

// The module writes through this address to its end, also when the object has gone.
void CModuleTrace::Keep(unsigned long level, unsigned long, unsigned long, const char* text)
{
    if (s_pThis != nullptr)
    {
        AcquireSRWLockExclusive(&s_pThis->m_lock);
        s_pThis->m_records.push_back({GetCurrentThreadId(), std::to_string(level) + "|" + text});
        ReleaseSRWLockExclusive(&s_pThis->m_lock);
    }
}

std::vector<std::string> CModuleTrace::Select(bool bThisThread) const
{
    std::vector<std::string> texts;
    AcquireSRWLockShared(&m_lock);
    for (const Record& record : m_records)
    {
        if ((record.dwThreadId == GetCurrentThreadId()) == bThisThread)
        {
            texts.push_back(record.text);
        }
    }
    ReleaseSRWLockShared(&m_lock);
    return texts;
}
