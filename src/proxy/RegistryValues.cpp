#include "proxy/RegistryValues.h"

#include <cstring>

#include "base/ScopedHandle.h"
#include "registry/Registry.h"

const wchar_t kInternetSettingsKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

namespace
{

// True when the value was read and has the type.
bool QueryValue(HKEY hRoot, const wchar_t* pszSubkey, const wchar_t* pszName, DWORD dwType, void* pData,
                DWORD cbData)
{
    const CRegistryRoot root(hRoot);
    CRegistryKey key;
    if (RegOpenKeyExW(root.Get(), pszSubkey, 0, KEY_READ, key.Put()) != ERROR_SUCCESS)
    {
        return false;
    }
    DWORD dwStoredType = REG_NONE;
    return RegQueryValueExW(key.Get(), pszName, nullptr, &dwStoredType, static_cast<BYTE*>(pData), &cbData) ==
               ERROR_SUCCESS &&
           dwStoredType == dwType;
}

}  // namespace

int ReadRegString(HKEY hRoot, const wchar_t* pszSubkey, const wchar_t* pszName, wchar_t* pszBuffer,
                  size_t /*cchBuffer*/, DWORD /*dwReserved*/)
{
    if (hRoot == nullptr || pszSubkey == nullptr || pszName == nullptr || pszBuffer == nullptr)
    {
        return 0;
    }
    std::memset(pszBuffer, 0, kRegStringBytes);
    return QueryValue(hRoot, pszSubkey, pszName, REG_SZ, pszBuffer, kRegStringBytes) ? 1 : 0;
}

int ReadProxyEnable(HKEY hRoot, DWORD* pdwEnable)
{
    if (pdwEnable == nullptr)
    {
        return 0;
    }
    return QueryValue(hRoot, kInternetSettingsKey, L"ProxyEnable", REG_DWORD, pdwEnable, sizeof(*pdwEnable))
               ? 1
               : 0;
}
