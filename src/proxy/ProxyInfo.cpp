#include "proxy/ProxyInfo.h"

#include "trace/Trace.h"

int CProxyInfo::GetProxyInfo(CStringEx& strAutoURL, CStringEx& strManual, CStringEx& strBypass,
                             DWORD* pdwBrowser)
{
    m_dwProxyType = 0;
    m_strAutoURL = L"";
    m_strManual = L"";
    m_strBypass = L"";
    m_dwBrowser = BROWSER_OTHER;
    GetDefaultBrowser();

    int found = 0;
    switch (m_dwBrowser)
    {
        case BROWSER_IE:
            TraceText(kTraceProgress, L"CProxyInfo::GetProxyInfo: Default Browser is IE.\n");
            found = GetIEProxyInfo();
            break;
        case BROWSER_FIREFOX:
            TraceText(kTraceProgress, L"CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.\n");
            found = GetNSProxyInfo(m_dwBrowser);
            break;
        default:
            TraceText(kTraceProgress, L"CProxyInfo::GetProxyInfo: Default Browser is Other!\n");
            break;
    }
    strAutoURL = m_strAutoURL;
    strManual = m_strManual;
    strBypass = m_strBypass;
    *pdwBrowser = m_dwBrowser;

    if (HasTraceLibrary())
    {
        // Intended: what is called the type here is the browser's.
        CStringEx strRecord;
        strRecord.Format(L"ProxyInfo: autourl-%s, manual-%s, bypass-%s, type-%d", strAutoURL.c_str(),
                         strManual.c_str(), strBypass.c_str(), static_cast<int>(m_dwBrowser));
        TraceText(kTraceProgress, strRecord.c_str());
    }
    return found;
}
