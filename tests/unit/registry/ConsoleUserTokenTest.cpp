#include "registry/ConsoleUserToken.h"

#include <gmock/gmock.h>

#include "support/ReportedVersion.h"
#include "support/ScriptedConsole.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr wchar_t kShell[] = L"C:\\windows\\explorer.exe";

HANDLE Untouched()
{
    return reinterpret_cast<HANDLE>(static_cast<INT_PTR>(0x77));
}

class ConsoleUserTokenTest : public testing::Test
{
protected:
    // The process whose token is taken; 0 when none is.
    DWORD TakenFrom()
    {
        m_hToken = Untouched();
        if (!GetCurrentUserToken(&m_hToken))
        {
            return 0;
        }
        for (const CScriptedProcess& process : m_console.m_processes)
        {
            if (m_hToken == CScriptedConsole::TokenHandle(process.dwId))
            {
                return process.dwId;
            }
        }
        ADD_FAILURE() << "succeeded with a token of no process";
        return 0xFFFFFFFF;
    }

    CReportedVersion m_version{6, 1};
    CScriptedConsole m_console;
    HANDLE m_hToken = nullptr;
};

TEST_F(ConsoleUserTokenTest, AsksTheSystemInThisOrder)
{
    m_console.m_processes = {{20, kShell, 1}};
    EXPECT_EQ(TakenFrom(), 20u);
    EXPECT_THAT(m_console.Calls(),
                ElementsAre("GetModuleHandleW(Kernel32.dll)",
                            "GetProcAddress(kernel32.dll, WTSGetActiveConsoleSessionId)",
                            "WTSGetActiveConsoleSessionId()", "LoadLibraryW(psapi.dll)",
                            "LoadLibraryW(advapi32.dll)", "GetProcAddress(psapi.dll, EnumProcesses)",
                            "GetProcAddress(psapi.dll, GetModuleFileNameExW)",
                            "GetProcAddress(advapi32.dll, OpenProcessToken)",
                            "GetProcAddress(advapi32.dll, GetTokenInformation)", "EnumProcesses(4096)",
                            "OpenProcess(0x410, 0, 20)", "GetModuleFileNameExW(process20, null, 260)",
                            "OpenProcessToken(process20, 0xE)", "GetTokenInformation(token20, 12, 4)",
                            "CloseHandle(process20)"));
    EXPECT_THAT(m_console.OpenHandles(), ElementsAre("token20"));
}

TEST_F(ConsoleUserTokenTest, LoadsTheLibrariesOnce)
{
    EXPECT_EQ(TakenFrom(), 20u);
    m_console.ClearCalls();
    EXPECT_EQ(TakenFrom(), 20u);
    EXPECT_THAT(m_console.Calls(), Not(Contains(testing::StartsWith("LoadLibraryW"))));
}

TEST_F(ConsoleUserTokenTest, SkipsProcessesThatDoNotOpenOrHaveNoPath)
{
    m_console.m_processes = {{4, kShell, 1, false}, {8, nullptr, 1}, {20, kShell, 1}};
    EXPECT_EQ(TakenFrom(), 20u);
    EXPECT_THAT(
        m_console.Steps(),
        ElementsAre("WTSGetActiveConsoleSessionId()", "EnumProcesses(4096)", "OpenProcess(0x410, 0, 4)",
                    "OpenProcess(0x410, 0, 8)", "GetModuleFileNameExW(process8, null, 260)",
                    "CloseHandle(process8)", "OpenProcess(0x410, 0, 20)",
                    "GetModuleFileNameExW(process20, null, 260)", "OpenProcessToken(process20, 0xE)",
                    "GetTokenInformation(token20, 12, 4)", "CloseHandle(process20)"));
}

