// What this process holds of the graphics and of the window system. Wine's GetGuiResources always answers 0:
// there the table of graphics objects that the process shares with it is counted, and the windows of the
// process.
#pragma once

#include <windows.h>

#include <winternl.h>

#include <cstddef>

// The beginning of an entry, as documented by its users for many versions of the platform.
struct GdiTableEntry
{
    void* pObject;
    ULONG owner;
    USHORT unique;
    UCHAR type;  // 0: free
    UCHAR flags;
    void* pUser;
};

inline unsigned long CountGdiObjects()
{
    const DWORD count = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS);
    if (count != 0)
    {
        return count;
    }
    constexpr size_t kTableInPeb = 0xF8;
    constexpr size_t kEntries = 0x4000;
    const auto* const peb = reinterpret_cast<const std::byte*>(NtCurrentTeb()->ProcessEnvironmentBlock);
    const auto* const table = *reinterpret_cast<const GdiTableEntry* const*>(peb + kTableInPeb);
    unsigned long used = 0;
    for (size_t index = 0; table != nullptr && index < kEntries; ++index)
    {
        used += table[index].type != 0 ? 1u : 0u;
    }
    return used;
}

inline BOOL CALLBACK CountOwnWindow(HWND hWnd, LPARAM pCount)
{
    DWORD dwProcess = 0;
    GetWindowThreadProcessId(hWnd, &dwProcess);
    *reinterpret_cast<unsigned long*>(pCount) += dwProcess == GetCurrentProcessId() ? 1u : 0u;
    return TRUE;
}

inline unsigned long CountUserObjects()
{
    unsigned long count = GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS);
    if (count == 0)
    {
        EnumWindows(CountOwnWindow, reinterpret_cast<LPARAM>(&count));
        for (HWND hWnd = nullptr; (hWnd = FindWindowExW(HWND_MESSAGE, hWnd, nullptr, nullptr)) != nullptr;)
        {
            CountOwnWindow(hWnd, reinterpret_cast<LPARAM>(&count));
        }
    }
    return count;
}
