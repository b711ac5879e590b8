#include "support/ScriptedWinInet.h"

#include <algorithm>
#include <cstring>

#include "support/CallText.h"
#include "support/Gate.h"
#include "support/WindowNames.h"

namespace
{

constexpr DWORD kGarbage = 0xA5A5A5A5;

CScriptedWinInet* g_pWinInet = nullptr;

HINTERNET WINAPI ScriptedOpen(LPCWSTR agent, DWORD type, LPCWSTR proxy, LPCWSTR bypass, DWORD flags)
{
    return g_pWinInet->OpenSession(agent, type, proxy, bypass, flags);
}

HINTERNET WINAPI ScriptedConnect(HINTERNET hSession, LPCWSTR host, INTERNET_PORT port, LPCWSTR user,
                                 LPCWSTR password, DWORD service, DWORD flags, DWORD_PTR context)
{
    return g_pWinInet->Connect(hSession, host, port, user, password, service, flags, context);
}

HINTERNET WINAPI ScriptedOpenRequest(HINTERNET hConnect, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                                     LPCWSTR referrer, LPCWSTR* types, DWORD flags, DWORD_PTR context)
{
    return g_pWinInet->OpenRequest(hConnect, verb, object, version, referrer, types, flags, context);
}

BOOL WINAPI ScriptedSend(HINTERNET hRequest, LPCWSTR headers, DWORD cchHeaders, LPVOID body, DWORD cbBody)
{
    return g_pWinInet->Send(hRequest, headers, cchHeaders, body, cbBody);
}

BOOL WINAPI ScriptedQueryInfo(HINTERNET hRequest, DWORD level, LPVOID buffer, LPDWORD pcb, LPDWORD pIndex)
{
    return g_pWinInet->QueryInfo(hRequest, level, buffer, pcb, pIndex);
}

BOOL WINAPI ScriptedRead(HINTERNET hRequest, LPVOID buffer, DWORD cb, LPDWORD pcbRead)
{
    return g_pWinInet->Read(hRequest, buffer, cb, pcbRead);
}

BOOL WINAPI ScriptedQueryOption(HINTERNET hRequest, DWORD option, LPVOID buffer, LPDWORD pcb)
{
    return g_pWinInet->QueryOption(hRequest, option, buffer, pcb);
}

BOOL WINAPI ScriptedSetOption(HINTERNET hRequest, DWORD option, LPVOID buffer, DWORD cb)
{
    return g_pWinInet->SetOption(hRequest, option, buffer, cb);
}

BOOL WINAPI ScriptedClose(HINTERNET handle)
{
    return g_pWinInet->CloseInternetHandle(handle);
}

BOOL WINAPI ScriptedConnectedState(LPDWORD pdwState, DWORD dwReserved)
{
    return g_pWinInet->GetConnectedState(pdwState, dwReserved);
}

DWORD WINAPI ScriptedErrorDialog(HWND hWnd, HINTERNET hRequest, DWORD error, DWORD flags, LPVOID* ppData)
{
    return g_pWinInet->ErrorDialog(hWnd, hRequest, error, flags, ppData);
}

BOOL Outcome(DWORD dwError)
{
    if (dwError == kSucceeds)
    {
        return TRUE;
    }
    SetLastError(dwError);
    return FALSE;
}

}  // namespace

CScriptedWinInet::CScriptedWinInet(CJournal& journal) : m_journal(journal)
{
    g_pWinInet = this;
}

CScriptedWinInet::~CScriptedWinInet()
{
    g_pWinInet = nullptr;
}

void CScriptedWinInet::Attach(CImportPatches& imports)
{
    imports.Add("InternetOpenW", ScriptedOpen);
    imports.Add("InternetConnectW", ScriptedConnect);
    imports.Add("HttpOpenRequestW", ScriptedOpenRequest);
    imports.Add("HttpSendRequestW", ScriptedSend);
    imports.Add("HttpQueryInfoW", ScriptedQueryInfo);
    imports.Add("InternetReadFile", ScriptedRead);
    imports.Add("InternetQueryOptionW", ScriptedQueryOption);
    imports.Add("InternetSetOptionW", ScriptedSetOption);
    imports.Add("InternetCloseHandle", ScriptedClose);
    imports.Add("InternetGetConnectedState", ScriptedConnectedState);
    imports.Add("InternetErrorDlg", ScriptedErrorDialog);
}

std::vector<std::string> CScriptedWinInet::OpenHandles() const
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> names;
    for (const auto& [handle, name] : m_open)
    {
        names.push_back(name);
    }
    return names;
}

