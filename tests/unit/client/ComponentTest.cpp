// The component, its apartment and its module: how they are had, what it means when they are not, and their
// end.
#include "kvHttp/Component.h"

#include <gmock/gmock.h>

#include "support/ImportPatch.h"
#include "support/SideThread.h"
#include "support/TempFolder.h"
#include "unit/client/ClientTest.h"

using kvHttp::CComponent;
using kvHttp::Outcome;

namespace
{

HRESULT g_hrCreate = S_OK;

HRESULT STDMETHODCALLTYPE Create(REFCLSID clsid, IUnknown*, DWORD, REFIID, void**)
{
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_HttpRaw));
    return g_hrCreate;
}

// Of whichever kind.
bool IsInApartment()
{
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (SUCCEEDED(hr))
    {
        CoUninitialize();
    }
    return hr != S_OK;
}

TEST(ComponentTest, SaysWhyTheRegisteredOneCannotBeMade)
{
    const CImportPatch create(GetModuleHandleW(nullptr), "CoCreateInstance", Create);
    const std::pair<HRESULT, Outcome> rows[] = {
        {REGDB_E_CLASSNOTREG, Outcome::NotRegistered},
        {E_NOINTERFACE, Outcome::OtherApartment},
        {HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), Outcome::ModuleNotFound},
        {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), Outcome::ModuleNotFound},
        {HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), Outcome::OtherBitness},
        {E_OUTOFMEMORY, Outcome::NoMemory},
        {E_ACCESSDENIED, Outcome::NoComponent},
        {S_OK, Outcome::NoMemory},  // a factory without memory succeeds and gives null
    };
    for (const auto& [hr, outcome] : rows)
    {
        SCOPED_TRACE(hr);
        g_hrCreate = hr;
        CComponent component;
        EXPECT_EQ(component.Open(), outcome);
        EXPECT_EQ(component.Result(), hr);
        EXPECT_EQ(component.Get(), nullptr);
        EXPECT_FALSE(IsInApartment()) << "an apartment for nothing";
    }
}

TEST(ComponentTest, WantsAnApartmentThread)
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
        CComponent component(L"kvHttp.dll");
        EXPECT_EQ(component.Open(), Outcome::OtherApartment);
        EXPECT_EQ(component.Result(), RPC_E_CHANGED_MODE);
    }
    EXPECT_TRUE(IsInApartment()) << "the host's own has been left";
    CoUninitialize();
}

TEST(ComponentTest, SaysWhyAModuleIsNoneOfOurs)
{
    const CTempFolder folder;
    folder.Write(L"garbage.dll", std::string(4096, 'x'));
    const std::pair<std::wstring, Outcome> rows[] = {
        {L"no such.dll", Outcome::ModuleNotFound},
        {folder.Wide() + L"\\no such.dll", Outcome::ModuleNotFound},
        {folder.Wide() + L"\\garbage.dll", Outcome::OtherBitness},
        {L"C:\\windows\\system32\\version.dll", Outcome::OtherModule},
        {L"C:\\windows\\system32\\oleaut32.dll", Outcome::OtherModule}};
    for (const auto& [path, outcome] : rows)
    {
        SCOPED_TRACE(testing::PrintToString(path));
        CComponent component(path);
        EXPECT_EQ(component.Open(), outcome);
        EXPECT_FALSE(IsInApartment());
    }
}

// The built module, beside the test program.
class ModuleComponentTest : public testing::Test
{
protected:
    static bool IsLoaded() { return GetModuleHandleW(L"kvHttp.dll") != nullptr; }
};

TEST_F(ModuleComponentTest, LoadsTheModuleBesideTheProgramAndFreesIt)
{
    const CTempFolder folder;
    wchar_t szBefore[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, szBefore);
    SetCurrentDirectoryW(folder.Wide().c_str());
    {
        CComponent component(L"kvHttp.dll");
        EXPECT_EQ(component.Open(), Outcome::Idle);
        EXPECT_EQ(component.Open(), Outcome::Idle);
        EXPECT_TRUE(IsLoaded());
        EXPECT_TRUE(IsInApartment());
        unsigned long status = 0;
        ASSERT_NE(component.Get(), nullptr);
        EXPECT_EQ(component.Get()->GetRequestStatus(&status), S_OK);
        EXPECT_EQ(status, static_cast<unsigned long>(REQ_STATUS_IDLE));
    }
    EXPECT_FALSE(IsLoaded());
    EXPECT_FALSE(IsInApartment());
    SetCurrentDirectoryW(szBefore);
}

