// Reads single registry values. Where the root asked for is HKEY_CURRENT_USER, the console user's hive
// is read on systems that have one (CRegistryRoot). Nothing is reported but the result.
#pragma once

#include <windows.h>

// What a text value may hold; callers' buffers have room for one character more, the terminator.
constexpr DWORD kRegStringBytes = 4096;
constexpr size_t kRegStringLength = kRegStringBytes / sizeof(wchar_t) + 1;

// Stores the value in pszBuffer, which holds at least kRegStringLength characters. Returns 1 when it was
// read and is of type REG_SZ. On 0 the buffer holds whatever the value was, also of another type, or the
// empty text; it is untouched when an argument is null. The size and the last argument have no effect.
int ReadRegString(HKEY hRoot, const wchar_t* pszSubkey, const wchar_t* pszName, wchar_t* pszBuffer,
                  size_t cchBuffer, DWORD dwReserved);

// Stores the system's "ProxyEnable" setting; 1 when it was read and is of type REG_DWORD, else 0.
int ReadProxyEnable(HKEY hRoot, DWORD* pdwEnable);

extern const wchar_t kInternetSettingsKey[];