TEST_F(ConsoleUserTokenTest, PassesByTheShellOfAnotherSessionAndClosesItsToken)
{
    m_console.m_processes = {{16, kShell, 2}, {20, kShell, 1}};
    EXPECT_EQ(TakenFrom(), 20u);
    EXPECT_THAT(m_console.Steps(),
                ElementsAre("WTSGetActiveConsoleSessionId()", "EnumProcesses(4096)",
                            "OpenProcess(0x410, 0, 16)", "GetModuleFileNameExW(process16, null, 260)",
                            "OpenProcessToken(process16, 0xE)", "GetTokenInformation(token16, 12, 4)",
                            "CloseHandle(token16)", "CloseHandle(process16)", "OpenProcess(0x410, 0, 20)",
                            "GetModuleFileNameExW(process20, null, 260)", "OpenProcessToken(process20, 0xE)",
                            "GetTokenInformation(token20, 12, 4)", "CloseHandle(process20)"));
    EXPECT_THAT(m_console.OpenHandles(), ElementsAre("token20"));
}

TEST_F(ConsoleUserTokenTest, TakesTheFirstOfTwoShellsOfTheConsoleSession)
{
    m_console.m_processes = {{36, kShell, 1}, {20, kShell, 1}};
    EXPECT_EQ(TakenFrom(), 36u);
    EXPECT_THAT(m_console.Calls(), Not(Contains("OpenProcess(0x410, 0, 20)")));
}

TEST_F(ConsoleUserTokenTest, FollowsTheConsoleSession)
{
    m_console.m_processes = {{16, kShell, 0}, {20, kShell, 1}, {24, kShell, 7}};
    m_console.m_dwConsoleSession = 7;
    EXPECT_EQ(TakenFrom(), 24u);
}

TEST_F(ConsoleUserTokenTest, TakesOnlyAProcessOfTheShellsName)
{
    struct Row
    {
        const char* label;
        const wchar_t* pszPath;
        bool bTaken;
    };
    const std::wstring longest = L"C:\\" + std::wstring(243, L'd') + L"\\explorer.exe";
    const std::wstring tooLong = L"C:\\" + std::wstring(244, L'd') + L"\\explorer.exe";
    const std::wstring cutToFit = longest + L"2";
    const Row rows[] = {
        {"as installed", L"C:\\Windows\\explorer.exe", true},
        {"capital initial and ending", L"C:\\Windows\\Explorer.EXE", true},
        {"all capitals", L"C:\\WINDOWS\\EXPLORER.EXE", true},
        {"in another folder", L"D:\\tools\\explorer.exe", true},
        {"with no folder", L"explorer.exe", true},
        {"a device path", L"\\Device\\HarddiskVolume1\\Windows\\explorer.exe", true},
        {"of 259 characters", longest.c_str(), true},
        {"cut at 259 characters", tooLong.c_str(), false},
        {"the shell's when cut at 259 characters", cutToFit.c_str(), true},
        {"another ending", L"C:\\Windows\\explorer.com", false},
        {"a longer ending", L"C:\\Windows\\explorer.exe2", false},
        {"no ending", L"C:\\Windows\\explorer", false},
        {"two endings", L"C:\\Windows\\explorer.bak.exe", false},
        {"the ending twice", L"C:\\Windows\\explorer.exe.exe", false},
        {"a longer name", L"C:\\Windows\\iexplorer.exe", false},
        {"a shorter name", L"C:\\Windows\\explore.exe", false},
        {"only the folder's name", L"C:\\explorer.exe\\cmd.exe", false},
    };
    for (const Row& row : rows)
    {
        m_console.m_processes = {{20, row.pszPath, 1}};
        EXPECT_EQ(TakenFrom(), row.bTaken ? 20u : 0u) << row.label;
        EXPECT_EQ(m_hToken == nullptr, !row.bTaken) << row.label;
    }
}

TEST_F(ConsoleUserTokenTest, PassesByAShellWhoseTokenDoesNotOpen)
{
    m_console.m_processes = {{16, kShell, 1, true, false}, {20, kShell, 1}};
    EXPECT_EQ(TakenFrom(), 20u);
    m_console.m_processes.pop_back();
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, nullptr);
}

