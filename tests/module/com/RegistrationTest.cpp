// The module's own registration, in a part of the registry that belongs to the test alone.
#include <gmock/gmock.h>

#include <objbase.h>

#include <map>
#include <string>
#include <vector>

#include "module/com/ServerModule.h"
#include "support/ImportPatch.h"
#include "support/WineVersion.h"

namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::wstring kClsid = L"{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2}";
const std::wstring kClassKey = L"CLSID\\" + kClsid;

std::vector<std::wstring> g_calls;
std::map<HKEY, std::wstring> g_keys;
LONG g_createError = ERROR_SUCCESS;

std::wstring Name(HKEY hKey)
{
    return hKey == HKEY_CLASSES_ROOT ? L"HKCR" : g_keys[hKey];
}

LSTATUS WINAPI Create(HKEY hParent, LPCWSTR pszName, DWORD dwReserved, LPWSTR pszClass, DWORD dwOptions,
                      REGSAM access, SECURITY_ATTRIBUTES* pSecurity, HKEY* phKey, DWORD* pdwDisposition)
{
    EXPECT_EQ(hParent, HKEY_CLASSES_ROOT);
    EXPECT_EQ(dwReserved, 0u);
    EXPECT_EQ(pszClass, nullptr);
    EXPECT_EQ(dwOptions, static_cast<DWORD>(REG_OPTION_NON_VOLATILE));
    EXPECT_EQ(access, 0xF003Fu);
    EXPECT_EQ(pSecurity, nullptr);
    g_calls.push_back(std::wstring(L"create ") + pszName);
    if (g_createError != ERROR_SUCCESS)
    {
        return g_createError;
    }
    const LSTATUS error =
        RegCreateKeyExW(hParent, pszName, 0, nullptr, dwOptions, access, nullptr, phKey, pdwDisposition);
    g_keys[*phKey] = pszName;
    return error;
}

LSTATUS WINAPI Set(HKEY hKey, LPCWSTR pszName, DWORD dwReserved, DWORD dwType, const BYTE* pData, DWORD cb)
{
    EXPECT_EQ(dwReserved, 0u);
    EXPECT_EQ(dwType, static_cast<DWORD>(REG_SZ));
    g_calls.push_back(L"set " + Name(hKey) + L" [" + (pszName == nullptr ? L"" : pszName) + L"]=" +
                      reinterpret_cast<const wchar_t*>(pData) + L" " + std::to_wstring(cb));
    return RegSetValueExW(hKey, pszName, dwReserved, dwType, pData, cb);
}

LSTATUS WINAPI Open(HKEY hParent, LPCWSTR pszName, DWORD dwOptions, REGSAM access, HKEY* phKey)
{
    EXPECT_EQ(dwOptions, 0u);
    EXPECT_EQ(access, 0xF003Fu);
    const std::wstring name = Name(hParent) + L"\\" + pszName;
    const LSTATUS error = RegOpenKeyExW(hParent, pszName, dwOptions, access, phKey);
    g_calls.push_back((error == ERROR_SUCCESS ? L"open " : L"cannot open ") + name);
    if (error == ERROR_SUCCESS)
    {
        g_keys[*phKey] = name;
    }
    return error;
}

LSTATUS WINAPI Delete(HKEY hParent, LPCWSTR pszName)
{
    g_calls.push_back(L"delete " + Name(hParent) + L"\\" + pszName);
    return RegDeleteKeyW(hParent, pszName);
}

LSTATUS WINAPI Close(HKEY hKey)
{
    g_calls.push_back(L"close " + Name(hKey));
    return RegCloseKey(hKey);
}

DWORD g_cchPath = 0;
HMODULE g_hNamed = nullptr;

DWORD WINAPI ModulePath(HMODULE hModule, LPWSTR pszPath, DWORD cch)
{
    g_hNamed = hModule;
    g_cchPath = cch;
    return GetModuleFileNameW(hModule, pszPath, cch);
}

// Redirects the classes root of this process to a key of its own.
class CTestClassesRoot
{
public:
    CTestClassesRoot() : m_name(L"Software\\kvHttp-test-" + std::to_wstring(GetCurrentProcessId()))
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, m_name.c_str());
        RegCreateKeyExW(HKEY_CURRENT_USER, m_name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_hKey,
                        nullptr);
        m_error = RegOverridePredefKey(HKEY_CLASSES_ROOT, m_hKey);
    }
    ~CTestClassesRoot()
    {
        RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
        RegCloseKey(m_hKey);
        RegDeleteTreeW(HKEY_CURRENT_USER, m_name.c_str());
    }
    CTestClassesRoot(const CTestClassesRoot&) = delete;
    CTestClassesRoot& operator=(const CTestClassesRoot&) = delete;

    HKEY Get() const { return m_hKey; }
    LONG Error() const { return m_error; }

