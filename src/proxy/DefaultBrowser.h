// Which browser a registered command line starts.
#pragma once

#include "proxy/ProxyInfo.h"

// Turns a command line into the path of its executable: lower case, up to the first ".exe", without
// leading quotes. False, and the text lower-cased only, when it names no ".exe".
bool CutToExecutable(CStringEx& strCommand);

// The browser whose executable's name stands anywhere in the path, BROWSER_OTHER when there is none; where
// several stand in it, the order of emBrowserType decides. pszPath is in lower case.
emBrowserType BrowserOf(const wchar_t* pszPath);
