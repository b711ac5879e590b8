#include "unit/request/RequestScript.h"

#include <algorithm>
#include <cwchar>

namespace
{

CRequestScript* g_pScript = nullptr;
// Handles are these numbers and the number of the connection or request.
constexpr uintptr_t kSession = 0x1000;
constexpr uintptr_t kConnection = 0x100000;
constexpr uintptr_t kRequest = 0x200000;

HINTERNET Handle(uintptr_t kind, int number)
{
    return reinterpret_cast<HINTERNET>(kind + static_cast<uintptr_t>(number));
}

int RequestNumber(HINTERNET hRequest)
{
    return static_cast<int>(reinterpret_cast<uintptr_t>(hRequest) - kRequest);
}

std::string Narrow(const wchar_t* pszText)
{
    std::string text;
    for (; pszText != nullptr && *pszText != L'\0'; ++pszText)
    {
        text += static_cast<char>(*pszText);
    }
    return text;
}

}  // namespace

CRequestScript::CRequestScript(HMODULE hModule) : m_thread(hModule)
{
    g_pScript = this;
    const auto patch = [this, hModule](const char* pszName, auto* pfn)
    { m_patches.push_back(std::make_unique<CImportPatch>(hModule, pszName, pfn)); };
    if (CImportPatch::IsImported(hModule, "InternetOpenW"))
    {
        patch("InternetOpenW", Open);
    }
    patch("GetTickCount", Tick);
    patch("InternetGetConnectedState", ConnectedState);
    patch("InternetConnectW", Connect);
    patch("HttpOpenRequestW", OpenRequest);
    patch("HttpSendRequestW", Send);
    patch("HttpQueryInfoW", QueryInfo);
    patch("InternetReadFile", Read);
    patch("InternetQueryOptionW", QueryOption);
    patch("InternetSetOptionW", SetOption);
    patch("InternetCloseHandle", Close);
}

CRequestScript::~CRequestScript()
{
    m_patches.clear();
    g_pScript = nullptr;
}

void CRequestScript::Forget()
{
    m_thread.Forget();
    for (const std::unique_ptr<CImportPatch>& patch : m_patches)
    {
        patch->Forget();
    }
}

std::vector<std::string> CRequestScript::Calls() const
{
    const std::lock_guard lock(m_mutex);
    return m_calls;
}

void CRequestScript::Add(const std::string& call)
{
    const std::lock_guard lock(m_mutex);
    m_calls.push_back((GetCurrentThreadId() == m_dwOwnerId ? "owner: " : "worker: ") + call);
}

DWORD WINAPI CRequestScript::Tick()
{
    return g_pScript->m_dwTick;
}

HINTERNET WINAPI CRequestScript::Open(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD)
{
    return Handle(kSession, 0);
}

BOOL WINAPI CRequestScript::ConnectedState(LPDWORD, DWORD)
{
    return g_pScript->m_bConnected;
}

HINTERNET WINAPI CRequestScript::Connect(HINTERNET hSession, LPCWSTR pszServer, INTERNET_PORT nPort, LPCWSTR,
                                         LPCWSTR, DWORD, DWORD, DWORD_PTR)
{
    g_pScript->Add("connect " + std::to_string(reinterpret_cast<uintptr_t>(hSession)) + " " +
                   Narrow(pszServer) + " " + std::to_string(nPort));
    const int exchange = ++g_pScript->m_exchanges;
    if (g_pScript->m_onConnect)
    {
        g_pScript->m_onConnect(exchange);
    }
    return Handle(kConnection, exchange);
}

HINTERNET WINAPI CRequestScript::OpenRequest(HINTERNET, LPCWSTR, LPCWSTR pszObject, LPCWSTR, LPCWSTR,
                                             LPCWSTR*, DWORD, DWORD_PTR)
{
    g_pScript->Add("open " + Narrow(pszObject));
    return Handle(kRequest, ++g_pScript->m_requests);
}

BOOL WINAPI CRequestScript::Send(HINTERNET hRequest, LPCWSTR, DWORD, LPVOID pBody, DWORD cbBody)
{
    g_pScript->Add("send [" + std::string(static_cast<const char*>(pBody), cbBody) + "]");
    const BOOL bSent = g_pScript->m_onSend(RequestNumber(hRequest));
    if (!bSent)
    {
        SetLastError(ERROR_INTERNET_OPERATION_CANCELLED);
    }
    return bSent;
}

BOOL WINAPI CRequestScript::QueryInfo(HINTERNET, DWORD dwLevel, LPVOID pBuffer, LPDWORD pcb, LPDWORD)
{
    if (dwLevel != HTTP_QUERY_STATUS_CODE)
    {
        SetLastError(ERROR_HTTP_HEADER_NOT_FOUND);
        return FALSE;
    }
    std::wcscpy(static_cast<wchar_t*>(pBuffer), L"200");
    *pcb = 6;
    return TRUE;
}

BOOL WINAPI CRequestScript::Read(HINTERNET, LPVOID pBuffer, DWORD cb, LPDWORD pcbRead)
{
    CRequestScript& script = *g_pScript;
    if (script.m_onRead)
    {
        script.m_onRead();
    }
    *pcbRead = 0;
    if (script.m_read < script.m_pieces.size())
    {
        const std::string& piece = script.m_pieces[script.m_read++];
        *pcbRead = static_cast<DWORD>(piece.copy(static_cast<char*>(pBuffer), cb));
    }
    return TRUE;
}

BOOL WINAPI CRequestScript::QueryOption(HINTERNET, DWORD, LPVOID, LPDWORD)
{
    return FALSE;
}

BOOL WINAPI CRequestScript::SetOption(HINTERNET, DWORD, LPVOID, DWORD)
{
    return TRUE;
}

BOOL WINAPI CRequestScript::Close(HINTERNET hInternet)
{
    CRequestScript& script = *g_pScript;
    const auto value = reinterpret_cast<uintptr_t>(hInternet);
    if (value > kRequest)
    {
        const int request = RequestNumber(hInternet);
        script.Add("close request " + std::to_string(request));
        if (script.m_onCloseRequest)
        {
            script.m_onCloseRequest(request);
        }
        return TRUE;
    }
    script.Add(value > kConnection ? "close connection " + std::to_string(value - kConnection)
               : value == kSession ? "close session"
                                   : "close ?");
    return TRUE;
}
