// Records how the product reads the registry; the calls go on to the registry itself. Make it behind the
// hives of a test, and set their values before: whatever this program opens, reads or closes is recorded.
#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/ImportPatch.h"

class CRecordedRegistry
{
public:
    CRecordedRegistry();
    ~CRecordedRegistry();
    CRecordedRegistry(const CRecordedRegistry&) = delete;
    CRecordedRegistry& operator=(const CRecordedRegistry&) = delete;

    // How a root is called in the records, besides HKCU and HKCR.
    void NameRoot(HKEY hKey, const std::string& name) { m_names[hKey] = name; }

    // "Open(root, subkey, access)", "Query(value, size)", "Close", in their order.
    std::vector<std::string> m_calls;

    // Gets every call as it comes, when there is one.
    std::function<void(const std::string&)> m_onCall;

    // Keys that were opened and not closed.
    size_t OpenKeys() const { return m_open.size(); }

private:
    static LSTATUS WINAPI ScriptedOpen(HKEY hRoot, LPCWSTR pszSubkey, DWORD dwOptions, REGSAM access,
                                       PHKEY phKey);
    static LSTATUS WINAPI ScriptedQuery(HKEY hKey, LPCWSTR pszName, LPDWORD pdwReserved, LPDWORD pdwType,
                                        LPBYTE pData, LPDWORD pcbData);
    static LSTATUS WINAPI ScriptedClose(HKEY hKey);

    void Add(const std::string& call);

    std::map<HKEY, std::string> m_names;
    std::map<HKEY, int> m_open;
    CImportPatch m_openPatch;
    CImportPatch m_queryPatch;
    CImportPatch m_closePatch;
};
