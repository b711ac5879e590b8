// Writes and removes the registry entries under HKEY_CLASSES_ROOT through which hosts find a component.
// Neither operation reports a failure: missing rights leave the entries partly written or removed.
#pragma once

#include <windows.h>

// Always S_OK. hModule is the module whose path is registered as the component's server.
HRESULT RegisterServer(HMODULE hModule, REFCLSID clsid, const wchar_t* pszFriendlyName,
                       const wchar_t* pszVersionIndependentProgId, const wchar_t* pszProgId);

// Removes the component's three trees with everything below them. Always S_OK.
HRESULT UnregisterServer(REFCLSID clsid, const wchar_t* pszVersionIndependentProgId,
                         const wchar_t* pszProgId);

// Creates pszKey, or its pszSubkey when that is not null, and sets its default value when pszValue is
// not null. False when the key could not be created.
bool SetKeyAndValue(const wchar_t* pszKey, const wchar_t* pszSubkey, const wchar_t* pszValue);

// Marks the server of a class key as apartment-threaded. False when out of memory or when the key could
// not be created.
bool SetThreadingModel(const wchar_t* pszClsidKey);

// Removes a key with all its subkeys. Returns a Win32 error code; at the first failure what is left
// stays.
LONG RecursiveDeleteKey(HKEY hParent, const wchar_t* pszChild);
