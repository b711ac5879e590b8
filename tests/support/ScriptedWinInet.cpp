#include "support/ScriptedWinInet.h"

#include <algorithm>
#include <cstring>

#include "support/CallText.h"
#include "support/WindowNames.h"

namespace
{

constexpr DWORD kGarbage = 0xA5A5A5A5;

struct Session : CHandleObject
{
    Session() : CHandleObject("session", true) {}
};

struct Connection : CHandleObject
{
    Connection() : CHandleObject("connect") {}

    std::string host;
};

struct Request : CHandleObject
{
    Request() : CHandleObject("request") {}

    std::string address;
    CScriptedServer* pServer = nullptr;  // its own, if there is one
    CScriptedAttempt attempt;            // the one sent last
    std::string pendingData;             // of a read that gave more than was asked for
};

using CCall = CHandleTable::CCall;

BOOL Outcome(DWORD dwError)
{
    if (dwError == kSucceeds)
    {
        return TRUE;
    }
    SetLastError(dwError);
    return FALSE;
}

std::string ConnectionOptionsText(const INTERNET_PER_CONN_OPTION_LISTW& list)
{
    std::string text = "size " + std::to_string(list.dwSize) + ", " + Quoted(list.pszConnection) +
                       ", error " + std::to_string(list.dwOptionError) + ":";
    for (DWORD index = 0; index < list.dwOptionCount; ++index)
    {
        const INTERNET_PER_CONN_OPTIONW& option = list.pOptions[index];
        text += " " + std::to_string(option.dwOption) + "=" +
                (option.dwOption == INTERNET_PER_CONN_FLAGS ? std::to_string(option.Value.dwValue)
                                                            : Quoted(option.Value.pszValue));
    }
    return text;
}

std::string OptionText(DWORD dwOption, const void* buffer, DWORD cb)
{
    if (dwOption == INTERNET_OPTION_PER_CONNECTION_OPTION)
    {
        return ConnectionOptionsText(*static_cast<const INTERNET_PER_CONN_OPTION_LISTW*>(buffer));
    }
    if (buffer == nullptr)
    {
        return "null";
    }
    DWORD dwValue = 0;
    std::memcpy(&dwValue, buffer, std::min<size_t>(cb, sizeof(dwValue)));
    return dwOption == INTERNET_OPTION_SECURITY_FLAGS ? Hex(dwValue) : std::to_string(dwValue);
}

// Leaves in a failing query what would be taken for another status.
BOOL RefuseQuery(void* buffer, DWORD* pcb, size_t cbNeeded, DWORD dwError)
{
    constexpr wchar_t kLeftover[] = L"404";
    std::memcpy(buffer, kLeftover, std::min<size_t>(sizeof(kLeftover), *pcb));
    *pcb = static_cast<DWORD>(cbNeeded);
    return Outcome(dwError);
}

BOOL RefuseRead(void* buffer, DWORD cb, DWORD* pcbRead, DWORD dwError)
{
    std::memset(buffer, 'X', cb);
    *pcbRead = 7;
    return Outcome(dwError);
}

}  // namespace

// Each function takes its place among all calls first, and then acts.
struct CScriptedWinInet::Platform
{
    static void Add(const char* pszFunction, std::initializer_list<std::string> arguments)
    {
        s_pCurrent->m_journal.Add(CALL_NET, CallText(pszFunction, arguments));
    }

    static HINTERNET WINAPI OpenSession(LPCWSTR agent, DWORD dwType, LPCWSTR proxy, LPCWSTR bypass,
                                        DWORD dwFlags)
    {
        Add("InternetOpenW",
            {Quoted(agent), std::to_string(dwType), Quoted(proxy), Quoted(bypass), std::to_string(dwFlags)});
        return Outcome(s_pCurrent->m_sessions.Next())
                   ? s_pCurrent->m_handles.Open(std::make_shared<Session>())
                   : nullptr;
    }

    static HINTERNET WINAPI Connect(HINTERNET hSession, LPCWSTR host, INTERNET_PORT port, LPCWSTR user,
                                    LPCWSTR password, DWORD dwService, DWORD dwFlags, DWORD_PTR context)
    {
        const CCall call(s_pCurrent->m_handles, "InternetConnectW", hSession);
        Add("InternetConnectW",
            {call.Name(), Quoted(host), std::to_string(port), Quoted(user), Quoted(password),
             std::to_string(dwService), std::to_string(dwFlags), std::to_string(context)});
        if (call.Reach<Session>() == nullptr)
        {
            return nullptr;
        }
        const bool bRefused = s_pCurrent->m_bNeedsHost && (host == nullptr || *host == L'\0');
        if (!Outcome(bRefused ? ERROR_INVALID_PARAMETER : s_pCurrent->m_connects.Next()))
        {
            return nullptr;
        }
        auto pConnection = std::make_shared<Connection>();
        pConnection->host = ToUtf8(host);
        return s_pCurrent->m_handles.Open(pConnection);
    }

