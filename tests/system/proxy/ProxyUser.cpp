#include "system/proxy/ProxyUser.h"

namespace
{

constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kUserChoice[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";
constexpr wchar_t kShellFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
constexpr wchar_t kUsedShellFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
constexpr wchar_t kAppData[] = L"AppData";

}  // namespace

CProxyUser::CProxyUser()
{
    // The shell keeps what it has found in the second one, and could not make that in a volatile hive.
    m_user.AddKey(kUsedShellFolders);
    m_user.SetText(kShellFolders, kAppData, (m_folder.Path() / kAppData).wstring());
    std::filesystem::create_directories(m_folder.Path() / kAppData);
    m_user.SetNumber(kSettings, L"ProxyEnable", 0);
}

void CProxyUser::BrowseWithFirefox(const std::string& prefs) const
{
    SetBrowser(L"FirefoxURL-308046B0AF4A39CB", L"firefox.exe");
    const std::filesystem::path firefox = std::filesystem::path(kAppData) / L"Mozilla" / L"Firefox";
    m_folder.Write(firefox / L"profiles.ini",
                   "[Profile0]\nName=default\nIsRelative=1\nPath=Profiles/x.default\nDefault=1\n");
    m_folder.Write(firefox / L"Profiles" / L"x.default" / L"prefs.js", prefs);
}

void CProxyUser::BrowseWithSystemBrowser() const
{
    SetBrowser(L"IE.HTTP", L"iexplore.exe");
}

void CProxyUser::SetSystemProxy(unsigned short port) const
{
    m_user.SetNumber(kSettings, L"ProxyEnable", 1);
    m_user.SetText(kSettings, L"ProxyServer", L"127.0.0.1:" + std::to_wstring(port));
}

std::wstring CProxyUser::SystemProxy() const
{
    DWORD dwEnable = 0;
    DWORD cb = sizeof(dwEnable);
    RegGetValueW(m_user.Root(), kSettings, L"ProxyEnable", RRF_RT_REG_DWORD, nullptr, &dwEnable, &cb);
    wchar_t szServer[256] = {};
    cb = sizeof(szServer);
    RegGetValueW(m_user.Root(), kSettings, L"ProxyServer", RRF_RT_REG_SZ, nullptr, szServer, &cb);
    return dwEnable != 0 ? szServer : L"";
}

// Both as the user's choice and as the common browser, so that every system finds it.
void CProxyUser::SetBrowser(const wchar_t* pszProgId, const wchar_t* pszExecutable) const
{
    const std::wstring executable =
        m_folder.Write(std::filesystem::path(L"Default Browser") / pszExecutable, "").wstring();
    const std::wstring command = L"\"" + executable + L"\" -osint -url \"%1\"";
    m_user.SetText(kUserChoice, L"Progid", pszProgId);
    m_classes.SetText(std::wstring(pszProgId) + L"\\shell\\open\\command", nullptr, command);
    m_classes.SetText(L"http\\shell\\open\\command", nullptr, command);
}