std::vector<std::string> CScriptedWinInet::Faults() const
{
    const std::lock_guard lock(m_mutex);
    return m_faults;
}

void CScriptedWinInet::ForgetHandles()
{
    const std::lock_guard lock(m_mutex);
    m_counts.clear();
}

HINTERNET CScriptedWinInet::OpenSession(const wchar_t* agent, DWORD dwType, const wchar_t* proxy,
                                        const wchar_t* bypass, DWORD dwFlags)
{
    m_journal.Add(CALL_NET, CallText("InternetOpenW", {Quoted(agent), std::to_string(dwType), Quoted(proxy),
                                                       Quoted(bypass), std::to_string(dwFlags)}));
    return Outcome(m_sessions.Next()) ? NewHandle("session") : nullptr;
}

HINTERNET CScriptedWinInet::Connect(HINTERNET hSession, const wchar_t* host, INTERNET_PORT port,
                                    const wchar_t* user, const wchar_t* password, DWORD dwService,
                                    DWORD dwFlags, DWORD_PTR context)
{
    m_journal.Add(CALL_NET,
                  CallText("InternetConnectW", {Name(hSession), Quoted(host), std::to_string(port),
                                                Quoted(user), Quoted(password), std::to_string(dwService),
                                                std::to_string(dwFlags), std::to_string(context)}));
    if (hSession == nullptr)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return Outcome(m_connects.Next()) ? NewHandle("connect") : nullptr;
}

HINTERNET CScriptedWinInet::OpenRequest(HINTERNET hConnect, const wchar_t* verb, const wchar_t* object,
                                        const wchar_t* version, const wchar_t* referrer,
                                        const wchar_t** types, DWORD dwFlags, DWORD_PTR context)
{
    m_journal.Add(CALL_NET,
                  CallText("HttpOpenRequestW",
                           {Name(hConnect), Quoted(verb), Quoted(object), Quoted(version), Quoted(referrer),
                            NullOr(types, "types"), Hex(dwFlags), std::to_string(context)}));
    return Outcome(m_opens.Next()) ? NewHandle("request") : nullptr;
}

BOOL CScriptedWinInet::Send(HINTERNET hRequest, const wchar_t* headers, DWORD cchHeaders, const void* body,
                            DWORD cbBody)
{
    const std::string text =
        body == nullptr ? "null" : "'" + std::string(static_cast<const char*>(body), cbBody) + "'";
    const CScriptedAttempt attempt = m_attempts.Next();
    {
        const std::lock_guard lock(m_mutex);
        m_attempt = attempt;
    }
    m_journal.Add(CALL_NET,
                  CallText("HttpSendRequestW", {Name(hRequest), Quoted(headers), std::to_string(cchHeaders),
                                                text, std::to_string(cbBody)}));
    return Outcome(attempt.dwSendError);
}

BOOL CScriptedWinInet::QueryInfo(HINTERNET hRequest, DWORD dwLevel, void* buffer, DWORD* pcb,
                                 const DWORD* pIndex)
{
    m_journal.Add(CALL_NET, CallText("HttpQueryInfoW", {Name(hRequest), std::to_string(dwLevel),
                                                        std::to_string(*pcb), NullOr(pIndex, "index")}));
    std::optional<std::wstring> value;
    {
        const std::lock_guard lock(m_mutex);
        value = dwLevel == HTTP_QUERY_STATUS_CODE ? m_attempt.status
                : dwLevel == HTTP_QUERY_LOCATION  ? m_attempt.location
                                                  : std::nullopt;
    }
    const size_t cbNeeded = value ? (value->size() + 1) * sizeof(wchar_t) : 0;
    if (!value || cbNeeded > *pcb)
    {
        constexpr wchar_t kLeftover[] = L"404";
        std::memcpy(buffer, kLeftover, std::min<size_t>(sizeof(kLeftover), *pcb));
        *pcb = static_cast<DWORD>(cbNeeded);
        return Outcome(value ? DWORD{ERROR_INSUFFICIENT_BUFFER} : DWORD{ERROR_HTTP_HEADER_NOT_FOUND});
    }
    std::memcpy(buffer, value->c_str(), cbNeeded);
    *pcb = static_cast<DWORD>(cbNeeded - sizeof(wchar_t));
    return TRUE;
}

