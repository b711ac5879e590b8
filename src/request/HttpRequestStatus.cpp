// Carrying out what the server's status or the platform's error means for the exchange, and the error dialog.
#include "request/HttpRequest.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

namespace
{

constexpr DWORD kDialogFlags = FLAGS_ERROR_UI_FILTER_FOR_ERRORS | FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS |
                               FLAGS_ERROR_UI_FLAGS_GENERATE_DATA;
constexpr DWORD kLocationBytes = 32770;

}  // namespace

SendResult CHttpRequest::HandleHttpStatus(DWORD dwHttpStatusCode)
{
    const CAutoFunTrace trace("CHttpRequest::HandleHttpStatus");
    TraceTextVar(kTraceProgress, L"http status code", "dwHttpStatusCode", dwHttpStatusCode);
    return Carry(JudgeHttpStatus(dwHttpStatusCode), ERROR_INTERNET_INCORRECT_PASSWORD);
}

SendResult CHttpRequest::HandleLastError(DWORD dwError)
{
    const CAutoFunTrace trace("CHttpRequest::HandleLastError");
    return Carry(JudgeLastError(dwError), dwError);
}

// What a user is asked about is dwError.
SendResult CHttpRequest::Carry(const CVerdict& verdict, DWORD dwError)
{
    if (verdict.result == SEND_ASK_USER)
    {
        return PopIEErrorDlg(dwError, kDialogFlags);
    }
    if (verdict.result == SEND_REOPEN)
    {
        UpdateLocation();
    }
    if (verdict.result == SEND_STOP)
    {
        UpdateRequestStatus(verdict.emStatus);
    }
    return verdict.result;
}

SendResult CHttpRequest::PopIEErrorDlg(DWORD dwError, DWORD /*dwFlags*/)
{
    const CAutoFunTrace trace("CHttpRequest::PopIEErrorDlg");
    // The user's time in the dialog does not count: the clock stands still, then begins again.
    m_timer.Stop();
    const HWND hWndParent = GetParentWnd();
    const DWORD dwResult =
        m_hRequest.Use(DWORD{ERROR_INTERNET_OPERATION_CANCELLED}, [&](HINTERNET hRequest)
                       { return InternetErrorDlg(hWndParent, hRequest, dwError, kDialogFlags, nullptr); });
    m_timer.Restart();
    TraceTextVar(kTraceProgress, L"InternetErrorDlg closed", "dwResult", dwResult);

    const CVerdict verdict = JudgeDialogResult(dwResult, dwError);
    if (verdict.result != SEND_STOP)
    {
        g_dwSecurityFlags |= GetSecurityFlags();
        SetOption(INTERNET_OPTION_SECURITY_FLAGS, g_dwSecurityFlags);
    }
    return Carry(verdict, dwError);
}

void CHttpRequest::UpdateLocation()
{
    wchar_t szLocation[kLocationBytes / sizeof(wchar_t)] = {};
    DWORD dwLength = kLocationBytes;
    if (m_hRequest.Call(HttpQueryInfoW, DWORD{HTTP_QUERY_LOCATION}, szLocation, &dwLength, nullptr) &&
        szLocation[0] != L'\0')
    {
        m_strUrl = szLocation;
        m_url.Crack(m_strUrl);
        // Intended: the target that the server names is traced as it stands.
        TraceTextVar(kTraceProgress, L"Url redirected!", "szLocation", szLocation);
    }
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
