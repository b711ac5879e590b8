// What the server's status or the platform's error means for the exchange, and the error dialog.
#include "request/HttpRequest.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

namespace
{

constexpr DWORD kDialogFlags = FLAGS_ERROR_UI_FILTER_FOR_ERRORS | FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS |
                               FLAGS_ERROR_UI_FLAGS_GENERATE_DATA;
constexpr DWORD kLocationBytes = 32770;

}  // namespace

SendResult CHttpRequest::HandleHttpStatus(HINTERNET hRequest, DWORD dwHttpStatusCode)
{
    const CAutoFunTrace trace("CHttpRequest::HandleHttpStatus");
    TraceTextVar(kTraceProgress, L"http status code", "dwHttpStatusCode", dwHttpStatusCode);
    switch (dwHttpStatusCode)
    {
        case HTTP_STATUS_MOVED:
        case HTTP_STATUS_REDIRECT:
        case HTTP_STATUS_REDIRECT_METHOD:
        case HTTP_STATUS_REDIRECT_KEEP_VERB:
            UpdateLocation();
            return SEND_REOPEN;

        case HTTP_STATUS_BAD_REQUEST:
        case HTTP_STATUS_DENIED:
        case HTTP_STATUS_NOT_FOUND:
        case HTTP_STATUS_BAD_METHOD:
            UpdateRequestStatus(REQ_STATUS_HTTP_ERROR);
            return SEND_STOP;

        case HTTP_STATUS_PROXY_AUTH_REQ:
            return PopIEErrorDlg(hRequest, ERROR_INTERNET_INCORRECT_PASSWORD, kDialogFlags);

        case HTTP_STATUS_REQUEST_TIMEOUT:
            UpdateRequestStatus(REQ_STATUS_TIMEOUT);
            return SEND_STOP;

        default:
            return SEND_READ_BODY;
    }
}

SendResult CHttpRequest::HandleLastError(HINTERNET hRequest, DWORD dwError)
{
    const CAutoFunTrace trace("CHttpRequest::HandleLastError");
    switch (dwError)
    {
        case ERROR_SUCCESS:
            return SEND_READ_BODY;

        case ERROR_INTERNET_TIMEOUT:
        case ERROR_IO_PENDING:
            UpdateRequestStatus(REQ_STATUS_TIMEOUT);
            return SEND_STOP;

        case ERROR_INTERNET_FORCE_RETRY:
            return SEND_AGAIN;

        // What the user can resolve. A client certificate (12044) is not among them.
        case ERROR_INTERNET_INCORRECT_PASSWORD:
        case ERROR_INTERNET_SEC_CERT_DATE_INVALID:
        case ERROR_INTERNET_SEC_CERT_CN_INVALID:
        case ERROR_INTERNET_HTTP_TO_HTTPS_ON_REDIR:
        case ERROR_INTERNET_HTTPS_TO_HTTP_ON_REDIR:
        case ERROR_INTERNET_MIXED_SECURITY:
        case ERROR_INTERNET_CHG_POST_IS_NON_SECURE:
        case ERROR_INTERNET_POST_IS_NON_SECURE:
        case ERROR_INTERNET_INVALID_CA:
        case ERROR_INTERNET_REDIRECT_SCHEME_CHANGE:
        case ERROR_INTERNET_RETRY_DIALOG:
        case ERROR_INTERNET_HTTPS_HTTP_SUBMIT_REDIR:
        case ERROR_INTERNET_SEC_CERT_ERRORS:
        case ERROR_INTERNET_SEC_CERT_NO_REV:
        case ERROR_INTERNET_SEC_CERT_REV_FAILED:
        case ERROR_HTTP_REDIRECT_NEEDS_CONFIRMATION:
            return PopIEErrorDlg(hRequest, dwError, kDialogFlags);

        default:
            UpdateRequestStatus(REQ_STATUS_FAILED);
            return SEND_STOP;
    }
}

SendResult CHttpRequest::PopIEErrorDlg(HINTERNET hRequest, DWORD dwError, DWORD /*dwFlags*/)
{
    const CAutoFunTrace trace("CHttpRequest::PopIEErrorDlg");
    if (m_bAbandoned)
    {
        UpdateRequestStatus(REQ_STATUS_FAILED);
        return SEND_STOP;  // the request that the user would be asked about is gone
    }
    // The user's time in the dialog does not count: the clock stands still, then begins again.
    m_timer.Stop();
    const DWORD dwResult = InternetErrorDlg(GetParentWnd(), hRequest, dwError, kDialogFlags, nullptr);
    m_timer.Restart();
    TraceTextVar(kTraceProgress, L"InternetErrorDlg closed", "dwResult", dwResult);

    switch (dwResult)
    {
        case ERROR_SUCCESS:
        case ERROR_INTERNET_FORCE_RETRY:
        {
            DWORD dwFlags = 0;
            DWORD dwLength = sizeof(dwFlags);
            if (InternetQueryOptionW(hRequest, INTERNET_OPTION_SECURITY_FLAGS, &dwFlags, &dwLength))
            {
                g_dwSecurityFlags |= dwFlags;
            }
            dwFlags = g_dwSecurityFlags;
            InternetSetOptionW(hRequest, INTERNET_OPTION_SECURITY_FLAGS, &dwFlags, sizeof(dwFlags));
            if (dwError == ERROR_HTTP_REDIRECT_NEEDS_CONFIRMATION)
            {
                UpdateLocation();
                return SEND_REOPEN;
            }
            return SEND_AGAIN;
        }

        case ERROR_CANCELLED:
            UpdateRequestStatus(REQ_STATUS_NOT_CONNECTED);
            return SEND_STOP;

        default:
            UpdateRequestStatus(REQ_STATUS_FAILED);
            return SEND_STOP;
    }
}

void CHttpRequest::UpdateLocation()
{
    wchar_t szLocation[kLocationBytes / sizeof(wchar_t)] = {};
    DWORD dwLength = kLocationBytes;
    if (HttpQueryInfoW(m_hRequest, HTTP_QUERY_LOCATION, szLocation, &dwLength, nullptr) &&
        szLocation[0] != L'\0')
    {
        m_strUrl = szLocation;
        m_url.Crack(m_strUrl);
        TraceTextVar(kTraceProgress, L"Url redirected!", "szLocation",
                     static_cast<const wchar_t*>(szLocation));
    }
}

void CHttpRequest::SetParentWnd(HWND hWndParent)
{
    TraceTextVar(kTraceProgress, L"CHttpRequest::SetParentWnd", "hWndParent",
                 static_cast<const void*>(hWndParent));
    m_hWndParent = hWndParent;
}

HWND CHttpRequest::GetParentWnd() const
{
    if (m_hWndParent != nullptr && IsWindow(m_hWndParent))
    {
        return m_hWndParent;
    }
    TraceText(kTraceProgress,
              L"CHttpRequest::GetParentWnd: Not set parent wnd. use Desktop window as parent wnd.");
    return GetDesktopWindow();
}
