// A user of a test's own: a registry hive, classes and an application-data folder that take the place of
// the real ones in this process, so that discovery and the platform find the browser and the settings that
// the test gives them.
#pragma once

#include <string>

#include "support/TempFolder.h"
#include "support/TestHive.h"

class CProxyUser
{
public:
    // Has neither a browser nor a proxy.
    CProxyUser();

    // Firefox is the default browser, with these preferences.
    void BrowseWithFirefox(const std::string& prefs) const;
    void BrowseWithSystemBrowser() const;

    // The system's settings name 127.0.0.1:port.
    void SetSystemProxy(unsigned short port) const;

    // Where Firefox's profile is.
    std::string AppDataFolder() const { return (m_folder.Path() / "AppData").string(); }

    // What they name while they are enabled, otherwise nothing.
    std::wstring SystemProxy() const;

private:
    void SetBrowser(const wchar_t* pszProgId, const wchar_t* pszExecutable) const;

    CTempFolder m_folder;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
};
