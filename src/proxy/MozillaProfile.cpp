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

// The shell's allocator, which may be missing, and an item list for it to free.
struct ShellItems
{
    ShellItems() = default;
    ~ShellItems()
    {
        if (pMalloc == nullptr)
        {
            return;
        }
        if (pidl != nullptr)
        {
            pMalloc->Free(pidl);
        }
        pMalloc->Release();
    }
    ShellItems(const ShellItems&) = delete;
    ShellItems& operator=(const ShellItems&) = delete;

    IMalloc* pMalloc = nullptr;
    PIDLIST_ABSOLUTE pidl = nullptr;
};

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
    ShellItems items;
    const bool bShellKnows = SUCCEEDED(SHGetMalloc(&items.pMalloc)) &&
                             SUCCEEDED(SHGetSpecialFolderLocation(nullptr, CSIDL_APPDATA, &items.pidl)) &&
                             SHGetPathFromIDListA(items.pidl, szFolder);
    // Intended: only a path that does not fit counts as a failure of the fallback.
    if (!bShellKnows && GetWindowsDirectoryA(szFolder, MAX_PATH) > MAX_PATH - 1)
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
        // Reading in text mode leaves more in the block than it counts: what line ends have shrunk by, and
        // what follows an end-of-text character.
        text[file.Read(text.get(), kMaxIniBytes)] = '\0';
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