    static HINTERNET WINAPI OpenRequest(HINTERNET hConnect, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                                        LPCWSTR referrer, LPCWSTR* types, DWORD dwFlags, DWORD_PTR context)
    {
        const CCall call(s_pCurrent->m_handles, "HttpOpenRequestW", hConnect);
        Add("HttpOpenRequestW", {call.Name(), Quoted(verb), Quoted(object), Quoted(version), Quoted(referrer),
                                 NullOr(types, "types"), Hex(dwFlags), std::to_string(context)});
        const auto* const pConnection = call.Reach<Connection>();
        if (pConnection == nullptr || !Outcome(s_pCurrent->m_opens.Next()))
        {
            return nullptr;
        }
        auto pRequest = std::make_shared<Request>();
        pRequest->address = pConnection->host + ToUtf8(object);
        const auto found = s_pCurrent->m_servers.find(object);
        pRequest->pServer = found == s_pCurrent->m_servers.end() ? nullptr : &found->second;
        return s_pCurrent->m_handles.Open(pRequest);
    }

    static BOOL WINAPI Send(HINTERNET hRequest, LPCWSTR headers, DWORD cchHeaders, LPVOID body, DWORD cbBody)
    {
        const CCall call(s_pCurrent->m_handles, "HttpSendRequestW", hRequest);
        if (auto* const pRequest = call.Reach<Request>())
        {
            pRequest->attempt =
                (pRequest->pServer != nullptr ? pRequest->pServer->attempts : s_pCurrent->m_attempts).Next();
        }
        const std::string text =
            body == nullptr ? "null" : "'" + std::string(static_cast<const char*>(body), cbBody) + "'";
        Add("HttpSendRequestW",
            {call.Name(), Quoted(headers), std::to_string(cchHeaders), text, std::to_string(cbBody)});
        const auto* const pRequest = call.Reach<Request>();
        if (pRequest == nullptr)
        {
            return FALSE;
        }
        s_pCurrent->Keep(std::string(static_cast<const char*>(body), cbBody) + " to " + pRequest->address);
        if (pRequest->attempt.bBlocks)
        {
            s_pCurrent->m_handles.WaitForClose(*pRequest);
            return Outcome(ERROR_INTERNET_OPERATION_CANCELLED);
        }
        return Outcome(pRequest->attempt.dwSendError);
    }

    static BOOL WINAPI QueryInfo(HINTERNET hRequest, DWORD dwLevel, LPVOID buffer, LPDWORD pcb,
                                 LPDWORD pIndex)
    {
        const CCall call(s_pCurrent->m_handles, "HttpQueryInfoW", hRequest);
        Add("HttpQueryInfoW",
            {call.Name(), std::to_string(dwLevel), std::to_string(*pcb), NullOr(pIndex, "index")});
        const auto* const pRequest = call.Reach<Request>();
        if (pRequest == nullptr)
        {
            return RefuseQuery(buffer, pcb, 0, GetLastError());
        }
        const std::optional<std::wstring> value = dwLevel == HTTP_QUERY_STATUS_CODE ? pRequest->attempt.status
                                                  : dwLevel == HTTP_QUERY_LOCATION
                                                      ? pRequest->attempt.location
                                                      : std::nullopt;
        if (!value)
        {
            return RefuseQuery(buffer, pcb, 0, ERROR_HTTP_HEADER_NOT_FOUND);
        }
        const size_t cbNeeded = (value->size() + 1) * sizeof(wchar_t);
        if (cbNeeded > *pcb)
        {
            return RefuseQuery(buffer, pcb, cbNeeded, ERROR_INSUFFICIENT_BUFFER);
        }
        std::memcpy(buffer, value->c_str(), cbNeeded);
        *pcb = static_cast<DWORD>(cbNeeded - sizeof(wchar_t));
        return TRUE;
    }

