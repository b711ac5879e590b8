// The entry point, linked into the test program: its calls can be watched from the first one on.
#include <gmock/gmock.h>

#include <olectl.h>

#include <vector>

#include "server/Factory.h"
#include "server/Unknown.h"
#include "support/ImportPatch.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID pReserved);

namespace
{

using testing::ElementsAre;

std::vector<HMODULE> g_quieted;
std::vector<HMODULE> g_named;

BOOL WINAPI ScriptedDisableThreadLibraryCalls(HMODULE hModule)
{
    g_quieted.push_back(hModule);
    return TRUE;
}

DWORD WINAPI ScriptedGetModuleFileNameW(HMODULE hModule, LPWSTR /*pszPath*/, DWORD /*cch*/)
{
    g_named.push_back(hModule);
    return 0;
}

LSTATUS WINAPI ScriptedRegCreateKeyExW(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, SECURITY_ATTRIBUTES*,
                                       HKEY*, DWORD*)
{
    return ERROR_ACCESS_DENIED;
}

class ModuleTest : public testing::Test
{
protected:
    ModuleTest()
    {
        g_quieted.clear();
        g_named.clear();
    }
    ~ModuleTest() override
    {
        g_cComponents = 0;
        g_cServerLocks = 0;
    }

    HINSTANCE m_hInstance = reinterpret_cast<HINSTANCE>(0x123450000);
    CImportPatch m_disable{GetModuleHandleW(nullptr), "DisableThreadLibraryCalls",
                           ScriptedDisableThreadLibraryCalls};
};

TEST_F(ModuleTest, SwitchesThreadNotificationsOffWhenItIsAttached)
{
    EXPECT_TRUE(DllMain(m_hInstance, DLL_PROCESS_ATTACH, nullptr));
    EXPECT_THAT(g_quieted, ElementsAre(m_hInstance));
}

TEST_F(ModuleTest, DoesNothingForAnyOtherReason)
{
    for (const DWORD dwReason :
         {DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}, DWORD{DLL_PROCESS_DETACH}})
    {
        EXPECT_TRUE(DllMain(m_hInstance, dwReason, nullptr)) << "reason " << dwReason;
    }
    EXPECT_THAT(g_quieted, ElementsAre());
}

TEST_F(ModuleTest, RegistersTheModuleThatWasAttached)
{
    const CImportPatch name(GetModuleHandleW(nullptr), "GetModuleFileNameW", ScriptedGetModuleFileNameW);
    const CImportPatch create(GetModuleHandleW(nullptr), "RegCreateKeyExW", ScriptedRegCreateKeyExW);
    DllMain(m_hInstance, DLL_PROCESS_ATTACH, nullptr);
    DllMain(nullptr, DLL_THREAD_ATTACH, nullptr);
    EXPECT_EQ(DllRegisterServer(), S_OK);
    EXPECT_THAT(g_named, ElementsAre(m_hInstance));
}

TEST_F(ModuleTest, MayBeUnloadedOnlyWithoutComponentsAndLocks)
{
    struct Row
    {
        const char* label;
        LONG components;
        LONG locks;
        HRESULT expected;
    };
    const Row rows[] = {
        {"idle", 0, 0, S_OK},
        {"one component", 1, 0, S_FALSE},
        {"many components", 1000, 0, S_FALSE},
        {"one lock", 0, 1, S_FALSE},
        {"component and lock", 1, 1, S_FALSE},
        {"one unlock too many", 0, -1, S_OK},
        {"component and one unlock too many", 1, -1, S_FALSE},
        {"component count below zero", -1, 0, S_FALSE},
    };
    for (const Row& row : rows)
    {
        g_cComponents = row.components;
        g_cServerLocks = row.locks;
        EXPECT_EQ(DllCanUnloadNow(), row.expected) << row.label;
    }
}

}  // namespace
