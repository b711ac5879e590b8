// How long the system's libraries behind the console user's hive live: each is loaded once, by whichever
// thread comes first, and freed when the process ends.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <set>
#include <string>

#include "registry/ConsoleUserToken.h"
#include "registry/OSVersion.h"
#include "registry/Registry.h"
#include "support/Gate.h"
#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"
#include "support/SideThread.h"

namespace
{

HKEY FakeKey(int number)
{
    return reinterpret_cast<HKEY>(static_cast<INT_PTR>(0x4B00 + number));
}

HKEY Root()
{
    HKEY hKey = nullptr;
    CUserProfile profile;
    CRegistry::GetCurrentUserKeyInVista(&hKey, profile);
    return hKey;
}

// Each library needs a process of its own, which has not loaded it yet.
class FirstCallTest : public testing::TestWithParam<const char*>
{
};

TEST_P(FirstCallTest, LoadsALibraryOnceForTwoThreadsThatComeTogether)
{
    const CReportedVersion version(6, 1);
    GetOSVersion();
    CScriptedConsole console;
    console.m_hHive = FakeKey(1);
    std::atomic<int> loads{0};
    CGate loading;
    CGate letGo;
    console.m_onCall = [&, load = "LoadLibraryW(" + std::string(GetParam()) + ")"](const std::string& call)
    {
        if (call != load)
        {
            return;
        }
        if (++loads == 1)
        {
            loading.Open();
            letGo.Wait();
        }
        else
        {
            letGo.Open();
        }
    };

    HKEY hFirst = nullptr;
    HKEY hSecond = nullptr;
    {
        const CSideThread first([&] { hFirst = Root(); });
        ASSERT_TRUE(loading.Wait());
        CGate coming;
        const CSideThread second(
            [&]
            {
                coming.Open();
                hSecond = Root();
            });
        ASSERT_TRUE(coming.Wait());
        // It waits for the first one. One that does not would be done, or load the library too, before long.
        EXPECT_FALSE(second.EndsWithin(200));
        letGo.Open();
    }
    EXPECT_EQ(hFirst, FakeKey(1));
    EXPECT_EQ(hSecond, FakeKey(1));
    EXPECT_EQ(loads, 1);
}

INSTANTIATE_TEST_SUITE_P(Libraries, FirstCallTest,
                         testing::Values("userenv.dll", "advapi32.dll", "psapi.dll"),
                         [](const testing::TestParamInfo<const char*>& test)
                         {
                             const std::string file(test.param);
                             return file.substr(0, file.find('.'));
                         });

// Stands for the loader: libraries that have nothing of what is looked for. Ends the program with exit code 0
// once each of the three has been loaded and freed.
class CScriptedLoader
{
public:
    CScriptedLoader() { s_pThis = this; }

    bool HasLoadedAll() const { return m_loaded == m_all; }

private:
    static HMODULE WINAPI ScriptedLoad(LPCWSTR pszPath)
    {
        const std::wstring path(pszPath);
        const std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
        s_pThis->m_loaded.insert(name);
        const HMODULE hModule =
            reinterpret_cast<HMODULE>(static_cast<INT_PTR>(0x7B0000 + 0x10000 * s_pThis->m_names.size()));
        s_pThis->m_names[hModule] = name;
        return hModule;
    }

    static BOOL WINAPI ScriptedFree(HMODULE hModule)
    {
        const auto name = s_pThis->m_names.find(hModule);
        s_pThis->m_freed.insert(name != s_pThis->m_names.end() ? name->second : L"another");
        if (s_pThis->m_freed == s_pThis->m_all)
        {
            std::_Exit(0);
        }
        return TRUE;
    }

    static FARPROC WINAPI ScriptedFind(HMODULE /*hModule*/, LPCSTR /*pszName*/) { return nullptr; }

    static inline CScriptedLoader* s_pThis = nullptr;

    const std::multiset<std::wstring> m_all = {L"advapi32.dll", L"psapi.dll", L"userenv.dll"};
    std::map<HMODULE, std::wstring> m_names;
    std::multiset<std::wstring> m_loaded;
    std::multiset<std::wstring> m_freed;
    CImportPatch m_load{GetModuleHandleW(nullptr), "LoadLibraryW", ScriptedLoad};
    CImportPatch m_free{GetModuleHandleW(nullptr), "FreeLibrary", ScriptedFree};
    CImportPatch m_find{GetModuleHandleW(nullptr), "GetProcAddress", ScriptedFind};
};

// In the end of a process.
void EndWithLibraries()
{
    auto* const pLoader = new CScriptedLoader;  // outlives everything
    {
        // On such a system the shell is looked for without the console's session.
        const CReportedVersion version(5, 0);
        Root();
        HANDLE hToken = nullptr;
        GetCurrentUserToken(&hToken);
    }
    std::exit(pLoader->HasLoadedAll() ? 2 : 3);
}

TEST(LibraryExitTest, LibrariesAreFreedWhenTheProcessEnds)
{
    EXPECT_EXIT(EndWithLibraries(), testing::ExitedWithCode(0), "") << "2: not freed; 3: not loaded";
}

}  // namespace
