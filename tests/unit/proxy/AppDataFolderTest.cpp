#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "proxy/ProxyInfo.h"
#include "support/ImportPatch.h"
#include "support/ScriptedShell.h"

namespace
{

using testing::ElementsAre;

CScriptedShell* g_pShell = nullptr;
decltype(MultiByteToWideChar)* g_pfnWiden = nullptr;

int WINAPI ScriptedWiden(UINT codePage, DWORD dwFlags, LPCCH from, int cb, LPWSTR to, int cch)
{
    if (to != nullptr)
    {
        g_pShell->Add("path taken");
    }
    return g_pfnWiden(codePage, dwFlags, from, cb, to, cch);
}

class AppDataFolderTest : public testing::Test
{
protected:
    // The folder, or the text "failed".
    std::wstring Folder(DWORD dwBrowser = BROWSER_FIREFOX)
    {
        m_shell.m_calls.clear();
        CProxyInfo info;
        info.m_dwBrowser = dwBrowser;
        CStringEx path(L"as before");
        const BOOL bFound = info.GetAppDataFolder(path);
        EXPECT_TRUE(bFound == TRUE || std::wstring(path.c_str()) == L"as before") << "changed on failure";
        return bFound ? path.c_str() : L"failed";
    }

    CScriptedShell m_shell;
};

TEST_F(AppDataFolderTest, IsTheShellsFolderWithMozillaBelowItForFirefoxOnly)
{
    EXPECT_EQ(Folder(BROWSER_FIREFOX), L"Q:\\appdata\\Mozilla");
    EXPECT_THAT(m_shell.m_calls, ElementsAre("SHGetMalloc", "SHGetSpecialFolderLocation(no window, 26)",
                                             "SHGetPathFromIDListA", "list freed", "allocator released"));
    for (const DWORD dwBrowser : {0u, 1u, 3u, 4u, 5u})
    {
        EXPECT_EQ(Folder(dwBrowser), L"Q:\\appdata") << dwBrowser;
    }
    m_shell.m_folder = "Q:\\appdata\\";
    EXPECT_EQ(Folder(BROWSER_FIREFOX), L"Q:\\appdata\\Mozilla");
}

TEST_F(AppDataFolderTest, HoldsTheLongestPathOfTheShell)
{
    m_shell.m_folder = "Q:\\" + std::string(256, 'd');
    EXPECT_EQ(Folder(BROWSER_OTHER), L"Q:\\" + std::wstring(256, L'd'));
    EXPECT_EQ(Folder(BROWSER_FIREFOX), L"Q:\\" + std::wstring(256, L'd') + L"\\Mozilla");
}

TEST_F(AppDataFolderTest, IsTheWindowsFolderWithoutAnAllocator)
{
    m_shell.m_bAllocator = false;
    EXPECT_EQ(Folder(), L"Q:\\windir\\Mozilla");
    EXPECT_THAT(m_shell.m_calls, ElementsAre("SHGetMalloc", "GetWindowsDirectoryA(260)"));
    EXPECT_EQ(Folder(BROWSER_IE), L"Q:\\windir");
}

TEST_F(AppDataFolderTest, IsTheWindowsFolderWithoutALocation)
{
    m_shell.m_bLocation = false;
    EXPECT_EQ(Folder(), L"Q:\\windir\\Mozilla");
    EXPECT_THAT(m_shell.m_calls, ElementsAre("SHGetMalloc", "SHGetSpecialFolderLocation(no window, 26)",
                                             "GetWindowsDirectoryA(260)", "allocator released"));
}

TEST_F(AppDataFolderTest, FreesAListThatCameWithAFailure)
{
    m_shell.m_bLocation = false;
    m_shell.m_bListOnFailure = true;
    EXPECT_EQ(Folder(), L"Q:\\windir\\Mozilla");
    EXPECT_THAT(m_shell.m_calls, testing::IsSupersetOf({"list freed", "allocator released"}));
}

TEST_F(AppDataFolderTest, IsTheWindowsFolderWithoutAPath)
{
    m_shell.m_bPath = false;
    EXPECT_EQ(Folder(), L"Q:\\windir\\Mozilla");
    EXPECT_THAT(m_shell.m_calls, ElementsAre("SHGetMalloc", "SHGetSpecialFolderLocation(no window, 26)",
                                             "SHGetPathFromIDListA", "GetWindowsDirectoryA(260)",
                                             "list freed", "allocator released"));
}

TEST_F(AppDataFolderTest, TakesTheWindowsFolderUnlessItDoesNotFit)
{
    m_shell.m_bPath = false;
    m_shell.m_cchWindows = 259;
    EXPECT_EQ(Folder(), L"Q:\\windir\\Mozilla");
    m_shell.m_cchWindows = 260;
    EXPECT_EQ(Folder(), L"failed");
    m_shell.m_cchWindows = 261;
    EXPECT_EQ(Folder(), L"failed");
    EXPECT_THAT(m_shell.m_calls, testing::IsSupersetOf({"list freed", "allocator released"}));
}

TEST_F(AppDataFolderTest, TakesTheBufferAsItStandsWhenTheWindowsFolderIsUnknownToo)
{
    m_shell.m_bPath = false;
    m_shell.m_windows = "";
    m_shell.m_cchWindows = 0;
    EXPECT_EQ(Folder(), L"Q:\\appdata\\Mozilla");
    m_shell.m_bAllocator = false;
    EXPECT_EQ(Folder(), L"\\Mozilla");
    EXPECT_EQ(Folder(BROWSER_OTHER), L"");
}

TEST_F(AppDataFolderTest, TakesThePathBeforeItFreesTheList)
{
    const CImportPatch widen(GetModuleHandleW(nullptr), "MultiByteToWideChar", ScriptedWiden);
    g_pfnWiden = widen.Original<decltype(MultiByteToWideChar)>();
    g_pShell = &m_shell;
    EXPECT_EQ(Folder(), L"Q:\\appdata\\Mozilla");
    EXPECT_THAT(m_shell.m_calls,
                ElementsAre("SHGetMalloc", "SHGetSpecialFolderLocation(no window, 26)",
                            "SHGetPathFromIDListA", "path taken", "list freed", "allocator released"));
}

TEST_F(AppDataFolderTest, DoesWithoutAnAllocatorThatTheShellOnlySaysItHandsOut)
{
    m_shell.m_bNullAllocator = true;
    EXPECT_EQ(Folder(), L"Q:\\appdata\\Mozilla");
    EXPECT_THAT(m_shell.m_calls, ElementsAre("SHGetMalloc", "SHGetSpecialFolderLocation(no window, 26)",
                                             "SHGetPathFromIDListA"));
    m_shell.m_bPath = false;
    EXPECT_EQ(Folder(), L"Q:\\windir\\Mozilla");
}

}  // namespace
