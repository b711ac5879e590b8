#include "unit/proxy/RecordedRegistry.h"

#include <cstdio>

namespace
{

CRecordedRegistry* g_pRegistry = nullptr;

std::string Narrow(const wchar_t* text)
{
    std::string narrow;
    for (; text != nullptr && *text != L'\0'; ++text)
    {
        narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
    }
    return narrow;
}

}  // namespace

CRecordedRegistry::CRecordedRegistry()
    : m_names{{HKEY_CURRENT_USER, "HKCU"}, {HKEY_CLASSES_ROOT, "HKCR"}},
      m_openPatch(GetModuleHandleW(nullptr), "RegOpenKeyExW", ScriptedOpen),
      m_queryPatch(GetModuleHandleW(nullptr), "RegQueryValueExW", ScriptedQuery),
      m_closePatch(GetModuleHandleW(nullptr), "RegCloseKey", ScriptedClose)
{
    g_pRegistry = this;
}

CRecordedRegistry::~CRecordedRegistry()
{
    g_pRegistry = nullptr;
}

void CRecordedRegistry::Add(const std::string& call)
{
    m_calls.push_back(call);
    if (m_onCall)
    {
        m_onCall(call);
    }
}

LSTATUS CRecordedRegistry::ScriptedOpen(HKEY hRoot, LPCWSTR pszSubkey, DWORD dwOptions, REGSAM access,
                                        PHKEY phKey)
{
    char szAccess[32] = {};
    std::snprintf(szAccess, sizeof(szAccess), "0x%lX", access);
    const auto name = g_pRegistry->m_names.find(hRoot);
    g_pRegistry->Add("Open(" + (name != g_pRegistry->m_names.end() ? name->second : "another") + ", " +
                     Narrow(pszSubkey) + ", " + szAccess + (dwOptions == 0 ? ")" : ", with options)"));
    const LSTATUS status = g_pRegistry->m_openPatch.Original<decltype(RegOpenKeyExW)>()(
        hRoot, pszSubkey, dwOptions, access, phKey);
    if (status == ERROR_SUCCESS)
    {
        ++g_pRegistry->m_open[*phKey];
    }
    return status;
}

LSTATUS CRecordedRegistry::ScriptedQuery(HKEY hKey, LPCWSTR pszName, LPDWORD pdwReserved, LPDWORD pdwType,
                                         LPBYTE pData, LPDWORD pcbData)
{
    g_pRegistry->Add("Query(" + Narrow(pszName) + ", " + std::to_string(*pcbData) + ")");
    return g_pRegistry->m_queryPatch.Original<decltype(RegQueryValueExW)>()(hKey, pszName, pdwReserved,
                                                                            pdwType, pData, pcbData);
}

LSTATUS CRecordedRegistry::ScriptedClose(HKEY hKey)
{
    const bool bOpen = g_pRegistry->m_open.count(hKey) != 0;
    g_pRegistry->Add(bOpen ? "Close" : "Close of a key that was not opened here");
    if (bOpen && --g_pRegistry->m_open[hKey] == 0)
    {
        g_pRegistry->m_open.erase(hKey);
    }
    return g_pRegistry->m_closePatch.Original<decltype(RegCloseKey)>()(hKey);
}
