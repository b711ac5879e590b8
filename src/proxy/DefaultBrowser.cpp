#include "proxy/DefaultBrowser.h"

#include <cwchar>

#include "proxy/RegistryValues.h"
#include "registry/OSVersion.h"
#include "registry/Registry.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

namespace
{

constexpr wchar_t kUserChoiceKey[] =
    L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice";
constexpr wchar_t kCommandKey[] = L"shell\\open\\command";
constexpr wchar_t kHttpCommandKey[] = L"http\\shell\\open\\command";
constexpr wchar_t kExecutableEnding[] = L".exe";
constexpr int kExecutableEndingLength = 4;

// The command key of the class that the user chose for http; false when there is no such choice or class.
bool FindUserChoice(CStringEx& strKeyPath)
{
    TraceText(kTraceProgress, L"CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice");
    wchar_t szProgId[kRegStringLength] = {};
    if (ReadRegString(HKEY_CURRENT_USER, kUserChoiceKey, L"Progid", szProgId, kRegStringLength, 0) == 0)
    {
        return false;
    }
    strKeyPath = szProgId;
    strKeyPath.PathAppend(kCommandKey);
    TraceText(kTraceProgress, strKeyPath.c_str());
    return KeyExists(HKEY_CLASSES_ROOT, strKeyPath) != FALSE;
}

// The long form of a path; empty when there is no such file.
CStringEx LongPathOf(const wchar_t* pszPath)
{
    wchar_t szLong[MAX_PATH] = {};
    const DWORD cch = GetLongPathNameW(pszPath, szLong, MAX_PATH);
    return CStringEx(cch < MAX_PATH ? szLong : L"");
}

}  // namespace

bool CutToExecutable(CStringEx& strCommand)
{
    strCommand.MakeLower();
    const int ending = strCommand.Find(kExecutableEnding);
    if (ending < 0)
    {
        return false;
    }
    const CStringEx strCut = strCommand.Left(ending + kExecutableEndingLength);
    strCommand = strCut.c_str() + std::wcsspn(strCut.c_str(), L"\"");
    return true;
}

emBrowserType BrowserOf(const wchar_t* pszPath)
{
    struct Executable
    {
        const wchar_t* pszName;
        emBrowserType emBrowser;
    };
    constexpr Executable kExecutables[] = {{L"iexplore.exe", BROWSER_IE},
                                           {L"firefox.exe", BROWSER_FIREFOX},
                                           {L"chrome.exe", BROWSER_CHROME},
                                           {L"safari.exe", BROWSER_SAFARI}};
    for (const Executable& executable : kExecutables)
    {
        if (std::wcsstr(pszPath, executable.pszName) != nullptr)
        {
            return executable.emBrowser;
        }
    }
    return BROWSER_OTHER;
}

int CProxyInfo::GetDefaultBrowser()
{
    const CAutoFunTrace trace("CProxyInfo::GetDefaultBrowser().");
    CStringEx strKeyPath;
    if (GetOSVersion() != kOSVista || !FindUserChoice(strKeyPath))
    {
        strKeyPath = kHttpCommandKey;
        if (!KeyExists(HKEY_CLASSES_ROOT, strKeyPath))
        {
            TraceText(kTraceProgress,
                      L"CProxyInfo::GetDefaultBrowser: can not found the default browser reg key!\n");
            return 0;
        }
    }
    if (strKeyPath.GetLength() == 0)
    {
        TraceText(kTraceProgress, L"CProxyInfo::GetDefaultBrowser: DefaultKeyPath is empty!\n");
        return 0;
    }

    // Intended: the result is not tested, so that a value of another text type serves too.
    wchar_t szCommand[kRegStringLength] = {};
    ReadRegString(HKEY_CLASSES_ROOT, strKeyPath, L"", szCommand, kRegStringLength, 0);
    if (*szCommand == L'\0')
    {
        TraceText(kTraceProgress, L"CProxyInfo::GetDefaultBrowser: DefaultKey value is empty!\n");
        return 0;
    }
    CStringEx strCommand(szCommand);
    if (!CutToExecutable(strCommand))
    {
        TraceText(kTraceProgress, L"CProxyInfo::GetDefaultBrowser: can not found .exe returned!\n");
        return 0;
    }
    CStringEx strPath = LongPathOf(strCommand);
    strPath.MakeLower();
    const emBrowserType emBrowser = BrowserOf(strPath.c_str());
    if (emBrowser == BROWSER_OTHER)
    {
        return 0;
    }
    m_dwBrowser = emBrowser;
    return 1;
}
