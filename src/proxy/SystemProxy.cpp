#include "proxy/SystemProxy.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "proxy/ProxyInfo.h"
#include "proxy/RegistryValues.h"

namespace
{

bool ReadSetting(const wchar_t* pszName, wchar_t (&szValue)[kRegStringLength])
{
    return ReadRegString(HKEY_CURRENT_USER, kInternetSettingsKey, pszName, szValue, kRegStringLength, 0) != 0;
}

}  // namespace

CStringEx ManualListOf(const wchar_t* pszProxyServer)
{
    constexpr const wchar_t* kProtocols[] = {L"ftp=", L"gopher=", L"http=", L"https=", L"socks="};
    const bool bNamesProtocol =
        std::any_of(std::begin(kProtocols), std::end(kProtocols), [pszProxyServer](const wchar_t* protocol)
                    { return std::wcsstr(pszProxyServer, protocol) != nullptr; });
    CStringEx strManual(bNamesProtocol ? L"" : L"http=");
    strManual.PathAppend(pszProxyServer);
    return strManual;
}

int CProxyInfo::GetIEProxyInfo()
{
    wchar_t szValue[kRegStringLength] = {};
    DWORD dwEnable = 0;
    if (ReadProxyEnable(HKEY_CURRENT_USER, &dwEnable) != 0 && dwEnable != 0)
    {
        m_dwProxyType = 1;
        if (ReadSetting(L"ProxyServer", szValue))
        {
            m_strManual = ManualListOf(szValue);
            if (ReadSetting(L"ProxyOverride", szValue))
            {
                m_strBypass = szValue;
            }
        }
    }
    if (ReadSetting(L"AutoConfigURL", szValue))
    {
        m_strAutoURL = szValue;
    }
    const bool bAny =
        m_strManual.GetLength() > 0 || m_strBypass.GetLength() > 0 || m_strAutoURL.GetLength() > 0;
    return bAny ? 1 : 0;
}
