// The proxy preferences of a Firefox profile.
#include <cstdlib>
#include <memory>
#include <new>

#include "proxy/Profile.h"
#include "proxy/ProxyInfo.h"
#include "trace/Trace.h"

namespace
{

constexpr int kSocks5 = 5;

void AppendNarrow(CStringEx& strText, const char* text)
{
    CStringEx strWide;
    strWide = text;
    strText += strWide;
}

// Appends "protocol=host:port;". A port without its host counts for nothing.
void AppendProxy(CStringEx& strList, const wchar_t* pszProtocol, const char* host, const char* port)
{
    if (host == nullptr)
    {
        return;
    }
    strList += pszProtocol;
    AppendNarrow(strList, host);
    if (port != nullptr)
    {
        strList.AppendChar(L':');
        AppendNarrow(strList, port);
    }
    strList.AppendChar(L';');
}

}  // namespace

int CProxyInfo::GetNSProxyInfo(DWORD /*dwBrowser*/)
{
    if (m_dwBrowser != BROWSER_FIREFOX)
    {
        return 0;
    }
    CStringEx strPath;
    if (!GetMozillaProfile(strPath))
    {
        TraceText(kTraceProgress, L"CProxyInfo::GetNSProxyInfo--GetMozillaProfile--error");
        return 0;
    }
    try
    {
        CProfile profile;
        if (const std::unique_ptr<char[]> path = WideToAnsi(strPath))
        {
            profile.Load(path.get());
        }
        TakePreferences(profile);
    }
    catch (const std::bad_alloc&)
    {
        // Some libraries allocate for an empty list. As if the profile held nothing.
        m_dwProxyType = FIREFOX_PROXY_SYSTEM;
    }
    return 1;
}

void CProxyInfo::TakePreferences(const CProfile& profile)
{
    const char* const type = profile.GetPref("network.proxy.type");
    TraceText(kTraceProgress, L"CProxyInfo::GetNSProxyInfo--network.proxy.type");
    m_dwProxyType = type != nullptr ? static_cast<DWORD>(std::atoi(type)) : FIREFOX_PROXY_SYSTEM;

    if (m_dwProxyType == FIREFOX_PROXY_MANUAL)
    {
        AppendProxy(m_strManual, L"http=", profile.GetPref("network.proxy.http"),
                    profile.GetPref("network.proxy.http_port"));
        AppendProxy(m_strManual, L"https=", profile.GetPref("network.proxy.ssl"),
                    profile.GetPref("network.proxy.ssl_port"));
        const char* const version = profile.GetPref("network.proxy.socks_version");
        const bool bSocks5 = version != nullptr && std::atoi(version) == kSocks5;
        // Intended: version 5 has a name of its own, and proxies for FTP and Gopher are not read.
        AppendProxy(m_strManual, bSocks5 ? L"socks5=" : L"socks=", profile.GetPref("network.proxy.socks"),
                    profile.GetPref("network.proxy.socks_port"));
        if (const char* const bypass = profile.GetPref("network.proxy.no_proxies_on"))
        {
            m_strBypass = bypass;  // intended: its separators stay
        }
    }
    else if (m_dwProxyType == FIREFOX_PROXY_SCRIPT)
    {
        if (const char* const url = profile.GetPref("network.proxy.autoconfig_url"))
        {
            m_strAutoURL = url;
        }
        m_strAutoURL.Replace(L":///", L"://");  // intended: in the URL of a file, too
    }
}