private:
    std::wstring m_name;
    HKEY m_hKey = nullptr;
    LONG m_error = 0;
};

class ModuleRegistrationTest : public testing::Test
{
protected:
    ModuleRegistrationTest()
    {
        g_calls.clear();
        g_keys.clear();
        g_createError = ERROR_SUCCESS;
    }
    void SetUp() override
    {
        ASSERT_EQ(m_root.Error(), ERROR_SUCCESS);
        ASSERT_NE(m_module.Handle(), nullptr);
    }

    // The text of a value, and its size as it is stored.
    std::wstring Value(const std::wstring& key, const wchar_t* pszName = nullptr, DWORD* pcb = nullptr) const
    {
        HKEY hKey = nullptr;
        if (RegOpenKeyExW(m_root.Get(), key.c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS)
        {
            return L"(no key)";
        }
        wchar_t szValue[512] = {};
        DWORD cb = sizeof(szValue) - sizeof(wchar_t);
        DWORD dwType = 0;
        const LSTATUS error =
            RegQueryValueExW(hKey, pszName, nullptr, &dwType, reinterpret_cast<BYTE*>(szValue), &cb);
        RegCloseKey(hKey);
        if (error != ERROR_SUCCESS)
        {
            return L"(no value)";
        }
        EXPECT_EQ(dwType, static_cast<DWORD>(REG_SZ));
        if (pcb != nullptr)
        {
            *pcb = cb;
        }
        return szValue;
    }

    // All keys below the root, depth first, with the number of their values.
    std::vector<std::wstring> Keys(const std::wstring& parent = L"") const
    {
        std::vector<std::wstring> keys;
        HKEY hKey = nullptr;
        if (RegOpenKeyExW(m_root.Get(), parent.c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS)
        {
            return keys;
        }
        wchar_t szName[256] = {};
        for (DWORD i = 0; RegEnumKeyW(hKey, i, szName, 256) == ERROR_SUCCESS; ++i)
        {
            const std::wstring name = parent.empty() ? szName : parent + L"\\" + szName;
            DWORD cValues = 0;
            HKEY hChild = nullptr;
            RegOpenKeyExW(hKey, szName, 0, KEY_READ, &hChild);
            RegQueryInfoKeyW(hChild, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &cValues, nullptr,
                             nullptr, nullptr, nullptr);
            RegCloseKey(hChild);
            keys.push_back(name + L" " + std::to_wstring(cValues));
            const std::vector<std::wstring> below = Keys(name);
            keys.insert(keys.end(), below.begin(), below.end());
        }
        RegCloseKey(hKey);
        return keys;
    }

    void AddKey(const std::wstring& key) const
    {
        HKEY hKey = nullptr;
        RegCreateKeyW(m_root.Get(), key.c_str(), &hKey);
        RegSetValueExW(hKey, L"foreign", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"x"), 4);
        RegCloseKey(hKey);
    }

    static std::vector<std::wstring> AllKeys()
    {
        return {L"CLSID 0",
                kClassKey + L" 1",
                kClassKey + L"\\InprocServer32 2",
                kClassKey + L"\\ProgID 1",
                kClassKey + L"\\VersionIndependentProgID 1",
                L"HttpRaw 0.0.0 1",
                L"HttpRaw 0.0.0\\CLSID 1",
                L"HttpRaw 0.0.0\\CurVer 1",
                L"HttpRaw 0.0.0.3 1",
                L"HttpRaw 0.0.0.3\\CLSID 1"};
    }

    void ExpectAllValues(const std::wstring& path) const
    {
        EXPECT_EQ(Value(kClassKey), L"Kestrin.Desktop.HttpRaw.0");
        EXPECT_EQ(Value(kClassKey + L"\\InprocServer32"), path);
        EXPECT_EQ(Value(kClassKey + L"\\InprocServer32", L"ThreadingModel"), L"Apartment");
        EXPECT_EQ(Value(kClassKey + L"\\ProgID"), L"HttpRaw 0.0.0.3");
        EXPECT_EQ(Value(kClassKey + L"\\VersionIndependentProgID"), L"HttpRaw 0.0.0");
        EXPECT_EQ(Value(L"HttpRaw 0.0.0"), L"Kestrin.Desktop.HttpRaw.0");
        EXPECT_EQ(Value(L"HttpRaw 0.0.0\\CLSID"), kClsid);
        EXPECT_EQ(Value(L"HttpRaw 0.0.0\\CurVer"), L"HttpRaw 0.0.0.3");
        EXPECT_EQ(Value(L"HttpRaw 0.0.0.3"), L"Kestrin.Desktop.HttpRaw.0");
        EXPECT_EQ(Value(L"HttpRaw 0.0.0.3\\CLSID"), kClsid);
        EXPECT_THAT(Keys(), testing::UnorderedElementsAreArray(AllKeys()));
    }

    CTestClassesRoot m_root;
    CServerModule m_module;
};

// Watches the registry calls of the module.
class ModuleRegistrationCallsTest : public ModuleRegistrationTest
{
protected:
    CImportPatch m_create{m_module.Handle(), "RegCreateKeyExW", Create};
    CImportPatch m_set{m_module.Handle(), "RegSetValueExW", Set};
    CImportPatch m_open{m_module.Handle(), "RegOpenKeyExW", Open};
    CImportPatch m_delete{m_module.Handle(), "RegDeleteKeyW", Delete};
    CImportPatch m_close{m_module.Handle(), "RegCloseKey", Close};
    CImportPatch m_path{m_module.Handle(), "GetModuleFileNameW", ModulePath};
};

TEST_F(ModuleRegistrationTest, WritesItsKeysAndNoOthers)
{
    EXPECT_EQ(m_module.Register(), S_OK);
    ExpectAllValues(CServerModule::BuiltPath());
}

TEST_F(ModuleRegistrationTest, WritesTheSameWhenItIsRegisteredTwice)
{
    EXPECT_EQ(m_module.Register(), S_OK);
    EXPECT_EQ(m_module.Register(), S_OK);
    ExpectAllValues(CServerModule::BuiltPath());
}

// Only the sizes that the module passes are its own affair: Wine stores an odd size two bytes longer.
TEST_F(ModuleRegistrationTest, LeavesOutOneByteOfEachDefaultValueAndNoneOfTheThreadingModel)
{
    EXPECT_EQ(m_module.Register(), S_OK);
    DWORD cb = 0;
    Value(L"HttpRaw 0.0.0\\CurVer", nullptr, &cb);
    EXPECT_EQ(cb, IsWine() ? 33u : 31u);
    Value(kClassKey + L"\\InprocServer32", L"ThreadingModel", &cb);
    EXPECT_EQ(cb, 20u);
}

TEST_F(ModuleRegistrationTest, NamesThePathThatItWasLoadedFrom)
{
    wchar_t szFolder[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, szFolder);
    const std::wstring copy =
        std::wstring(szFolder) + L"Another Name " + std::to_wstring(GetCurrentProcessId()) + L".bin";
    ASSERT_TRUE(CopyFileW(CServerModule::BuiltPath().c_str(), copy.c_str(), FALSE)) << GetLastError();
    {
        const CServerModule module(copy);
        ASSERT_NE(module.Handle(), nullptr);
        wchar_t szLoaded[MAX_PATH] = {};
        GetModuleFileNameW(module.Handle(), szLoaded, MAX_PATH);
        EXPECT_EQ(module.Register(), S_OK);
        ExpectAllValues(szLoaded);
        EXPECT_NE(std::wstring(szLoaded).find(L"Another Name"), std::wstring::npos);
        EXPECT_EQ(m_module.Register(), S_OK);
        ExpectAllValues(CServerModule::BuiltPath());
    }
    DeleteFileW(copy.c_str());
}

TEST_F(ModuleRegistrationCallsTest, WritesInItsOrderWithItsSizes)
{
    EXPECT_EQ(m_module.Register(), S_OK);
    const std::wstring path = CServerModule::BuiltPath();
    const std::wstring pathSize = std::to_wstring(2 * (path.size() + 1) - 1);
    const auto triple = [](const std::wstring& key, const std::wstring& value)
    { return std::vector<std::wstring>{L"create " + key, L"set " + key + L" " + value, L"close " + key}; };
    std::vector<std::wstring> expected;
    for (const std::vector<std::wstring>& calls :
         {triple(kClassKey, L"[]=Kestrin.Desktop.HttpRaw.0 51"),
          triple(kClassKey + L"\\InprocServer32", L"[]=" + path + L" " + pathSize),
          triple(kClassKey + L"\\InProcServer32", L"[ThreadingModel]=Apartment 20"),
          triple(kClassKey + L"\\ProgID", L"[]=HttpRaw 0.0.0.3 31"),
          triple(kClassKey + L"\\VersionIndependentProgID", L"[]=HttpRaw 0.0.0 27"),
          triple(L"HttpRaw 0.0.0", L"[]=Kestrin.Desktop.HttpRaw.0 51"),
          triple(L"HttpRaw 0.0.0\\CLSID", L"[]=" + kClsid + L" 77"),
          triple(L"HttpRaw 0.0.0\\CurVer", L"[]=HttpRaw 0.0.0.3 31"),
          triple(L"HttpRaw 0.0.0.3", L"[]=Kestrin.Desktop.HttpRaw.0 51"),
          triple(L"HttpRaw 0.0.0.3\\CLSID", L"[]=" + kClsid + L" 77")})
    {
        expected.insert(expected.end(), calls.begin(), calls.end());
    }
    EXPECT_THAT(g_calls, ElementsAreArray(expected));
    EXPECT_EQ(g_hNamed, m_module.Handle());
    EXPECT_EQ(g_cchPath, 260u);
}

TEST_F(ModuleRegistrationCallsTest, SucceedsAlthoughNothingCanBeWritten)
{
    g_createError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(m_module.Register(), S_OK);
    EXPECT_EQ(g_calls.size(), 10u) << "a failed step ended the registration";
    EXPECT_THAT(Keys(), IsEmpty());
}

TEST_F(ModuleRegistrationTest, RemovesItsTreesWithForeignSubkeysAndNothingElse)
{
    const std::vector<std::wstring> others = {
        L"CLSID\\{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A3}\\InprocServer32", L"HttpRaw 0.0.0.33\\CLSID",
        L"HttpRaw 0.0\\CLSID", L"HttpRaw\\CurVer", L"Kestrin.Desktop.HttpRaw.0\\CLSID"};
    for (const std::wstring& key : others)
    {
        AddKey(key);
    }
    const std::vector<std::wstring> before = Keys();
    EXPECT_EQ(m_module.Register(), S_OK);
    for (const std::wstring& tree :
         {kClassKey, std::wstring(L"HttpRaw 0.0.0"), std::wstring(L"HttpRaw 0.0.0.3")})
    {
        AddKey(tree + L"\\foreign\\deep\\deeper");
        AddKey(tree + L"\\foreign\\deep2");
        AddKey(tree + L"\\" + std::wstring(255, L'n'));
    }
    EXPECT_EQ(m_module.Unregister(), S_OK);
    EXPECT_THAT(Keys(), ElementsAreArray(before));
}

TEST_F(ModuleRegistrationCallsTest, RemovesTheClassThenTheIdentifiers)
{
    m_module.Register();
    AddKey(kClassKey + L"\\AAA");
    g_calls.clear();
    EXPECT_EQ(m_module.Unregister(), S_OK);
    const std::wstring key = L"HKCR\\" + kClassKey;
    const auto leaf = [](const std::wstring& name)
    { return std::vector<std::wstring>{L"open " + name, L"close " + name, L"delete " + name}; };
    std::vector<std::wstring> expected = {L"open " + key};
    const auto append = [&expected](const std::vector<std::wstring>& calls)
    { expected.insert(expected.end(), calls.begin(), calls.end()); };
    append(leaf(key + L"\\AAA"));
    append(leaf(key + L"\\InprocServer32"));
    append(leaf(key + L"\\ProgID"));
    append(leaf(key + L"\\VersionIndependentProgID"));
    append({L"close " + key, L"delete " + key, L"open HKCR\\HttpRaw 0.0.0"});
    append(leaf(L"HKCR\\HttpRaw 0.0.0\\CLSID"));
    append(leaf(L"HKCR\\HttpRaw 0.0.0\\CurVer"));
    append({L"close HKCR\\HttpRaw 0.0.0", L"delete HKCR\\HttpRaw 0.0.0", L"open HKCR\\HttpRaw 0.0.0.3"});
    append(leaf(L"HKCR\\HttpRaw 0.0.0.3\\CLSID"));
    append({L"close HKCR\\HttpRaw 0.0.0.3", L"delete HKCR\\HttpRaw 0.0.0.3"});
    EXPECT_THAT(g_calls, ElementsAreArray(expected));
}

TEST_F(ModuleRegistrationCallsTest, UnregistersNothingWhenItIsNotRegistered)
{
    EXPECT_EQ(m_module.Unregister(), S_OK);
    EXPECT_THAT(g_calls, ElementsAre(L"cannot open HKCR\\" + kClassKey, L"cannot open HKCR\\HttpRaw 0.0.0",
                                     L"cannot open HKCR\\HttpRaw 0.0.0.3"));
    EXPECT_THAT(Keys(), IsEmpty());
}

}  // namespace
