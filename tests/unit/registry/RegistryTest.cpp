#include "registry/Registry.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

HKEY FakeKey(int number)
{
    return reinterpret_cast<HKEY>(static_cast<INT_PTR>(0x4B00 + number));
}

class ConsoleUserKeyTest : public testing::Test
{
protected:
    ConsoleUserKeyTest()
    {
        m_console.m_hHive = FakeKey(1);
        m_console.m_processes = {{20, L"C:\\windows\\explorer.exe", 1}};
    }

    HKEY Root()
    {
        HKEY hKey = FakeKey(2);
        CUserProfile profile;
        CRegistry::GetCurrentUserKeyInVista(&hKey, profile);
        return hKey;
    }

    CReportedVersion m_version{6, 1};
    CScriptedConsole m_console;
};

TEST_F(ConsoleUserKeyTest, TakesTheseStepsInThisOrder)
{
    EXPECT_EQ(Root(), FakeKey(1));
    EXPECT_THAT(m_console.Calls(),
                ElementsAre("LoadLibraryW(userenv.dll)", "LoadLibraryW(advapi32.dll)",
                            "GetProcAddress(userenv.dll, LoadUserProfileW)",
                            "GetProcAddress(advapi32.dll, ImpersonateLoggedOnUser)",
                            "GetProcAddress(advapi32.dll, RevertToSelf)", "GetModuleHandleW(Kernel32.dll)",
                            "GetProcAddress(kernel32.dll, WTSGetActiveConsoleSessionId)",
                            "WTSGetActiveConsoleSessionId()", "LoadLibraryW(psapi.dll)",
                            "GetProcAddress(psapi.dll, EnumProcesses)",
                            "GetProcAddress(psapi.dll, GetModuleFileNameExW)",
                            "GetProcAddress(advapi32.dll, OpenProcessToken)",
                            "GetProcAddress(advapi32.dll, GetTokenInformation)", "EnumProcesses(4096)",
                            "OpenProcess(0x410, 0, 20)", "GetModuleFileNameExW(process20, null, 260)",
                            "OpenProcessToken(process20, 0xE)", "GetTokenInformation(token20, 12, 4)",
                            "CloseHandle(process20)", "ImpersonateLoggedOnUser(token20)", "RevertToSelf()",
                            "GetUserNameW(260)", "LoadUserProfileW(token20, hostaccount)",
                            "Debug:CRegistry::GetCurrentUserKey: Success..\n",
                            "GetProcAddress(userenv.dll, UnloadUserProfile)",
                            "UnloadUserProfile(token20, hive)", "CloseHandle(token20)"));
    EXPECT_THAT(m_console.OpenHandles(), IsEmpty());
}