TEST_F(ConsoleUserTokenTest, ClosesNothingThatTheCallerHadThere)
{
    m_console.m_processes = {{16, kShell, 1, true, false}};
    const HANDLE hCallers = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m_hToken = hCallers;
    EXPECT_FALSE(GetCurrentUserToken(&m_hToken));
    EXPECT_EQ(m_hToken, nullptr);
    DWORD dwFlags = 0;
    EXPECT_TRUE(GetHandleInformation(hCallers, &dwFlags));
    CloseHandle(hCallers);
}

TEST_F(ConsoleUserTokenTest, PassesByAShellWhoseSessionIsNotKnown)
{
    m_console.m_processes = {{16, kShell, 1, true, true, false}};
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, nullptr);
    EXPECT_THAT(m_console.OpenHandles(), IsEmpty());
}

TEST_F(ConsoleUserTokenTest, LeavesNullAndNothingOpenWhenThereIsNoShell)
{
    m_console.m_processes = {{16, kShell, 2}, {20, L"C:\\windows\\system32\\services.exe", 1}};
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, nullptr);
    EXPECT_THAT(m_console.OpenHandles(), IsEmpty());
    EXPECT_THAT(m_console.DebugTexts(), IsEmpty());
}

TEST_F(ConsoleUserTokenTest, AsksForNoProcessWithoutAConsoleSession)
{
    m_console.m_dwConsoleSession = 0xFFFFFFFF;
    m_console.m_processes = {{20, kShell, 0xFFFFFFFF}};
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, Untouched());
    EXPECT_THAT(m_console.Steps(), ElementsAre("WTSGetActiveConsoleSessionId()"));
}

TEST_F(ConsoleUserTokenTest, FailsWithoutTheSystemsOwnLibrary)
{
    m_console.m_bKernel32Missing = true;
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, Untouched());
    EXPECT_THAT(m_console.Calls(), ElementsAre("GetModuleHandleW(Kernel32.dll)"));
}

TEST_F(ConsoleUserTokenTest, FailsWithoutAnyOfItsEntryPoints)
{
    for (const char* pszEntryPoint : {"WTSGetActiveConsoleSessionId", "EnumProcesses", "GetModuleFileNameExW",
                                      "OpenProcessToken", "GetTokenInformation"})
    {
        m_console.m_missingEntryPoints = {pszEntryPoint};
        m_console.ClearCalls();
        EXPECT_EQ(TakenFrom(), 0u) << pszEntryPoint;
        EXPECT_EQ(m_hToken, Untouched()) << pszEntryPoint;
        EXPECT_THAT(m_console.Calls(), Not(Contains("EnumProcesses(4096)"))) << pszEntryPoint;
    }
    m_console.m_missingEntryPoints.clear();
    EXPECT_EQ(TakenFrom(), 20u);
}

TEST_F(ConsoleUserTokenTest, FailsWithoutTheProcessLibrary)
{
    m_console.m_missingLibraries = {L"psapi.dll"};
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, Untouched());
    EXPECT_THAT(m_console.Calls(), Not(Contains("EnumProcesses(4096)")));
}

TEST_F(ConsoleUserTokenTest, FailsWithoutTheSecurityLibrary)
{
    m_console.m_missingLibraries = {L"advapi32.dll"};
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, Untouched());
    EXPECT_THAT(m_console.Calls(), Not(Contains("EnumProcesses(4096)")));
}

TEST_F(ConsoleUserTokenTest, FailsWhenProcessesAreNotEnumerated)
{
    m_console.m_bEnumerates = false;
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, Untouched());
    m_console.m_bEnumerates = true;
    m_console.m_cbEnumerated = 3;
    EXPECT_EQ(TakenFrom(), 0u);
    EXPECT_EQ(m_hToken, Untouched());
    m_console.m_cbEnumerated = 4;
    m_console.m_processes = {{20, kShell, 1}};
    EXPECT_EQ(TakenFrom(), 20u);
}

