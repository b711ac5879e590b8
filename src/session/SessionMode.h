// How the session is opened for the proxy settings that discovery has found.
#pragma once

#include <windows.h>

struct SessionMode
{
    DWORD dwAccessType;     // INTERNET_OPEN_TYPE_*
    bool bUsesProxyList;    // the manual list and the bypass list go with it
    bool bUsesSystemProxy;  // Firefox takes the system's settings, or a script
    bool bUsesScript;       // the configuration script is set on the session
};

// dwBrowser is an emBrowserType, dwProxyType what CProxyInfo holds for it.
SessionMode ChooseSessionMode(DWORD dwBrowser, DWORD dwProxyType);
