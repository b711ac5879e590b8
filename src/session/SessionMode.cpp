#include "session/SessionMode.h"

#include <wininet.h>

#include "proxy/ProxyInfo.h"

namespace
{

// Values of Firefox's network.proxy.type.
constexpr DWORD kTypeDirect = 0;
constexpr DWORD kTypeAutoURL = 2;
constexpr DWORD kTypeAutoDetect = 4;
constexpr DWORD kTypeSystem = 5;

}  // namespace

SessionMode ChooseSessionMode(DWORD dwBrowser, DWORD dwProxyType)
{
    SessionMode mode = {INTERNET_OPEN_TYPE_PRECONFIG, false, false, false};
    mode.bUsesScript = dwBrowser == BROWSER_FIREFOX && dwProxyType == kTypeAutoURL;
    if (dwBrowser == BROWSER_IE || dwBrowser == BROWSER_OTHER)
    {
        return mode;
    }
    if (dwProxyType == kTypeDirect)
    {
        mode.dwAccessType = INTERNET_OPEN_TYPE_DIRECT;
        return mode;
    }
    if (dwBrowser == BROWSER_FIREFOX &&
        (dwProxyType == kTypeAutoURL || dwProxyType == kTypeAutoDetect || dwProxyType == kTypeSystem))
    {
        mode.bUsesSystemProxy = true;
        return mode;
    }
    mode.dwAccessType = INTERNET_OPEN_TYPE_PROXY;
    mode.bUsesProxyList = true;
    return mode;
}
