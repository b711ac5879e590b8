#include "BareExchange.h"

#include <process.h>

#include <iterator>

namespace
{

constexpr wchar_t kHeader[] = L"Content-Type: application/x-www-form-urlencoded\r\n";
constexpr DWORD kFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION |
                         INTERNET_FLAG_RESYNCHRONIZE | INTERNET_FLAG_PRAGMA_NOCACHE;
constexpr DWORD kTimeoutMs = 60000;

void SetOptions(HINTERNET hRequest)
{
    DWORD dwFlags = 0;
    DWORD dwLength = sizeof(dwFlags);
    InternetQueryOptionW(hRequest, INTERNET_OPTION_SECURITY_FLAGS, &dwFlags, &dwLength);
    dwFlags |= SECURITY_FLAG_IGNORE_REVOCATION;
    InternetSetOptionW(hRequest, INTERNET_OPTION_SECURITY_FLAGS, &dwFlags, sizeof(dwFlags));
    DWORD dwTimeoutMs = kTimeoutMs;
    constexpr DWORD kOptions[] = {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT,
                                  INTERNET_OPTION_SEND_TIMEOUT};
    for (const DWORD dwOption : kOptions)
    {
        InternetSetOptionW(hRequest, dwOption, &dwTimeoutMs, sizeof(dwTimeoutMs));
    }
}

}  // namespace

CBareExchange::CBareExchange(unsigned short port)
    : m_hSession(InternetOpenW(L"Benchmark", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0)), m_port(port)
{
}

CBareExchange::~CBareExchange()
{
    InternetCloseHandle(m_hSession);
}

std::string CBareExchange::Post(const std::string& form)
{
    m_form = form;
    m_answer.clear();
    m_bDone = false;
    const HANDLE hThread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, 0, nullptr));
    // As a host of the component does, which has no handle to wait for.
    while (!m_bDone)
    {
        SwitchToThread();
    }
    CloseHandle(hThread);
    return m_answer;
}

unsigned __stdcall CBareExchange::ThreadProc(void* exchange)
{
    CBareExchange* const pExchange = static_cast<CBareExchange*>(exchange);
    pExchange->Exchange();
    pExchange->m_bDone = true;
    return 0;
}

void CBareExchange::Exchange()
{
    DWORD dwState = INTERNET_CONNECTION_LAN;
    InternetGetConnectedState(&dwState, 0);
    const HINTERNET hConnect =
        InternetConnectW(m_hSession, L"127.0.0.1", m_port, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0);
    const HINTERNET hRequest =
        HttpOpenRequestW(hConnect, L"POST", L"/", L"HTTP/1.1", nullptr, nullptr, kFlags, 0);
    SetOptions(hRequest);
    if (HttpSendRequestW(hRequest, kHeader, static_cast<DWORD>(std::size(kHeader) - 1), m_form.data(),
                         static_cast<DWORD>(m_form.size())))
    {
        wchar_t szCode[16] = {};
        DWORD dwLength = sizeof(szCode);
        HttpQueryInfoW(hRequest, HTTP_QUERY_STATUS_CODE, szCode, &dwLength, nullptr);
        ReadBody(hRequest);
    }
    InternetCloseHandle(hRequest);
    InternetCloseHandle(hConnect);
}

void CBareExchange::ReadBody(HINTERNET hRequest)
{
    char chunk[16384] = {};
    DWORD dwRead = 0;
    while (InternetReadFile(hRequest, chunk, sizeof(chunk), &dwRead) && dwRead != 0)
    {
        m_answer.append(chunk, dwRead);
    }
}
