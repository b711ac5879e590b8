#include "PlatformExchange.h"

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

CPlatformExchange::CPlatformExchange(PlatformWay way)
    : m_hSession(InternetOpenW(L"Benchmark", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0)), m_way(way)
{
}

CPlatformExchange::~CPlatformExchange()
{
    InternetCloseHandle(m_hSession);
}

void CPlatformExchange::Start(const CTask& task)
{
    m_pTask = &task;
    m_answer.clear();
    m_answer.shrink_to_fit();
    m_text.clear();
    m_text.shrink_to_fit();
    m_bDone = false;
    if (m_way != ON_CALLERS_THREAD)
    {
        m_hThread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, 0, nullptr));
    }
    else
    {
        ThreadProc(this);
    }
}

bool CPlatformExchange::HasEnded()
{
    if (m_bDone && m_hThread != nullptr)
    {
        CloseHandle(m_hThread);
        m_hThread = nullptr;
    }
    return m_bDone;
}

void CPlatformExchange::TakeAnswer(const CTask& /*task*/)
{
    if (m_way == ON_OWN_THREAD_WITH_TEXT && !m_answer.empty())
    {
        const int cb = static_cast<int>(m_answer.size());
        const int cch = MultiByteToWideChar(CP_UTF8, 0, m_answer.data(), cb, nullptr, 0);
        m_text.resize(static_cast<size_t>(cch));
        MultiByteToWideChar(CP_UTF8, 0, m_answer.data(), cb, m_text.data(), cch);
    }
}

bool CPlatformExchange::HasAnswer(const CTask& task) const
{
    return !task.file.empty() ||
           (m_way == ON_OWN_THREAD_WITH_TEXT ? m_text == task.wideAnswer : m_answer == task.answer);
}

unsigned __stdcall CPlatformExchange::ThreadProc(void* exchange)
{
    CPlatformExchange* const pExchange = static_cast<CPlatformExchange*>(exchange);
    pExchange->Exchange();
    pExchange->m_bDone = true;
    return 0;
}

void CPlatformExchange::Exchange()
{
    URL_COMPONENTSW url = {};
    url.dwStructSize = sizeof(url);
    wchar_t szHost[64] = {};
    wchar_t szPath[64] = {};
    url.lpszHostName = szHost;
    url.dwHostNameLength = static_cast<DWORD>(std::size(szHost));
    url.lpszUrlPath = szPath;
    url.dwUrlPathLength = static_cast<DWORD>(std::size(szPath));
    InternetCrackUrlW(m_pTask->url.c_str(), 0, 0, &url);
    DWORD dwState = INTERNET_CONNECTION_LAN;
    InternetGetConnectedState(&dwState, 0);
    const HINTERNET hConnect =
        InternetConnectW(m_hSession, szHost, url.nPort, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0);
    const HINTERNET hRequest =
        HttpOpenRequestW(hConnect, L"POST", szPath, L"HTTP/1.1", nullptr, nullptr, kFlags, 0);
    SetOptions(hRequest);
    if (Send(hRequest))
    {
        wchar_t szCode[16] = {};
        DWORD dwLength = sizeof(szCode);
        HttpQueryInfoW(hRequest, HTTP_QUERY_STATUS_CODE, szCode, &dwLength, nullptr);
        if (m_pTask->file.empty())
        {
            ReadBody(hRequest);
        }
        else
        {
            ReadBodyInto(hRequest, m_pTask->file);
        }
    }
    InternetCloseHandle(hRequest);
    InternetCloseHandle(hConnect);
}

bool CPlatformExchange::Send(HINTERNET hRequest) const
{
    std::string converted;
    if (m_way == ON_OWN_THREAD_WITH_TEXT)
    {
        const std::wstring& wide = m_pTask->wideForm;
        const int cch = static_cast<int>(wide.size());
        const int cb = WideCharToMultiByte(CP_UTF8, 0, wide.data(), cch, nullptr, 0, nullptr, nullptr);
        converted.resize(static_cast<size_t>(cb));
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), cch, converted.data(), cb, nullptr, nullptr);
    }
    const std::string& form = m_way == ON_OWN_THREAD_WITH_TEXT ? converted : m_pTask->form;
    return HttpSendRequestW(hRequest, kHeader, static_cast<DWORD>(std::size(kHeader) - 1),
                            const_cast<char*>(form.data()), static_cast<DWORD>(form.size())) != FALSE;
}

void CPlatformExchange::ReadBody(HINTERNET hRequest)
{
    char chunk[16384] = {};
    DWORD dwRead = 0;
    while (InternetReadFile(hRequest, chunk, sizeof(chunk), &dwRead) && dwRead != 0)
    {
        m_answer.append(chunk, dwRead);
    }
}

void CPlatformExchange::ReadBodyInto(HINTERNET hRequest, const std::wstring& file)
{
    const HANDLE hFile = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    char chunk[16384] = {};
    DWORD dwRead = 0;
    while (InternetReadFile(hRequest, chunk, sizeof(chunk), &dwRead) && dwRead != 0)
    {
        DWORD dwWritten = 0;
        WriteFile(hFile, chunk, dwRead, &dwWritten, nullptr);
    }
    CloseHandle(hFile);
}
