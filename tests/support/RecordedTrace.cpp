#include "support/RecordedTrace.h"

#include <cstring>

#include "support/CallText.h"

namespace
{

constexpr wchar_t kLibrary[] = L"qnztraceX64.dll";
constexpr char kExport[] = "QNZTRACERAWA";

}  // namespace

CRecordedTrace::CRecordedTrace(HMODULE hModule) : m_imports(hModule)
{
    Attach(m_imports);
    s_pCurrent = this;
}

CRecordedTrace::CRecordedTrace(CJournal& journal) : m_pJournal(&journal)
{
    s_pCurrent = this;
}

CRecordedTrace::~CRecordedTrace()
{
    const std::lock_guard lock(m_mutex);
    s_pCurrent = nullptr;
}

void CRecordedTrace::Attach(CImportPatches& imports)
{
    s_pfnLoadLibrary = imports.Add("LoadLibraryW", ScriptedLoadLibrary);
    s_pfnFreeLibrary = imports.AddIfImported("FreeLibrary", ScriptedFreeLibrary);
    s_pfnGetProcAddress = imports.Add("GetProcAddress", ScriptedGetProcAddress);
    s_pfnGetModuleHandle = imports.Add("GetModuleHandleW", ScriptedGetModuleHandle);
}

std::vector<std::string> CRecordedTrace::Select(bool bThisThread) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> texts;
    for (const auto& [dwThreadId, text] : m_byThread)
    {
        if ((dwThreadId == GetCurrentThreadId()) == bThisThread)
        {
            texts.push_back(text);
        }
    }
    return texts;
}

void CRecordedTrace::Add(CallKind kind, const std::string& text)
{
    if (m_pJournal != nullptr)
    {
        m_pJournal->Add(kind, text);
    }
}

void __stdcall CRecordedTrace::Write(unsigned long level, unsigned long second, unsigned long third,
                                     const char* text)
{
    CRecordedTrace* const pTrace = s_pCurrent;
    if (pTrace == nullptr)
    {
        return;
    }
    const std::string zeros = second == 0 && third == 0 ? "" : "(nonzero)";
    const std::string record = std::to_string(level) + zeros + "|" + text;
    {
        const std::lock_guard lock(pTrace->m_mutex);
        pTrace->m_records.push_back(record);
        pTrace->m_byThread.emplace_back(GetCurrentThreadId(), record);
    }
    if (pTrace->m_onRecord)
    {
        pTrace->m_onRecord(record);
    }
    pTrace->Add(CALL_TRACE, record);
}

HMODULE WINAPI CRecordedTrace::ScriptedLoadLibrary(LPCWSTR pszPath)
{
    CRecordedTrace* const pTrace = s_pCurrent;
    if (pTrace == nullptr || !std::wstring(pszPath).ends_with(std::wstring(L"\\") + kLibrary))
    {
        return s_pfnLoadLibrary(pszPath);
    }
    pTrace->Add(CALL_LIBRARY, CallText("LoadLibraryW", {Quoted(pszPath)}));
    pTrace->m_bLoaded = pTrace->m_bFound;
    return pTrace->m_bFound ? Handle() : nullptr;
}

BOOL WINAPI CRecordedTrace::ScriptedFreeLibrary(HMODULE hModule)
{
    CRecordedTrace* const pTrace = s_pCurrent;
    if (pTrace == nullptr || hModule != Handle())
    {
        return s_pfnFreeLibrary(hModule);
    }
    pTrace->Add(CALL_LIBRARY, CallText("FreeLibrary", {"trace"}));
    pTrace->m_bLoaded = false;
    return TRUE;
}

FARPROC WINAPI CRecordedTrace::ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName)
{
    CRecordedTrace* const pTrace = s_pCurrent;
    // A name may be a number instead.
    if (pTrace == nullptr || reinterpret_cast<ULONG_PTR>(pszName) <= 0xFFFF ||
        std::strcmp(pszName, kExport) != 0)
    {
        return s_pfnGetProcAddress(hModule, pszName);
    }
    pTrace->Add(CALL_LIBRARY,
                CallText("GetProcAddress", {hModule == Handle() ? "trace" : "another", pszName}));
    return pTrace->m_exports.Next() ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(Write)) : nullptr;
}

HMODULE WINAPI CRecordedTrace::ScriptedGetModuleHandle(LPCWSTR pszName)
{
    CRecordedTrace* const pTrace = s_pCurrent;
    if (pTrace != nullptr && pszName != nullptr && std::wstring(pszName) == kLibrary)
    {
        pTrace->Add(CALL_LIBRARY, CallText("GetModuleHandleW", {Quoted(pszName)}));
    }
    return s_pfnGetModuleHandle(pszName);
}
