#include "session/HttpSession.h"

#include <cwchar>

#include "base/StringEx.h"
#include "proxy/ProxyInfo.h"
#include "session/SessionMode.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

namespace
{

constexpr wchar_t kUserAgent[] = L"Brixo Kestrin Desktop Http Agent";
// Intended: without the angle brackets that the platform would expect.
constexpr wchar_t kDefaultBypass[] = L"local";
constexpr size_t kMaxBypassLength = 4096;

// The platform's options take text that they do not change through a pointer to text that they might.
INTERNET_PER_CONN_OPTIONW TextOption(DWORD dwOption, const wchar_t* pszText)
{
    INTERNET_PER_CONN_OPTIONW option = {};
    option.dwOption = dwOption;
    option.Value.pszValue = const_cast<wchar_t*>(pszText);
    return option;
}

INTERNET_PER_CONN_OPTIONW FlagsOption(DWORD dwFlags)
{
    INTERNET_PER_CONN_OPTIONW option = {};
    option.dwOption = INTERNET_PER_CONN_FLAGS;
    option.Value.dwValue = dwFlags;
    return option;
}

template <size_t count>
bool SetConnectionOptions(HINTERNET hInternet, INTERNET_PER_CONN_OPTIONW (&options)[count])
{
    INTERNET_PER_CONN_OPTION_LISTW list = {};
    list.dwSize = sizeof(list);
    list.dwOptionCount = static_cast<DWORD>(count);
    list.pOptions = options;
    return InternetSetOptionW(hInternet, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, sizeof(list)) != FALSE;
}

// Intended: a real session is never told to read its settings again.
void RefreshIfNull(HINTERNET hInternet)
{
    if (hInternet == nullptr)
    {
        InternetSetOptionW(nullptr, INTERNET_OPTION_REFRESH, nullptr, 0);
    }
}

}  // namespace

CHttpSession::~CHttpSession()
{
    DisConnect();
}

int CHttpSession::OpenInternet()
{
    const CAutoFunTrace trace("CHttpSession::OpenInternet().");
    if (m_hInternet != nullptr)
    {
        return 0;
    }
    CProxyInfo proxyInfo;
    CStringEx strAutoURL;
    CStringEx strManual;
    CStringEx strBypass;
    DWORD dwBrowser = BROWSER_OTHER;
    m_bUsesProxy = proxyInfo.GetProxyInfo(strAutoURL, strManual, strBypass, &dwBrowser) != 0;
    if (!m_bUsesProxy)
    {
        m_hInternet = InternetOpenW(kUserAgent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0);
        return 0;
    }

    const SessionMode mode = ChooseSessionMode(dwBrowser, proxyInfo.m_dwProxyType);
    if (mode.bUsesSystemProxy)
    {
        TraceText(kTraceProgress,
                  L"CHttpSession::OpenInternet: Browser is Firefox and Proxy type is use default proxy.");
    }
    const wchar_t* const pszProxy = mode.bUsesProxyList ? strManual.c_str() : nullptr;
    const wchar_t* const pszBypass = mode.bUsesProxyList ? strBypass.c_str() : nullptr;
    m_hInternet = InternetOpenW(kUserAgent, mode.dwAccessType, pszProxy, pszBypass, 0);
    if (mode.bUsesScript)
    {
        SetProxyAutoConfigURLFlag(m_hInternet, strAutoURL);
    }
    else if (mode.bUsesProxyList)
    {
        SetManualFlag(m_hInternet, strManual, strBypass);
    }
    return 0;
}

void CHttpSession::SetProxyAutoConfigURLFlag(HINTERNET hInternet, const wchar_t* lpszAutoConfigURL)
{
    if (lpszAutoConfigURL == nullptr)
    {
        TraceText(kTraceProgress, L"CHttpSession::SetProxyAutoConfigURLFlag: input para is NULL!\n");
        return;
    }
    INTERNET_PER_CONN_OPTIONW options[] = {TextOption(INTERNET_PER_CONN_AUTOCONFIG_URL, lpszAutoConfigURL),
                                           FlagsOption(PROXY_TYPE_AUTO_PROXY_URL)};
    TraceText(kTraceProgress, L"Firefox autoconfig script:");
    TraceText(kTraceProgress, lpszAutoConfigURL);
    if (!SetConnectionOptions(hInternet, options) && HasTraceLibrary())
    {
        CStringEx strError;
        strError.Format(L"SetProxyAutoConfigURLFlag: Error=0X%x", GetLastError());
        TraceText(kTraceProgress, strError.c_str());
    }
    RefreshIfNull(hInternet);
}

void CHttpSession::SetManualFlag(HINTERNET hInternet, const wchar_t* lpszProxyServer,
                                 const wchar_t* lpszBypass)
{
    if (lpszProxyServer == nullptr || lpszBypass == nullptr)
    {
        // Intended: the class that the message names.
        TraceText(kTraceProgress, L"CHttpGet::SetManualFlag: input para is NULL!\n");
        return;
    }
    if (wcsnlen(lpszBypass, kMaxBypassLength) == 0)
    {
        lpszBypass = kDefaultBypass;
    }
    INTERNET_PER_CONN_OPTIONW options[] = {TextOption(INTERNET_PER_CONN_PROXY_SERVER, lpszProxyServer),
                                           TextOption(INTERNET_PER_CONN_PROXY_BYPASS, lpszBypass),
                                           FlagsOption(PROXY_TYPE_DIRECT | PROXY_TYPE_PROXY)};
    TraceText(kTraceProgress, L"lpszProxyServer is");
    TraceText(kTraceProgress, lpszProxyServer);
    if (!SetConnectionOptions(hInternet, options))
    {
        TraceText(kTraceProgress, L"SetManualFlag: Error");  // intended: without the error's number
    }
    RefreshIfNull(hInternet);
}

void CHttpSession::DisConnect()
{
    const CAutoFunTrace trace("CHttpSession::DisConnect()\n");
    if (m_hInternet != nullptr)
    {
        InternetCloseHandle(m_hInternet);
        m_hInternet = nullptr;
    }
}
