// The proxy settings of the user's default browser, gathered afresh by every query. Nothing here fails
// outward: what cannot be found out leaves the record empty, at most with a trace line. An object is a local
// of its caller and belongs to its thread.
#pragma once

#include <windows.h>

#include <memory>

#include "base/StringEx.h"

enum emBrowserType : DWORD
{
    BROWSER_OTHER = 0,  // also every failure
    BROWSER_IE = 1,
    BROWSER_FIREFOX = 2,
    BROWSER_CHROME = 3,
    BROWSER_SAFARI = 4,
};

// Firefox's network.proxy.type. Any other number is a proxy list too.
enum emFirefoxProxyType : DWORD
{
    FIREFOX_PROXY_DIRECT = 0,
    FIREFOX_PROXY_MANUAL = 1,
    FIREFOX_PROXY_SCRIPT = 2,
    FIREFOX_PROXY_DETECT = 4,
    FIREFOX_PROXY_SYSTEM = 5,  // also when the preference is absent
};

class CProfile;

class CProxyInfo
{
public:
    CProxyInfo() = default;
    virtual ~CProxyInfo() = default;

    // Finds the default browser and reads its settings into this record and the outputs, which are
    // always written. Nonzero when the browser's reader found any: for Firefox, whenever there is a
    // profile.
    int GetProxyInfo(CStringEx& strAutoURL, CStringEx& strManual, CStringEx& strBypass, DWORD* pdwBrowser);

    // Stores the default browser in m_dwBrowser; 0, and nothing changed, when none of the known ones is
    // recognised.
    int GetDefaultBrowser();

    // Takes the system's Internet settings; 1 when any of the three texts is not empty.
    int GetIEProxyInfo();

    // Takes the settings of the Firefox profile; 1 when a profile was found, whatever it holds. 0 when
    // m_dwBrowser is not Firefox; the argument has no effect.
    int GetNSProxyInfo(DWORD dwBrowser);

    // The user's application-data folder, with "Mozilla" below it when m_dwBrowser is Firefox. Intended:
    // where the shell knows none, the Windows folder serves. FALSE, and path unchanged, on failure.
    BOOL GetAppDataFolder(CStringEx& path) const;

    // Full path of the preference file of the first profile that profiles.ini names. A missing or
    // unusable profiles.ini still gives TRUE, with a path that is not likely to exist.
    BOOL GetMozillaProfile(CStringEx& prefsPath) const;

    // A new copy in the ANSI code page, in which the files of a profile are named; null for a null argument,
    // or without memory.
    static std::unique_ptr<char[]> WideToAnsi(const wchar_t* text);

    // What of the record the preferences of a Firefox profile make.
    void TakePreferences(const CProfile& profile);

    CStringEx m_strManual;  // "protocol=host:port;" and so on
    CStringEx m_strBypass;
    CStringEx m_strAutoURL;
    DWORD m_dwProxyType = 0;  // Firefox: an emFirefoxProxyType; the system's browser: 1 when the proxy is on
    DWORD m_dwBrowser = BROWSER_OTHER;
};
