#include "registry/SystemLibrary.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/ImportPatch.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

std::wstring g_systemDirectory;
UINT g_cchDirectory = 0;
UINT g_cchAsked = 0;
HMODULE g_hLoaded = nullptr;
std::vector<std::wstring> g_loaded;
std::vector<HMODULE> g_freed;

UINT WINAPI ScriptedGetSystemDirectory(LPWSTR pszBuffer, UINT cch)
{
    g_cchAsked = cch;
    g_systemDirectory.copy(pszBuffer, g_systemDirectory.size());
    return g_cchDirectory;
}

HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR pszPath)
{
    g_loaded.emplace_back(pszPath);
    return g_hLoaded;
}

BOOL WINAPI ScriptedFreeLibrary(HMODULE hModule)
{
    g_freed.push_back(hModule);
    return TRUE;
}

HMODULE FakeModule()
{
    return reinterpret_cast<HMODULE>(static_cast<INT_PTR>(0x7B0000));
}

class SystemLibraryTest : public testing::Test
{
protected:
    SystemLibraryTest()
    {
        SetDirectory(L"Q:\\Sys Folder");
        g_cchAsked = 0;
        g_hLoaded = FakeModule();
        g_loaded.clear();
        g_freed.clear();
    }

    static void SetDirectory(const wchar_t* pszDirectory)
    {
        g_systemDirectory = pszDirectory;
        g_cchDirectory = static_cast<UINT>(g_systemDirectory.size());
    }

    CImportPatch m_directory{GetModuleHandleW(nullptr), "GetSystemDirectoryW", ScriptedGetSystemDirectory};
    CImportPatch m_load{GetModuleHandleW(nullptr), "LoadLibraryW", ScriptedLoadLibrary};
    CImportPatch m_free{GetModuleHandleW(nullptr), "FreeLibrary", ScriptedFreeLibrary};
};

TEST_F(SystemLibraryTest, LoadsByFullPathFromTheSystemDirectory)
{
    EXPECT_EQ(LoadSystemLibrary(L"some.dll"), FakeModule());
    EXPECT_THAT(g_loaded, ElementsAre(L"Q:\\Sys Folder\\some.dll"));
    EXPECT_EQ(g_cchAsked, 260u);
    EXPECT_THAT(g_freed, IsEmpty());
}

TEST_F(SystemLibraryTest, GivesNullWhenTheLibraryDoesNotLoad)
{
    g_hLoaded = nullptr;
    EXPECT_EQ(LoadSystemLibrary(L"some.dll"), nullptr);
    EXPECT_EQ(g_loaded.size(), 1u);
}

// A bare name would be looked for in the host's folders.
TEST_F(SystemLibraryTest, LoadsNothingWithoutTheSystemDirectory)
{
    SetDirectory(L"");
    EXPECT_EQ(LoadSystemLibrary(L"some.dll"), nullptr);
    EXPECT_THAT(g_loaded, IsEmpty());
}

TEST_F(SystemLibraryTest, LoadsNothingWhenTheSystemDirectoryDoesNotFit)
{
    SetDirectory(L"");
    g_cchDirectory = 261;
    EXPECT_EQ(LoadSystemLibrary(L"some.dll"), nullptr);
    EXPECT_THAT(g_loaded, IsEmpty());
}

TEST_F(SystemLibraryTest, LoadsNothingWhenTheJoinedPathIsTooLong)
{
    SetDirectory((L"Q:\\" + std::wstring(250, L'd')).c_str());
    EXPECT_EQ(LoadSystemLibrary(L"library.dll"), nullptr);
    EXPECT_THAT(g_loaded, IsEmpty());
}

TEST_F(SystemLibraryTest, ObjectLoadsOnceAndFreesAtItsEnd)
{
    {
        const CSystemLibrary library(L"some.dll");
        EXPECT_TRUE(static_cast<bool>(library));
        EXPECT_THAT(g_loaded, ElementsAre(L"Q:\\Sys Folder\\some.dll"));
        EXPECT_THAT(g_freed, IsEmpty());
    }
    EXPECT_THAT(g_freed, ElementsAre(FakeModule()));
}

TEST_F(SystemLibraryTest, ObjectWithoutItsLibraryIsFalseAndFreesNothing)
{
    g_hLoaded = nullptr;
    {
        const CSystemLibrary library(L"some.dll");
        EXPECT_FALSE(static_cast<bool>(library));
    }
    EXPECT_THAT(g_freed, IsEmpty());
}

TEST_F(SystemLibraryTest, Advapi32IsLoadedOnceInTheProcess)
{
    const CSystemLibrary& first = GetAdvapi32();
    EXPECT_EQ(&GetAdvapi32(), &first);
    EXPECT_THAT(g_loaded, ElementsAre(L"Q:\\Sys Folder\\advapi32.dll"));
    EXPECT_THAT(g_freed, IsEmpty());
}

TEST_F(SystemLibraryTest, Advapi32ThatDidNotLoadIsNotTriedAgain)
{
    g_hLoaded = nullptr;
    EXPECT_FALSE(static_cast<bool>(GetAdvapi32()));
    g_hLoaded = FakeModule();
    EXPECT_FALSE(static_cast<bool>(GetAdvapi32()));
    EXPECT_EQ(g_loaded.size(), 1u);
}

TEST(SystemLibraryOnThisSystemTest, FindsEntryPointsOfARealLibrary)
{
    using GetTickProc = DWORD WINAPI();
    const CSystemLibrary library(L"kernel32.dll");
    ASSERT_TRUE(static_cast<bool>(library));
    EXPECT_NE(library.Find<GetTickProc>("GetTickCount"), nullptr);
    EXPECT_EQ(library.Find<GetTickProc>("NoSuchEntryPoint"), nullptr);
}

}  // namespace
