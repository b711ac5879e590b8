#include "proxy/MozillaProfile.h"

#include <windows.h>

#include <shlobj.h>

#include <cstring>
#include <new>

#include "base/TextConversion.h"
#include "proxy/MozillaFile.h"
#include "proxy/ProxyInfo.h"

namespace
{

// What lies beyond is not seen.
constexpr size_t kMaxIniBytes = 16384;

// The shell's application-data folder; false when the shell cannot say.
bool GetShellFolder(char (&szFolder)[MAX_PATH])
{
    IMalloc* pMalloc = nullptr;
    if (FAILED(SHGetMalloc(&pMalloc)))
    {
        return false;
    }
    PIDLIST_ABSOLUTE pidl = nullptr;
    const bool bFound = SUCCEEDED(SHGetSpecialFolderLocation(nullptr, CSIDL_APPDATA, &pidl)) &&
                        SHGetPathFromIDListA(pidl, szFolder);
    if (pidl != nullptr)
    {
        pMalloc->Free(pidl);
    }
    pMalloc->Release();
    return bFound;
}

}  // namespace

bool FindFirstProfile(const char* ini, std::string& value)
{
    constexpr char kPath[] = "Path=";
    const char* begin = std::strstr(ini, kPath);
    if (begin == nullptr)
    {
        return false;
    }
    begin += sizeof(kPath) - 1;
    const char* const end = std::strchr(begin, '\n');
    if (end == nullptr)
    {
        return false;
    }
    value.assign(begin, end);
    return true;
}

std::unique_ptr<char[]> CProxyInfo::WideToAnsi(const wchar_t* text)
{
    return NarrowCopy(CP_ACP, text);
}

BOOL CProxyInfo::GetAppDataFolder(CStringEx& path) const
{
    char szFolder[MAX_PATH] = {};
    // Intended: only a path that does not fit counts as a failure of the fallback.
    if (!GetShellFolder(szFolder) && GetWindowsDirectoryA(szFolder, MAX_PATH) > MAX_PATH - 1)
    {
        return FALSE;
    }
    path = szFolder;
    if (m_dwBrowser == BROWSER_FIREFOX)
    {
        path.PathAppend(L"Mozilla");
    }
    return TRUE;
}

BOOL CProxyInfo::GetMozillaProfile(CStringEx& prefsPath) const
{
    CStringEx strFolder;
    if (!GetAppDataFolder(strFolder))
    {
        return FALSE;
    }
    prefsPath = strFolder;
    CStringEx strIni(strFolder);
    strIni.PathAppend(L"firefox\\profiles.ini");

    const CMozillaFile file(WideToAnsi(strIni).get(), "r");
    if (file)
    {
        const std::unique_ptr<char[]> text(new (std::nothrow) char[kMaxIniBytes + 1]());
        if (text == nullptr)
        {
            return FALSE;
        }
        file.Read(text.get(), kMaxIniBytes);
        try
        {
            std::string profile;
            if (FindFirstProfile(text.get(), profile))
            {
                prefsPath.PathAppend(L"firefox");
                CStringEx strProfile;
                strProfile = profile.c_str();
                prefsPath.PathAppend(strProfile);
            }
        }
        catch (const std::bad_alloc&)
        {
            // As if no profile were named.
        }
    }
    prefsPath.PathAppend(L"prefs.js");
    return TRUE;
}
