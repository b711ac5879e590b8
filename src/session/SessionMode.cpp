#include "session/SessionMode.h"

#include <wininet.h>

#include "proxy/ProxyInfo.h"

SessionMode ChooseSessionMode(DWORD dwBrowser, DWORD dwProxyType)
{
    SessionMode mode = {INTERNET_OPEN_TYPE_PRECONFIG, false, false, false};
    mode.bUsesScript = dwBrowser == BROWSER_FIREFOX && dwProxyType == FIREFOX_PROXY_SCRIPT;
    if (dwBrowser == BROWSER_IE || dwBrowser == BROWSER_OTHER)
    {
        return mode;
    }
    if (dwProxyType == FIREFOX_PROXY_DIRECT)
    {
        mode.dwAccessType = INTERNET_OPEN_TYPE_DIRECT;
        return mode;
    }
    if (dwBrowser == BROWSER_FIREFOX &&
        (dwProxyType == FIREFOX_PROXY_SCRIPT || dwProxyType == FIREFOX_PROXY_DETECT ||
         dwProxyType == FIREFOX_PROXY_SYSTEM))
    {
        mode.bUsesSystemProxy = true;
        return mode;
    }
    mode.dwAccessType = INTERNET_OPEN_TYPE_PROXY;
    mode.bUsesProxyList = true;
    return mode;
}
