// What this process holds of the platform at the moment.
#pragma once

#include <windows.h>

#include <tlhelp32.h>

#include <cstdint>

// Open kernel handles. Looked at one by one: Wine reports no handle count for a process.
inline int CountHandles()
{
    constexpr std::uintptr_t kHighest = 0x4000;
    int count = 0;
    for (std::uintptr_t value = 4; value < kHighest; value += 4)
    {
        DWORD dwFlags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &dwFlags) != FALSE;
    }
    return count;
}

inline int CountThreads()
{
    const HANDLE hSnapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    int count = 0;
    for (BOOL bMore = Thread32First(hSnapshot, &entry); bMore; bMore = Thread32Next(hSnapshot, &entry))
    {
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    }
    CloseHandle(hSnapshot);
    return count;
}