TEST_F(ConsoleUserKeyTest, KeepsTheProfileLoadedAndItsTokenOpenUntilTheProfilesEnd)
{
    {
        CUserProfile profile;
        HKEY hKey = FakeKey(2);
        CRegistry::GetCurrentUserKeyInVista(&hKey, profile);
        EXPECT_EQ(m_console.Steps().back(), "Debug:CRegistry::GetCurrentUserKey: Success..\n");
        EXPECT_THAT(m_console.OpenHandles(), ElementsAre("token20"));
        m_console.ClearCalls();
        SetLastError(ERROR_DISK_FULL);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
    EXPECT_THAT(m_console.Calls(), ElementsAre("UnloadUserProfile(token20, hive)", "CloseHandle(token20)"));
}

TEST_F(ConsoleUserKeyTest, KeepsTheProfileLoadedOnASystemThatCannotUnloadIt)
{
    m_console.m_missingEntryPoints = {"UnloadUserProfile"};
    EXPECT_EQ(Root(), FakeKey(1));
    EXPECT_THAT(m_console.Calls(), testing::Not(Contains(StartsWith("UnloadUserProfile"))));
    EXPECT_THAT(m_console.OpenHandles(), IsEmpty());
}

TEST_F(ConsoleUserKeyTest, PutsTheAccountsNameIntoTheRecordAsItIs)
{
    for (const std::wstring& name : {std::wstring(L"J\u00F6rg \u65E5"), std::wstring(L"DOMAIN\\Anna"),
                                     std::wstring(256, L'n'), std::wstring()})
    {
        m_console.m_userName = name;
        EXPECT_EQ(Root(), FakeKey(1));
        EXPECT_EQ(m_console.m_profileUser, name);
    }
}

TEST_F(ConsoleUserKeyTest, GoesOnWithoutANameWhenTheAccountHasNone)
{
    m_console.m_bUserNameFails = true;
    EXPECT_EQ(Root(), FakeKey(1));
    EXPECT_EQ(m_console.m_profileUser, L"");
    m_console.m_dwProfileError = 1314;
    m_console.ClearCalls();
    EXPECT_EQ(Root(), FakeKey(2));
    EXPECT_THAT(m_console.DebugTexts(),
                ElementsAre("CRegistry::GetCurrentUserKey: pfnLoadUserProfile FAILED: Error = 1314!\n", ""));
}

TEST_F(ConsoleUserKeyTest, FillsTheProfileRecordWithTheHostsAccountOnly)
{
    m_console.m_userName = L"SYSTEM";
    EXPECT_EQ(Root(), FakeKey(1));
    EXPECT_EQ(m_console.m_profile.dwSize, 56u);
    EXPECT_EQ(m_console.m_profile.dwFlags, 1u);
    EXPECT_EQ(m_console.m_profile.lpProfilePath, nullptr);
    EXPECT_EQ(m_console.m_profile.lpDefaultPath, nullptr);
    EXPECT_EQ(m_console.m_profile.lpServerName, nullptr);
    EXPECT_EQ(m_console.m_profile.lpPolicyPath, nullptr);
    EXPECT_EQ(m_console.m_profile.hProfile, nullptr);
    EXPECT_THAT(m_console.Steps(), Contains("LoadUserProfileW(token20, SYSTEM)"));
}

TEST_F(ConsoleUserKeyTest, LoadsTheProfileAnewEachTimeButTheLibrariesOnce)
{
    EXPECT_EQ(Root(), FakeKey(1));
    m_console.ClearCalls();
    m_console.m_hHive = FakeKey(3);
    EXPECT_EQ(Root(), FakeKey(3));
    EXPECT_THAT(m_console.Calls(), testing::Not(Contains(StartsWith("LoadLibraryW"))));
    EXPECT_THAT(m_console.Calls(), Contains("LoadUserProfileW(token20, hostaccount)"));
}

TEST_F(ConsoleUserKeyTest, GoesOnWhenTheImpersonationFailsAndHasNoneToUndo)
{
    m_console.m_dwImpersonationError = 1346;
    EXPECT_EQ(Root(), FakeKey(1));
    const std::vector<std::string> steps = m_console.Steps();
    EXPECT_THAT(
        std::vector<std::string>(steps.begin() + 7, steps.end()),
        ElementsAre("ImpersonateLoggedOnUser(token20)",
                    "Debug:CRegistry::GetCurrentUserKey: pfnImpersonateLoggedOnUser FAILED: Error = 1346!\n",
                    "GetUserNameW(260)", "LoadUserProfileW(token20, hostaccount)",
                    "Debug:CRegistry::GetCurrentUserKey: Success..\n", "UnloadUserProfile(token20, hive)",
                    "CloseHandle(token20)"));
}

TEST_F(ConsoleUserKeyTest, LeavesTheRootAndNamesErrorAndAccountWhenTheProfileDoesNotLoad)
{
    m_console.m_dwProfileError = 1314;
    m_console.m_userName = L"anna";
    EXPECT_EQ(Root(), FakeKey(2));
    const std::vector<std::string> steps = m_console.Steps();
    EXPECT_THAT(std::vector<std::string>(steps.begin() + 7, steps.end()),
                ElementsAre("ImpersonateLoggedOnUser(token20)", "RevertToSelf()", "GetUserNameW(260)",
                            "LoadUserProfileW(token20, anna)",
                            "Debug:CRegistry::GetCurrentUserKey: pfnLoadUserProfile FAILED: Error = 1314!\n",
                            "Debug:anna", "CloseHandle(token20)"));
    EXPECT_THAT(m_console.OpenHandles(), IsEmpty());
}

TEST_F(ConsoleUserKeyTest, TellsThatThereIsNoConsoleUser)
{
    m_console.m_dwConsoleSession = 0xFFFFFFFF;
    EXPECT_EQ(Root(), FakeKey(2));
    EXPECT_THAT(m_console.Steps(),
                ElementsAre("WTSGetActiveConsoleSessionId()",
                            "Debug:CRegistry::GetCurrentUserKeyInVista GetConsoleUserToken Fail"));
}

TEST_F(ConsoleUserKeyTest, TellsWhichEntryPointsAreMissing)
{
    for (const char* pszEntryPoint : {"LoadUserProfileW", "ImpersonateLoggedOnUser", "RevertToSelf"})
    {
        m_console.m_missingEntryPoints = {pszEntryPoint};
        m_console.ClearCalls();
        EXPECT_EQ(Root(), FakeKey(2)) << pszEntryPoint;
        EXPECT_THAT(m_console.Steps(),
                    ElementsAre("Debug:CRegistry::GetCurrentUserKeyInVista GetProcAddress Fail"))
            << pszEntryPoint;
    }
    for (const char* pszEntryPoint : {"EnumProcesses", "OpenProcessToken"})
    {
        m_console.m_missingEntryPoints = {pszEntryPoint};
        m_console.ClearCalls();
        EXPECT_EQ(Root(), FakeKey(2)) << pszEntryPoint;
        EXPECT_THAT(m_console.DebugTexts(),
                    ElementsAre("CRegistry::GetCurrentUserKeyInVista GetConsoleUserToken Fail"))
            << pszEntryPoint;
    }
    m_console.m_missingEntryPoints.clear();
    EXPECT_EQ(Root(), FakeKey(1));
}

TEST_F(ConsoleUserKeyTest, TellsThatTheProfileLibraryIsMissing)
{
    m_console.m_missingLibraries = {L"userenv.dll"};
    EXPECT_EQ(Root(), FakeKey(2));
    EXPECT_THAT(m_console.Calls(),
                ElementsAre("LoadLibraryW(userenv.dll)", "LoadLibraryW(advapi32.dll)",
                            "Debug:CRegistry::GetCurrentUserKeyInVista LoadSystemLibrary Fail"));
}

TEST_F(ConsoleUserKeyTest, TellsThatTheSecurityLibraryIsMissing)
{
    m_console.m_missingLibraries = {L"advapi32.dll"};
    EXPECT_EQ(Root(), FakeKey(2));
    EXPECT_THAT(m_console.Steps(),
                ElementsAre("Debug:CRegistry::GetCurrentUserKeyInVista LoadSystemLibrary Fail"));
}

struct RootRow
{
    const char* label;
    DWORD dwPlatformId;
    DWORD dwMajor;
    DWORD dwMinor;
    bool bConsoleUsers;
};

void PrintTo(const RootRow& row, std::ostream* pStream)
{
    *pStream << "platform " << row.dwPlatformId << " version " << row.dwMajor << '.' << row.dwMinor;
}

// Each row needs a process of its own, which has not worked out the class yet.
class RegistryRootTest : public testing::TestWithParam<RootRow>
{
};

TEST_P(RegistryRootTest, ReplacesOnlyTheCurrentUsersRootAndOnlyOnClass8)
{
    const RootRow& row = GetParam();
    CReportedVersion version(row.dwMajor, row.dwMinor, row.dwPlatformId);
    CScriptedConsole console;
    console.m_hHive = FakeKey(1);
    console.m_processes = {{16, L"C:\\windows\\explorer.exe", 0}, {20, L"C:\\windows\\explorer.exe", 1}};

    for (const HKEY hRoot : {HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, FakeKey(2), HKEY{nullptr}})
    {
        EXPECT_EQ(CRegistryRoot(hRoot).Get(), hRoot);
    }
    EXPECT_THAT(console.Calls(), IsEmpty());
    {
        const CRegistryRoot root(HKEY_CURRENT_USER);
        EXPECT_EQ(root.Get(), row.bConsoleUsers ? FakeKey(1) : HKEY_CURRENT_USER);
        EXPECT_EQ(console.Calls().empty(), !row.bConsoleUsers);
        EXPECT_THAT(console.Calls(), testing::Not(Contains(StartsWith("UnloadUserProfile"))));
    }
    const std::vector<std::string> calls = console.Calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "UnloadUserProfile(token20, hive)"),
              row.bConsoleUsers ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, RegistryRootTest,
    testing::Values(RootRow{"Class0NT52", 2, 5, 2, false}, RootRow{"Class0NT100", 2, 10, 0, false},
                    RootRow{"Class1", 1, 4, 0, false}, RootRow{"Class2", 1, 4, 10, false},
                    RootRow{"Class3", 2, 4, 0, false}, RootRow{"Class4", 1, 4, 90, false},
                    RootRow{"Class5", 2, 5, 0, false}, RootRow{"Class6", 2, 5, 1, false},
                    RootRow{"Class8NT60", 2, 6, 0, true}, RootRow{"Class8NT61", 2, 6, 1, true},
                    RootRow{"Class8NT63", 2, 6, 3, true}),
    [](const testing::TestParamInfo<RootRow>& test) { return std::string(test.param.label); });