    static BOOL WINAPI Read(HINTERNET hRequest, LPVOID buffer, DWORD cb, LPDWORD pcbRead)
    {
        const CCall call(s_pCurrent->m_handles, "InternetReadFile", hRequest);
        CScriptedRead read;
        if (auto* const pRequest = call.Reach<Request>())
        {
            read.data.swap(pRequest->pendingData);
            auto& reads = pRequest->pServer != nullptr ? pRequest->pServer->reads : s_pCurrent->m_reads;
            read = read.data.empty() ? reads.Next() : read;
        }
        Add("InternetReadFile", {call.Name(), std::to_string(cb)});
        auto* const pRequest = call.Reach<Request>();
        if (pRequest == nullptr)
        {
            return RefuseRead(buffer, cb, pcbRead, GetLastError());
        }
        if (read.bBlocks)
        {
            s_pCurrent->m_handles.WaitForClose(*pRequest);
            read.dwError = ERROR_INTERNET_OPERATION_CANCELLED;
        }
        if (read.dwError != kSucceeds)
        {
            return RefuseRead(buffer, cb, pcbRead, read.dwError);
        }
        const size_t count = std::min<size_t>(read.data.size(), cb);
        std::memcpy(buffer, read.data.data(), count);
        *pcbRead = static_cast<DWORD>(count);
        pRequest->pendingData = read.data.substr(count);
        return TRUE;
    }

    // Without a handle, an option is the process's.
    static BOOL WINAPI QueryOption(HINTERNET handle, DWORD dwOption, LPVOID buffer, LPDWORD pcb)
    {
        const CCall call(s_pCurrent->m_handles, "InternetQueryOptionW", handle);
        Add("InternetQueryOptionW", {call.Name(), std::to_string(dwOption), std::to_string(*pcb)});
        const bool bReached = handle == nullptr || call.Reach<CHandleObject>() != nullptr;
        const std::optional<DWORD> flags = bReached ? s_pCurrent->m_securityFlags.Next() : std::nullopt;
        const DWORD dwValue = flags.value_or(kGarbage);
        std::memcpy(buffer, &dwValue, sizeof(dwValue));
        return Outcome(flags ? kSucceeds : DWORD{ERROR_INTERNET_INCORRECT_HANDLE_STATE});
    }

    static BOOL WINAPI SetOption(HINTERNET handle, DWORD dwOption, LPVOID buffer, DWORD cb)
    {
        const CCall call(s_pCurrent->m_handles, "InternetSetOptionW", handle);
        Add("InternetSetOptionW",
            {call.Name(), std::to_string(dwOption), OptionText(dwOption, buffer, cb), std::to_string(cb)});
        const bool bReached = handle == nullptr || call.Reach<CHandleObject>() != nullptr;
        return bReached && Outcome(s_pCurrent->m_setOptions.Next());
    }

    static BOOL WINAPI Close(HINTERNET handle)
    {
        Add("InternetCloseHandle", {s_pCurrent->m_handles.NameOf(handle)});
        return s_pCurrent->m_handles.Close(handle);
    }

    // The first that an exchange asks for.
    static BOOL WINAPI ConnectedState(LPDWORD pdwState, DWORD dwReserved)
    {
        s_pCurrent->m_handles.Begin();
        Add("InternetGetConnectedState", {std::to_string(*pdwState), std::to_string(dwReserved)});
        return s_pCurrent->m_bConnected ? TRUE : FALSE;
    }

    static DWORD WINAPI ErrorDialog(HWND hWnd, HINTERNET hRequest, DWORD dwError, DWORD dwFlags,
                                    LPVOID* ppData)
    {
        const CCall call(s_pCurrent->m_handles, "InternetErrorDlg", hRequest);
        Add("InternetErrorDlg", {WindowName(hWnd), call.Name(), std::to_string(dwError),
                                 std::to_string(dwFlags), NullOr(ppData, "data")});
        return call.Reach<Request>() == nullptr ? GetLastError() : s_pCurrent->m_dialogs.Next();
    }
};

void CScriptedWinInet::Keep(std::string form)
{
    const std::lock_guard lock(m_mutex);
    m_forms.push_back(std::move(form));
}

std::vector<std::string> CScriptedWinInet::Forms() const
{
    const std::lock_guard lock(m_mutex);
    return m_forms;
}

void CScriptedWinInet::Attach(CImportPatches& imports)
{
    imports.AddIfImported("InternetOpenW", Platform::OpenSession);
    imports.AddIfImported("InternetConnectW", Platform::Connect);
    imports.AddIfImported("HttpOpenRequestW", Platform::OpenRequest);
    imports.AddIfImported("HttpSendRequestW", Platform::Send);
    imports.AddIfImported("HttpQueryInfoW", Platform::QueryInfo);
    imports.AddIfImported("InternetReadFile", Platform::Read);
    imports.AddIfImported("InternetQueryOptionW", Platform::QueryOption);
    imports.AddIfImported("InternetSetOptionW", Platform::SetOption);
    imports.Add("InternetCloseHandle", Platform::Close);
    imports.AddIfImported("InternetGetConnectedState", Platform::ConnectedState);
    imports.AddIfImported("InternetErrorDlg", Platform::ErrorDialog);
}
