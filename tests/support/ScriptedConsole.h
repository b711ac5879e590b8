// Scripts what this test program asks for on the way to the console user's hive: processes, tokens,
// sessions and the profile loader, with the libraries and entry points behind them. Every call is written
// to Calls in its order. Handles are made up; closing one that is not open is written down as a fault, and
// so is unloading a profile with one. What a failing call hands out is garbage. Calls may come from several
// threads; everything else is the test's own thread's.
#pragma once

#include <windows.h>

#include <userenv.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/Mutex.h"

struct CScriptedProcess
{
    DWORD dwId;
    const wchar_t* pszPath;  // null: the path cannot be had
    DWORD dwSession;
    bool bOpens = true;
    bool bTokenOpens = true;
    bool bSessionKnown = true;
};

class CScriptedConsole
{
public:
    // A user at console session 1, whose shell is process 20, and a profile loader that works.
    CScriptedConsole() : CScriptedConsole(nullptr) {}
    // The same for a module that this program has loaded; it stays scripted until it is unloaded.
    explicit CScriptedConsole(CImportPatches& imports) : CScriptedConsole(&imports) {}
    ~CScriptedConsole();
    CScriptedConsole(const CScriptedConsole&) = delete;
    CScriptedConsole& operator=(const CScriptedConsole&) = delete;

    DWORD m_dwConsoleSession = 1;
    std::vector<CScriptedProcess> m_processes;
    bool m_bEnumerates = true;
    DWORD m_cbEnumerated = 0;  // when not 0, reported in place of the true size

    std::set<std::string> m_missingEntryPoints;
    std::set<std::wstring> m_missingLibraries;  // file names
    bool m_bKernel32Missing = false;

    DWORD m_dwImpersonationError = ERROR_SUCCESS;
    DWORD m_dwProfileError = ERROR_SUCCESS;
    HKEY m_hHive = nullptr;
    std::wstring m_userName = L"hostaccount";
    bool m_bUserNameFails = false;
    PROFILEINFOW m_profile = {};  // as the loader got it
    std::wstring m_profileUser;   // the name in it

    // Gets every call as it comes, on its thread, when there is one.
    std::function<void(const std::string&)> m_onCall;

    // All calls; those that do not look for libraries and entry points; the texts for the debugger.
    const std::vector<std::string>& Calls() const { return m_calls; }
    std::vector<std::string> Steps() const;
    std::vector<std::string> DebugTexts() const;
    void ClearCalls() { m_calls.clear(); }
    std::vector<std::string> OpenHandles() const;

    static HANDLE ProcessHandle(DWORD dwId);
    static HANDLE TokenHandle(DWORD dwId);

private:
    explicit CScriptedConsole(CImportPatches* pImports);

    struct Platform;

    void Add(const std::string& call);
    std::string Name(HANDLE handle) const;
    const CScriptedProcess* Find(HANDLE handle) const;
    void Open(HANDLE handle, const std::string& name);
    bool IsOpen(HANDLE handle) const;
    // Once; false when it is not open.
    bool Close(HANDLE handle);

    CImportPatches m_own;
    mutable CMutex m_mutex;  // guards what follows, and the profile
    std::vector<std::string> m_calls;
    std::map<HANDLE, std::string> m_names;  // of every handle that was ever handed out
    std::multiset<HANDLE> m_open;           // once for each time that it was opened
};