BOOL CScriptedWinInet::Read(HINTERNET hRequest, void* buffer, DWORD cb, DWORD* pcbRead)
{
    m_journal.Add(CALL_NET, CallText("InternetReadFile", {Name(hRequest), std::to_string(cb)}));
    CScriptedRead read;
    {
        const std::lock_guard lock(m_mutex);
        read.data.swap(m_pendingData);
    }
    if (read.data.empty())
    {
        read = m_reads.Next();
    }
    std::unique_lock lock(m_mutex);
    if (read.bBlocks)
    {
        const bool bClosed = m_closed.wait_for(lock, kPatience, [&] { return m_open.count(hRequest) == 0; });
        if (!bClosed)
        {
            m_faults.push_back("a blocked read was not ended by closing its handle");
        }
        read.dwError = ERROR_INTERNET_OPERATION_CANCELLED;
    }
    if (read.dwError != kSucceeds)
    {
        std::memset(buffer, 'X', cb);
        *pcbRead = 7;
        return Outcome(read.dwError);
    }
    const size_t count = std::min<size_t>(read.data.size(), cb);
    std::memcpy(buffer, read.data.data(), count);
    *pcbRead = static_cast<DWORD>(count);
    m_pendingData = read.data.substr(count);
    return TRUE;
}

BOOL CScriptedWinInet::QueryOption(HINTERNET hRequest, DWORD dwOption, void* buffer, DWORD* pcb)
{
    m_journal.Add(CALL_NET, CallText("InternetQueryOptionW",
                                     {Name(hRequest), std::to_string(dwOption), std::to_string(*pcb)}));
    const std::optional<DWORD> flags = m_securityFlags.Next();
    const DWORD dwValue = flags.value_or(kGarbage);
    std::memcpy(buffer, &dwValue, sizeof(dwValue));
    return Outcome(flags ? kSucceeds : DWORD{ERROR_INTERNET_INCORRECT_HANDLE_STATE});
}

BOOL CScriptedWinInet::SetOption(HINTERNET hRequest, DWORD dwOption, const void* buffer, DWORD cb)
{
    DWORD dwValue = 0;
    std::memcpy(&dwValue, buffer, std::min<size_t>(cb, sizeof(dwValue)));
    const std::string value =
        dwOption == INTERNET_OPTION_SECURITY_FLAGS ? Hex(dwValue) : std::to_string(dwValue);
    m_journal.Add(CALL_NET, CallText("InternetSetOptionW",
                                     {Name(hRequest), std::to_string(dwOption), value, std::to_string(cb)}));
    return Outcome(m_bOptionsCanBeSet ? kSucceeds : DWORD{ERROR_INTERNET_OPTION_NOT_SETTABLE});
}

BOOL CScriptedWinInet::CloseInternetHandle(HINTERNET handle)
{
    m_journal.Add(CALL_NET, CallText("InternetCloseHandle", {Name(handle)}));
    const std::lock_guard lock(m_mutex);
    m_open.erase(handle);
    m_closed.notify_all();
    return TRUE;
}

BOOL CScriptedWinInet::GetConnectedState(const DWORD* pdwState, DWORD dwReserved)
{
    m_journal.Add(CALL_NET, CallText("InternetGetConnectedState",
                                     {std::to_string(*pdwState), std::to_string(dwReserved)}));
    return m_bConnected ? TRUE : FALSE;
}

DWORD CScriptedWinInet::ErrorDialog(HWND hWnd, HINTERNET hRequest, DWORD dwError, DWORD dwFlags,
                                    void** ppData)
{
    m_journal.Add(CALL_NET,
                  CallText("InternetErrorDlg", {WindowName(hWnd), Name(hRequest), std::to_string(dwError),
                                                std::to_string(dwFlags), NullOr(ppData, "data")}));
    return m_dialogs.Next();
}

HINTERNET CScriptedWinInet::NewHandle(const char* kind)
{
    const std::lock_guard lock(m_mutex);
    auto* const handle = reinterpret_cast<HINTERNET>(0x10000 + 4 * m_names.size());
    const std::string name = kind + std::to_string(++m_counts[kind]);
    m_names[handle] = name;
    m_open[handle] = name;
    return handle;
}

// Of a handle that a call is made with.
std::string CScriptedWinInet::Name(HINTERNET handle)
{
    if (handle == nullptr)
    {
        return "null";
    }
    const std::lock_guard lock(m_mutex);
    const auto found = m_names.find(handle);
    const std::string name = found == m_names.end() ? "unknown" : found->second;
    if (m_open.count(handle) == 0)
    {
        m_faults.push_back(name + " was used after its close");
    }
    return name;
}