TEST_F(ConsoleUserTokenTest, LooksAtTheWholeProcessesOfTheReportedSizeOnly)
{
    m_console.m_processes = {{4, nullptr, 0}, {20, kShell, 1}};
    m_console.m_cbEnumerated = 7;
    EXPECT_EQ(TakenFrom(), 0u);
    m_console.m_cbEnumerated = 8;
    EXPECT_EQ(TakenFrom(), 20u);
}

TEST_F(ConsoleUserTokenTest, LooksAtThousandTwentyFourProcessesAtMost)
{
    m_console.m_processes.clear();
    for (DWORD index = 0; index < 1023; ++index)
    {
        m_console.m_processes.push_back({100000 + index, nullptr, 0, false});
    }
    m_console.m_processes.push_back({20, kShell, 1});
    EXPECT_EQ(TakenFrom(), 20u);
    m_console.m_processes.insert(m_console.m_processes.begin(), {8, nullptr, 0, false});
    m_console.m_cbEnumerated = 2 * 4096;
    EXPECT_EQ(TakenFrom(), 0u);
}

// Up to Windows 2000, and on systems of an unknown class, the shell of session 0 is looked for.
class OldSystemTokenTest : public testing::TestWithParam<std::pair<DWORD, DWORD>>
{
};

TEST_P(OldSystemTokenTest, TakesTheShellOfSessionZeroAndTellsTheDebugger)
{
    CReportedVersion version(GetParam().first, GetParam().second);
    CScriptedConsole console;
    console.m_dwConsoleSession = 1;
    console.m_processes = {{16, kShell, 1}, {20, kShell, 0}};
    HANDLE hToken = nullptr;
    EXPECT_TRUE(GetCurrentUserToken(&hToken));
    EXPECT_EQ(hToken, CScriptedConsole::TokenHandle(20));
    EXPECT_THAT(
        console.Steps(),
        ElementsAre("EnumProcesses(4096)", "OpenProcess(0x410, 0, 16)",
                    "GetModuleFileNameExW(process16, null, 260)", "OpenProcessToken(process16, 0xE)",
                    "GetTokenInformation(token16, 12, 4)", "CloseHandle(token16)", "CloseHandle(process16)",
                    "OpenProcess(0x410, 0, 20)", "GetModuleFileNameExW(process20, null, 260)",
                    "OpenProcessToken(process20, 0xE)", "GetTokenInformation(token20, 12, 4)",
                    "Debug:GetCurrentUserToken: Win2k find explorer success!\n", "CloseHandle(process20)"));
}

INSTANTIATE_TEST_SUITE_P(Versions, OldSystemTokenTest,
                         testing::Values(std::pair<DWORD, DWORD>(4, 0), std::pair<DWORD, DWORD>(5, 0),
                                         std::pair<DWORD, DWORD>(5, 2), std::pair<DWORD, DWORD>(10, 0)),
                         [](const testing::TestParamInfo<std::pair<DWORD, DWORD>>& test)
                         {
                             return "NT" + std::to_string(test.param.first) + "_" +
                                    std::to_string(test.param.second);
                         });

TEST(XPTokenTest, TakesTheShellOfTheConsoleSessionWithoutAWord)
{
    CReportedVersion version(5, 1);
    CScriptedConsole console;
    console.m_dwConsoleSession = 0;
    console.m_processes = {{16, kShell, 1}, {20, kShell, 0}};
    HANDLE hToken = nullptr;
    EXPECT_TRUE(GetCurrentUserToken(&hToken));
    EXPECT_EQ(hToken, CScriptedConsole::TokenHandle(20));
    EXPECT_THAT(console.DebugTexts(), IsEmpty());
}

}  // namespace
