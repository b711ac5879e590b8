// The platform under the tests. It differs in places; a test that meets one says what Windows does and what
// Wine does, from which version on.
#pragma once

#include <windows.h>

#include <cstdlib>

// The first number of Wine's version, 8 or 10 for instance; 0 on Windows.
inline int WineVersion()
{
    using GetVersionProc = const char*(CDECL*)();
    const auto getVersion = reinterpret_cast<GetVersionProc>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")));
    return getVersion != nullptr ? std::atoi(getVersion()) : 0;
}

inline bool IsWine()
{
    return WineVersion() != 0;
}
