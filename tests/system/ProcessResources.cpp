#include "system/ProcessResources.h"

#include <windows.h>

#include <tlhelp32.h>

#include <cstring>
#include <vector>

namespace
{

constexpr int kSystemExtendedHandleInformation = 64;
constexpr LONG kStatusInfoLengthMismatch = static_cast<LONG>(0xC0000004);

struct HandleEntry
{
    void* pObject;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG access;
    USHORT creatorIndex;
    USHORT typeIndex;
    ULONG attributes;
    ULONG reserved;
};

struct HandleTableHead
{
    ULONG_PTR count;
    ULONG_PTR reserved;
};

}  // namespace

size_t CountThreads()
{
    const HANDLE hSnapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    size_t count = 0;
    for (BOOL bMore = Thread32First(hSnapshot, &entry); bMore; bMore = Thread32Next(hSnapshot, &entry))
    {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1u : 0u;
    }
    CloseHandle(hSnapshot);
    return count;
}

size_t CountHandles()
{
    using QueryProc = LONG(WINAPI*)(int, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<QueryProc>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<char> table(1 << 20);
    ULONG length = 0;
    while (query(kSystemExtendedHandleInformation, table.data(), static_cast<ULONG>(table.size()), &length) ==
           kStatusInfoLengthMismatch)
    {
        table.resize(table.size() * 2);
    }
    HandleTableHead head = {};
    std::memcpy(&head, table.data(), sizeof(head));
    size_t count = 0;
    for (size_t index = 0; index < head.count; ++index)
    {
        HandleEntry entry = {};
        std::memcpy(&entry, table.data() + sizeof(head) + index * sizeof(entry), sizeof(entry));
        count += entry.processId == GetCurrentProcessId() ? 1u : 0u;
    }
    return count;
}