TEST(RegistryRootFailureTest, KeepsTheCurrentUsersRoot)
{
    CReportedVersion version(6, 1);
    CScriptedConsole console;
    console.m_hHive = FakeKey(1);
    console.m_dwProfileError = ERROR_PRIVILEGE_NOT_HELD;
    EXPECT_EQ(CRegistryRoot(HKEY_CURRENT_USER).Get(), HKEY_CURRENT_USER);
    EXPECT_THAT(console.Calls(), testing::Not(Contains(StartsWith("UnloadUserProfile"))));
}

// The registry's open and close, recorded and scripted.
struct KeyCalls
{
    LSTATUS status = ERROR_SUCCESS;
    HKEY hRoot = nullptr;
    std::wstring subkey;
    DWORD dwOptions = 99;
    REGSAM access = 0;
    int opens = 0;
    std::vector<HKEY> closed;
};
KeyCalls g_keys;

LSTATUS WINAPI ScriptedRegOpenKeyEx(HKEY hRoot, LPCWSTR pszSubkey, DWORD dwOptions, REGSAM access,
                                    PHKEY phKey)
{
    ++g_keys.opens;
    g_keys.hRoot = hRoot;
    g_keys.subkey = pszSubkey;
    g_keys.dwOptions = dwOptions;
    g_keys.access = access;
    if (g_keys.status == ERROR_SUCCESS)
    {
        *phKey = FakeKey(5);
    }
    return g_keys.status;
}

