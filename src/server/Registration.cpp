#include "server/Registration.h"

#include <objbase.h>

#include <cwchar>
#include <memory>
#include <new>

#include "base/ModulePath.h"
#include "base/ScopedHandle.h"

#define STRSAFE_NO_DEPRECATE
#include <strsafe.h>

namespace
{

constexpr size_t kKeyNameLength = 260;
constexpr size_t kClsidKeyLength = 64;

HKEY CreateKey(const wchar_t* pszName)
{
    HKEY hKey = nullptr;
    const LONG error = RegCreateKeyExW(HKEY_CLASSES_ROOT, pszName, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                       KEY_ALL_ACCESS, nullptr, &hKey, nullptr);
    return error == ERROR_SUCCESS ? hKey : nullptr;
}

void SetText(HKEY hKey, const wchar_t* pszName, const wchar_t* pszValue, DWORD cbSize)
{
    RegSetValueExW(hKey, pszName, 0, REG_SZ, reinterpret_cast<const BYTE*>(pszValue), cbSize);
}

DWORD BytesWithTerminator(const wchar_t* pszText)
{
    return static_cast<DWORD>((std::wcslen(pszText) + 1) * sizeof(wchar_t));
}

// The texts that name a class: its identifier, and its key below HKEY_CLASSES_ROOT. Both are empty when
// the identifier has no text: the key must never be that of all classes.
struct ClassNames
{
    explicit ClassNames(REFCLSID clsid)
    {
        wchar_t* pszText = nullptr;
        if (SUCCEEDED(StringFromCLSID(clsid, &pszText)))
        {
            StringCchCopyW(szClsid, kClsidKeyLength, pszText);
            CoTaskMemFree(pszText);
            StringCchCopyW(szKey, kClsidKeyLength, L"CLSID\\");
            StringCchCatW(szKey, kClsidKeyLength, szClsid);
        }
    }

    bool Known() const { return szKey[0] != L'\0'; }

    wchar_t szClsid[kClsidKeyLength] = {};
    wchar_t szKey[kClsidKeyLength] = {};
};

}  // namespace

HRESULT RegisterServer(HMODULE hModule, REFCLSID clsid, const wchar_t* pszFriendlyName,
                       const wchar_t* pszVersionIndependentProgId, const wchar_t* pszProgId)
{
    // Intended: what fits of a longer path is registered.
    wchar_t szModule[MAX_PATH] = {};
    GetModulePath(hModule, szModule);
    const ClassNames names(clsid);
    if (!names.Known())
    {
        return S_OK;
    }

    SetKeyAndValue(names.szKey, nullptr, pszFriendlyName);
    SetKeyAndValue(names.szKey, L"InprocServer32", szModule);
    SetThreadingModel(names.szKey);
    SetKeyAndValue(names.szKey, L"ProgID", pszProgId);
    SetKeyAndValue(names.szKey, L"VersionIndependentProgID", pszVersionIndependentProgId);

    SetKeyAndValue(pszVersionIndependentProgId, nullptr, pszFriendlyName);
    SetKeyAndValue(pszVersionIndependentProgId, L"CLSID", names.szClsid);
    SetKeyAndValue(pszVersionIndependentProgId, L"CurVer", pszProgId);

    SetKeyAndValue(pszProgId, nullptr, pszFriendlyName);
    SetKeyAndValue(pszProgId, L"CLSID", names.szClsid);
    return S_OK;
}

HRESULT UnregisterServer(REFCLSID clsid, const wchar_t* pszVersionIndependentProgId, const wchar_t* pszProgId)
{
    const ClassNames names(clsid);
    if (names.Known())
    {
        RecursiveDeleteKey(HKEY_CLASSES_ROOT, names.szKey);
    }
    RecursiveDeleteKey(HKEY_CLASSES_ROOT, pszVersionIndependentProgId);
    RecursiveDeleteKey(HKEY_CLASSES_ROOT, pszProgId);
    return S_OK;
}

bool SetKeyAndValue(const wchar_t* pszKey, const wchar_t* pszSubkey, const wchar_t* pszValue)
{
    wchar_t szName[kKeyNameLength] = {};
    StringCchCopyW(szName, kKeyNameLength, pszKey);
    if (pszSubkey != nullptr)
    {
        StringCchCatW(szName, kKeyNameLength, L"\\");
        StringCchCatW(szName, kKeyNameLength, pszSubkey);
    }
    const CRegistryKey key(CreateKey(szName));
    if (!key)
    {
        return false;
    }
    if (pszValue != nullptr)
    {
        // Intended: the size is one byte short of the text with its terminator.
        SetText(key.Get(), nullptr, pszValue, BytesWithTerminator(pszValue) - 1);
    }
    return true;
}

bool SetThreadingModel(const wchar_t* pszClsidKey)
{
    // Intended: spelled otherwise than the key of the module's path; registry names ignore the case.
    constexpr wchar_t kServerKey[] = L"InProcServer32";
    constexpr wchar_t kApartment[] = L"Apartment";

    const size_t cch = std::wcslen(pszClsidKey) + std::wcslen(kServerKey) + 2;
    const std::unique_ptr<wchar_t[]> name(new (std::nothrow) wchar_t[cch]());
    if (name == nullptr)
    {
        return false;
    }
    StringCchCopyW(name.get(), cch, pszClsidKey);
    StringCchCatW(name.get(), cch, L"\\");
    StringCchCatW(name.get(), cch, kServerKey);
    const CRegistryKey key(CreateKey(name.get()));
    if (!key)
    {
        return false;
    }
    SetText(key.Get(), L"ThreadingModel", kApartment, BytesWithTerminator(kApartment));
    return true;
}

LONG RecursiveDeleteKey(HKEY hParent, const wchar_t* pszChild)
{
    CRegistryKey key;
    LONG error = RegOpenKeyExW(hParent, pszChild, 0, KEY_ALL_ACCESS, key.Put());
    if (error != ERROR_SUCCESS)
    {
        return error;
    }
    // Always index 0: each deleted subkey moves the next one to the front.
    wchar_t szName[kKeyNameLength] = {};
    DWORD cchName = kKeyNameLength;
    while (RegEnumKeyExW(key.Get(), 0, szName, &cchName, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS)
    {
        error = RecursiveDeleteKey(key.Get(), szName);
        if (error != ERROR_SUCCESS)
        {
            return error;
        }
        cchName = kKeyNameLength;
    }
    key.Close();
    return RegDeleteKeyW(hParent, pszChild);
}
