// Connecting and sending: the attempts of one exchange.
#include <cwchar>
#include <iterator>
#include <memory>
#include <new>

#include "base/TextConversion.h"
#include "request/HttpRequest.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

#define STRSAFE_NO_DEPRECATE
#include <strsafe.h>

namespace
{

constexpr wchar_t kContentType[] = L"Content-Type: application/x-www-form-urlencoded\r\n";
constexpr DWORD kContentTypeLength = static_cast<DWORD>(std::size(kContentType) - 1);
constexpr DWORD kRequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                                INTERNET_FLAG_KEEP_CONNECTION | INTERNET_FLAG_RESYNCHRONIZE |
                                INTERNET_FLAG_PRAGMA_NOCACHE;
constexpr int kMaxSends = 10;

// What the server is asked for: path and query as the URL has them. Empty when either is absent, null
// when there is no memory.
std::unique_ptr<wchar_t[]> MakeObjectName(const URL_COMPONENTSW& uc)
{
    const bool bPresent = uc.lpszUrlPath != nullptr && uc.lpszExtraInfo != nullptr;
    const size_t cch =
        bPresent ? std::wcslen(uc.lpszExtraInfo) + std::wcslen(uc.lpszUrlPath) + 10 : size_t{1};
    std::unique_ptr<wchar_t[]> name(new (std::nothrow) wchar_t[cch]());
    if (bPresent && name != nullptr)
    {
        StringCchCatW(name.get(), cch, uc.lpszUrlPath);
        StringCchCatW(name.get(), cch, uc.lpszExtraInfo);
    }
    return name;
}

}  // namespace

bool CHttpRequest::CheckInternetConnection(const wchar_t* /*lpszUrl*/) const
{
    // The platform overwrites the preset; what counts is the record of the proxy. Intended: the URL does not.
    DWORD dwState = INTERNET_CONNECTION_LAN;
    if (m_bUsesProxy)
    {
        TraceText(kTraceProgress,
                  L"CHttpRequest::CheckInternetConnection: Use Proxy to connect to server.\n");
        dwState = INTERNET_CONNECTION_PROXY;
    }
    return InternetGetConnectedState(&dwState, 0) != FALSE;
}

bool CHttpRequest::OpenRequest(const wchar_t* /*lpszVerb*/)
{
    const CAutoFunTrace trace("CHttpRequest::OpenRequest\n");
    const URL_COMPONENTSW& uc = m_url.m_uc;
    m_hConnect = InternetConnectW(m_hSession, uc.lpszHostName, uc.nPort, nullptr, nullptr,
                                  INTERNET_SERVICE_HTTP, 0, 0);
    if (m_hConnect == nullptr)
    {
        TraceTextVar(kTraceError, L"InternetConnect failed!", "dwError", GetLastError());
        return false;
    }

    const std::unique_ptr<wchar_t[]> name = MakeObjectName(uc);
    if (name == nullptr)
    {
        return false;
    }
    const DWORD dwFlags =
        uc.nScheme == INTERNET_SCHEME_HTTPS ? kRequestFlags | INTERNET_FLAG_SECURE : kRequestFlags;
    const HINTERNET hRequest =
        HttpOpenRequestW(m_hConnect, L"POST", name.get(), L"HTTP/1.1", nullptr, nullptr, dwFlags, 0);
    if (hRequest == nullptr)
    {
        TraceTextVar(kTraceError, L"HttpOpenRequest failed!", "dwError", GetLastError());
        return false;
    }
    if (!m_hRequest.Open(hRequest))
    {
        return false;
    }
    SetOption(INTERNET_OPTION_SECURITY_FLAGS,
              GetSecurityFlags() | SECURITY_FLAG_IGNORE_REVOCATION | g_dwSecurityFlags);
    ApplyTimeouts();
    return true;
}

void CHttpRequest::SetOption(DWORD dwOption, DWORD dwValue) const
{
    m_hRequest.Call(InternetSetOptionW, dwOption, &dwValue, DWORD{sizeof(dwValue)});
}

DWORD CHttpRequest::GetSecurityFlags() const
{
    DWORD dwFlags = 0;
    DWORD dwLength = sizeof(dwFlags);
    const bool bRead =
        m_hRequest.Call(InternetQueryOptionW, DWORD{INTERNET_OPTION_SECURITY_FLAGS}, &dwFlags, &dwLength);
    // What the user has accepted for an exchange that was abandoned meanwhile counts for nobody.
    return bRead && !m_hRequest.IsAbandoned() ? dwFlags : 0;
}

void CHttpRequest::ApplyTimeouts() const
{
    const DWORD dwTimeoutMs = GetTimeoutMs();
    if (dwTimeoutMs == 0)
    {
        return;  // the seconds ran over
    }
    SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, dwTimeoutMs);
    SetOption(INTERNET_OPTION_RECEIVE_TIMEOUT, dwTimeoutMs);
    SetOption(INTERNET_OPTION_SEND_TIMEOUT, dwTimeoutMs);
}

SendResult CHttpRequest::SendRequest(const wchar_t* lpszPostData)
{
    const CAutoFunTrace trace("CHttpRequest::SendRequest");
    // No data, or data that cannot be converted, makes no body.
    int cb = 0;
    std::unique_ptr<char[]> body;
    if (lpszPostData != nullptr && *lpszPostData != L'\0')
    {
        body = NarrowCopy(CP_UTF8, lpszPostData, &cb);
    }
    if (body == nullptr && cb > 0)
    {
        UpdateRequestStatus(REQ_STATUS_FAILED);  // there is no memory
        return SEND_STOP;
    }
    void* const pBody = cb > 0 ? body.get() : nullptr;
    const DWORD dwLength = cb > 0 ? static_cast<DWORD>(cb) - 1 : 0;  // without the terminator

    SendResult result = SEND_STOP;
    for (int sends = 0; sends < kMaxSends; ++sends)
    {
        if (m_hRequest.Call(HttpSendRequestW, kContentType, kContentTypeLength, pBody, dwLength))
        {
            TraceText(kTraceProgress, L"Http request sent out here.");
            if (m_hRequest.IsAbandoned())
            {
                UpdateRequestStatus(REQ_STATUS_FAILED);
                return SEND_STOP;
            }
            result = HandleHttpStatus(static_cast<DWORD>(QueryStatusCode()));
        }
        else
        {
            const DWORD dwError = GetLastError();
            if (dwError == 0)
            {
                return result;  // intended: the status stays, and becomes a time-out when the owner polls
            }
            TraceTextVar(kTraceError, L"GetLastError", "dwError", dwError);
            result = HandleLastError(dwError);
        }
        if (result != SEND_AGAIN)
        {
            return result;
        }
    }
    UpdateRequestStatus(REQ_STATUS_TIMEOUT);
    return SEND_STOP;
}
