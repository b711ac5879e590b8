// A WinINet that a test scripts: what each attempt answers is set beforehand, every call is written to
// the journal, and handles are made up. It is stricter than the platform: what it hands out through a
// pointer on a failing call is garbage, and a handle that is used or closed after its close is reported
// by Faults. Splitting URLs stays the platform's own work.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/Journal.h"
#include "support/Mutex.h"
#include "support/Script.h"

// In place of an error code: the call succeeds.
inline constexpr DWORD kSucceeds = 0xFFFFFFFF;

struct CScriptedAttempt
{
    DWORD dwSendError = kSucceeds;
    // Absent: the query for it fails.
    std::optional<std::wstring> status = L"200";
    std::optional<std::wstring> location = std::nullopt;
};

struct CScriptedRead
{
    std::string data;  // empty: the end of the body; longer than asked: the rest comes next
    DWORD dwError = kSucceeds;
    bool bBlocks = false;  // until the request handle is closed; then it fails
};

class CScriptedWinInet
{
public:
    explicit CScriptedWinInet(CJournal& journal);
    ~CScriptedWinInet();
    CScriptedWinInet(const CScriptedWinInet&) = delete;
    CScriptedWinInet& operator=(const CScriptedWinInet&) = delete;

    void Attach(CImportPatches& imports);

    static CScriptedAttempt FailingSend(DWORD dwError) { return {dwError, std::nullopt, std::nullopt}; }
    static CScriptedAttempt Answer(const wchar_t* status) { return {kSucceeds, status, std::nullopt}; }
    static CScriptedAttempt Redirect(const wchar_t* status, const std::wstring& location)
    {
        return {kSucceeds, status, location};
    }

    bool m_bConnected = true;
    bool m_bOptionsCanBeSet = true;
    CScript<DWORD> m_sessions{kSucceeds};
    CScript<DWORD> m_connects{kSucceeds};
    CScript<DWORD> m_opens{kSucceeds};
    CScript<CScriptedAttempt> m_attempts{CScriptedAttempt{}};
    CScript<CScriptedRead> m_reads{CScriptedRead{}};
    CScript<DWORD> m_dialogs{ERROR_CANCELLED};
    CScript<std::optional<DWORD>> m_securityFlags{0};  // absent: the query for them fails

    // Handles that were not closed, and misuse of handles.
    std::vector<std::string> OpenHandles() const;
    std::vector<std::string> Faults() const;
    // Starts the numbers of handles anew.
    void ForgetHandles();

    // What stands behind the functions of the same name.
    HINTERNET OpenSession(const wchar_t* agent, DWORD dwType, const wchar_t* proxy, const wchar_t* bypass,
                          DWORD dwFlags);
    HINTERNET Connect(HINTERNET hSession, const wchar_t* host, INTERNET_PORT port, const wchar_t* user,
                      const wchar_t* password, DWORD dwService, DWORD dwFlags, DWORD_PTR context);
    HINTERNET OpenRequest(HINTERNET hConnect, const wchar_t* verb, const wchar_t* object,
                          const wchar_t* version, const wchar_t* referrer, const wchar_t** types,
                          DWORD dwFlags, DWORD_PTR context);
    BOOL Send(HINTERNET hRequest, const wchar_t* headers, DWORD cchHeaders, const void* body, DWORD cbBody);
    BOOL QueryInfo(HINTERNET hRequest, DWORD dwLevel, void* buffer, DWORD* pcb, const DWORD* pIndex);
    BOOL Read(HINTERNET hRequest, void* buffer, DWORD cb, DWORD* pcbRead);
    BOOL QueryOption(HINTERNET hRequest, DWORD dwOption, void* buffer, DWORD* pcb);
    BOOL SetOption(HINTERNET hRequest, DWORD dwOption, const void* buffer, DWORD cb);
    BOOL CloseInternetHandle(HINTERNET handle);
    BOOL GetConnectedState(const DWORD* pdwState, DWORD dwReserved);
    DWORD ErrorDialog(HWND hWnd, HINTERNET hRequest, DWORD dwError, DWORD dwFlags, void** ppData);

private:
    HINTERNET NewHandle(const char* kind);
    std::string Name(HINTERNET handle);

    CJournal& m_journal;
    mutable CMutex m_mutex;
    CCondition m_closed;
    std::map<HINTERNET, std::string> m_names;
    std::map<HINTERNET, std::string> m_open;
    std::map<std::string, int> m_counts;
    std::vector<std::string> m_faults;
    CScriptedAttempt m_attempt;  // the one sent last
    std::string m_pendingData;   // of a read that gave more than was asked for
};
