// Where the libraries come from that the module loads itself: no folder that others may write to.
#include <winsock2.h>

#include <windows.h>

#include <gmock/gmock.h>
#include <tlhelp32.h>

#include <string>
#include <vector>

#include "module/com/ServerModule.h"
#include "support/ImportPatch.h"
#include "support/loopback/LoopbackServer.h"
#include "support/Mutex.h"
#include "support/TempFolder.h"
#include "system/HttpRawHost.h"

namespace
{

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;

CMutex g_mutex;
std::vector<std::wstring> g_loads;
decltype(&LoadLibraryW) g_pfnLoad = nullptr;
bool g_bAllMissing = false;

std::wstring Lower(std::wstring text)
{
    CharLowerW(text.data());
    return text;
}

HMODULE WINAPI RecordingLoad(LPCWSTR pszPath)
{
    {
        const std::lock_guard lock(g_mutex);
        g_loads.push_back(Lower(pszPath));
    }
    return g_bAllMissing ? nullptr : g_pfnLoad(pszPath);
}

std::wstring FolderOf(const std::wstring& path)
{
    return Lower(path.substr(0, path.rfind(L'\\') + 1));
}

std::wstring SystemFolder()
{
    wchar_t szFolder[MAX_PATH] = {};
    GetSystemDirectoryW(szFolder, MAX_PATH);
    return Lower(szFolder) + L"\\";
}

std::vector<std::wstring> LoadedModules()
{
    const HANDLE hSnapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, GetCurrentProcessId());
    MODULEENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    std::vector<std::wstring> paths;
    for (BOOL bMore = Module32FirstW(hSnapshot, &entry); bMore; bMore = Module32NextW(hSnapshot, &entry))
    {
        paths.push_back(Lower(entry.szExePath));
    }
    CloseHandle(hSnapshot);
    return paths;
}

// Notes what the module loads meanwhile.
void Exchange()
{
    const CImportPatch patch(CHttpRawHost::Module(), "LoadLibraryW", RecordingLoad);
    g_pfnLoad = patch.Original<decltype(LoadLibraryW)>();
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, "ok")); });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
}

void ExpectLoadsFromTheirFolders()
{
    EXPECT_THAT(g_loads,
                Each(AnyOf(StartsWith(SystemFolder()), StartsWith(FolderOf(CServerModule::BuiltPath())))));
}

TEST(LibraryPlaceTest, NoneComesFromTheCurrentFolderOrTheSearchPath)
{
    const CTempFolder current;
    const CTempFolder searched;
    for (const CTempFolder* pFolder : {&current, &searched})
    {
        for (const wchar_t* const pszName :
             {L"qnztraceX64.dll", L"userenv.dll", L"psapi.dll", L"advapi32.dll"})
        {
            const std::wstring path = pFolder->Wide() + L"\\" + pszName;
            ASSERT_TRUE(CopyFileW(CServerModule::BuiltPath().c_str(), path.c_str(), FALSE));
        }
    }
    wchar_t szFormer[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, szFormer);
    SetCurrentDirectoryW(current.Wide().c_str());
    SetEnvironmentVariableW(L"PATH", searched.Wide().c_str());

    Exchange();

    // The libraries of discovery, and the trace library.
    EXPECT_THAT(g_loads, Contains(EndsWith(L"\\userenv.dll")));
    EXPECT_THAT(g_loads, Contains(EndsWith(L"\\qnztracex64.dll")));
    ExpectLoadsFromTheirFolders();
    const auto fromDecoys = AnyOf(StartsWith(Lower(current.Wide())), StartsWith(Lower(searched.Wide())));
    EXPECT_THAT(LoadedModules(), Not(Contains(fromDecoys)));

    // Somebody who asks for a bare name gets what was put there.
    const HMODULE hDecoy = LoadLibraryW(L"qnztraceX64.dll");
    EXPECT_THAT(LoadedModules(), Contains(fromDecoys));
    FreeLibrary(hDecoy);
    SetCurrentDirectoryW(szFormer);
}

TEST(LibraryPlaceTest, WhatItsFolderDoesNotHaveIsLookedForNowhereElse)
{
    g_bAllMissing = true;
    Exchange();
    EXPECT_THAT(g_loads, Contains(EndsWith(L"\\qnztracex64.dll")));
    EXPECT_THAT(g_loads, Contains(StartsWith(SystemFolder())));
    ExpectLoadsFromTheirFolders();
}

}  // namespace
