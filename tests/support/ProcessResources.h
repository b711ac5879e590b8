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

// The count, once it has come down to the limit: a worker that has left its object is still on its way out,
// and the platform's own threads come and go. What has leaked stays above it for as long as this waits.
inline int CountSettled(int (*count)(), int limit)
{
    constexpr ULONGLONG kSettleMs = 10000;
    const ULONGLONG end = GetTickCount64() + kSettleMs;
    int current = count();
    while (current > limit && GetTickCount64() < end)
    {
        Sleep(20);
        current = count();
    }
    return current;
}
