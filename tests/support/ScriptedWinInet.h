// A WinINet that a test scripts: what each attempt answers is set beforehand, every call is written to the
// journal, and handles are made up. It is meaner than the platform: what it hands out through a pointer on a
// failing call is garbage, and misused handles fail the test (CHandleTable). Splitting URLs stays the
// platform's own work.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/HandleTable.h"
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
    bool bBlocks = false;  // until the request handle is closed; then the send fails
};

struct CScriptedRead
{
    std::string data;  // empty: the end of the body; longer than asked: the rest comes next
    DWORD dwError = kSucceeds;
    bool bBlocks = false;  // until the request handle is closed; then it fails
};

// How a server answers.
struct CScriptedServer
{
    CScript<CScriptedAttempt> attempts{CScriptedAttempt{}};
    CScript<CScriptedRead> reads{CScriptedRead{}};
};

class CScriptedWinInet
{
public:
    explicit CScriptedWinInet(CJournal& journal) : m_journal(journal) { s_pCurrent = this; }
    ~CScriptedWinInet() { s_pCurrent = nullptr; }
    CScriptedWinInet(const CScriptedWinInet&) = delete;
    CScriptedWinInet& operator=(const CScriptedWinInet&) = delete;

    // Replaces what the module uses of it.
    void Attach(CImportPatches& imports);

    static CScriptedAttempt FailingSend(DWORD dwError) { return {dwError, std::nullopt, std::nullopt}; }
    static CScriptedAttempt BlockedSend() { return {kSucceeds, std::nullopt, std::nullopt, true}; }
    static CScriptedAttempt Answer(const wchar_t* status) { return {kSucceeds, status, std::nullopt}; }
    static CScriptedAttempt Redirect(const wchar_t* status, const std::wstring& location)
    {
        return {kSucceeds, status, location};
    }

    // What a call answers is taken from its script when it begins; a dialog's answer, when it ends.
    std::atomic<bool> m_bConnected{true};
    std::atomic<bool> m_bNeedsHost{false};  // connecting to no host is refused, as the platform does it
    CScript<DWORD> m_sessions{kSucceeds};
    CScript<DWORD> m_connects{kSucceeds};
    CScript<DWORD> m_opens{kSucceeds};
    CScript<CScriptedAttempt> m_attempts{CScriptedAttempt{}};
    CScript<CScriptedRead> m_reads{CScriptedRead{}};
    CScript<DWORD> m_dialogs{ERROR_CANCELLED};
    CScript<std::optional<DWORD>> m_securityFlags{0};  // absent: the query for them fails
    CScript<DWORD> m_setOptions{kSucceeds};

    // Servers that answer by scripts of their own, by the object that is asked for.
    std::map<std::wstring, CScriptedServer> m_servers;

    // Each form that was sent: "data to host/object".
    std::vector<std::string> Forms() const;

    CHandleTable m_handles;

private:
    struct Platform;

    void Keep(std::string form);

    static inline CScriptedWinInet* s_pCurrent = nullptr;

    CJournal& m_journal;
    mutable CMutex m_mutex;
    std::vector<std::string> m_forms;
};