LSTATUS WINAPI ScriptedRegCloseKey(HKEY hKey)
{
    g_keys.closed.push_back(hKey);
    return ERROR_SUCCESS;
}

class KeyExistsTest : public testing::Test
{
protected:
    KeyExistsTest() { g_keys = KeyCalls(); }

    CImportPatch m_open{GetModuleHandleW(nullptr), "RegOpenKeyExW", ScriptedRegOpenKeyEx};
    CImportPatch m_close{GetModuleHandleW(nullptr), "RegCloseKey", ScriptedRegCloseKey};
};

TEST_F(KeyExistsTest, OpensForReadingValuesAndClosesAtOnce)
{
    EXPECT_EQ(KeyExists(HKEY_CLASSES_ROOT, L"http\\shell"), 1);
    EXPECT_EQ(g_keys.hRoot, HKEY_CLASSES_ROOT);
    EXPECT_EQ(g_keys.subkey, L"http\\shell");
    EXPECT_EQ(g_keys.dwOptions, 0u);
    EXPECT_EQ(g_keys.access, 1u);
    EXPECT_THAT(g_keys.closed, ElementsAre(FakeKey(5)));
}

TEST_F(KeyExistsTest, IsFalseAndClosesNothingWhenTheKeyDoesNotOpen)
{
    for (const LSTATUS status : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED})
    {
        g_keys.status = status;
        EXPECT_EQ(KeyExists(HKEY_CURRENT_USER, L"none"), 0) << status;
    }
    EXPECT_EQ(g_keys.hRoot, HKEY_CURRENT_USER);
    EXPECT_THAT(g_keys.closed, IsEmpty());
}

TEST_F(KeyExistsTest, IsFalseForANullSubkeyWithoutAsking)
{
    EXPECT_EQ(KeyExists(HKEY_CLASSES_ROOT, nullptr), 0);
    EXPECT_EQ(g_keys.opens, 0);
}

}  // namespace