TEST_F(ModuleComponentTest, CanBeOpenedAgain)
{
    CComponent component(L"kvHttp.dll");
    EXPECT_EQ(component.Open(), Outcome::Idle);
    component.Close();
    EXPECT_EQ(component.Get(), nullptr);
    EXPECT_FALSE(IsLoaded());
    EXPECT_EQ(component.Open(), Outcome::Idle);
    EXPECT_TRUE(IsLoaded());
}

TEST_F(ModuleComponentTest, TwoOfThemShareTheModule)
{
    CComponent first(L"kvHttp.dll");
    EXPECT_EQ(first.Open(), Outcome::Idle);
    {
        CComponent second(L"kvHttp.dll");
        EXPECT_EQ(second.Open(), Outcome::Idle);
    }
    unsigned long status = 0;
    EXPECT_EQ(first.Get()->GetRequestStatus(&status), S_OK);
    first.Close();
    EXPECT_FALSE(IsLoaded());
}

TEST_F(ModuleComponentTest, LeavesTheModuleToWhoeverHoldsTheComponent)
{
    IHttpRaw* pKept = nullptr;
    {
        CComponent component(L"kvHttp.dll");
        EXPECT_EQ(component.Open(), Outcome::Idle);
        pKept = component.Get();
        pKept->AddRef();
    }
    ASSERT_TRUE(IsLoaded());
    EXPECT_EQ(pKept->Release(), 0u);
    FreeLibrary(GetModuleHandleW(L"kvHttp.dll"));
    EXPECT_FALSE(IsLoaded());
}

class FactoryComponentTest : public testing::Test
{
protected:
    static bool TakeQuit()
    {
        MSG msg = {};
        return PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE) && msg.message == WM_QUIT && msg.wParam == 7;
    }

    CScriptedHttpRaw m_httpRaw;
    CScriptedFactory m_factory{m_httpRaw};
};

TEST_F(FactoryComponentTest, SaysWhyTheFactoryMadeNone)
{
    m_factory.m_hr = E_OUTOFMEMORY;
    CComponent component(&m_factory);
    EXPECT_EQ(component.Open(), Outcome::NoMemory);
}

// The component would kill its workers.
TEST_F(FactoryComponentTest, KeepsAQuitMessageFromTheRelease)
{
    CComponent component(&m_factory);
    EXPECT_EQ(component.Open(), Outcome::Idle);
    PostQuitMessage(7);
    bool bSeen = false;
    m_httpRaw.m_onLastRelease = [&] { bSeen = TakeQuit(); };
    component.Close();
    EXPECT_FALSE(bSeen) << "the release has met it";
    EXPECT_TRUE(TakeQuit()) << "it is lost to the host";
}

TEST_F(FactoryComponentTest, IsNotThereWhileItIsReleased)
{
    CComponent component(&m_factory);
    EXPECT_EQ(component.Open(), Outcome::Idle);
    m_httpRaw.m_onLastRelease = [&] { EXPECT_EQ(component.Get(), nullptr); };
    component.Close();
    EXPECT_EQ(m_httpRaw.m_references, 0u);
}

TEST_F(FactoryComponentTest, IsNotReleasedByAnotherThread)
{
    auto* const pComponent = new CComponent(&m_factory);
    EXPECT_EQ(pComponent->Open(), Outcome::Idle);
    const CSideThread thread(
        [=]
        {
            EXPECT_EQ(pComponent->Open(), Outcome::OtherThread);
            delete pComponent;
        });
    thread.Join();
    EXPECT_EQ(m_httpRaw.m_references, 1u);
    EXPECT_EQ(m_factory.m_references, 1u);
    CoUninitialize();
}

}  // namespace
