#include "server/Registration.h"

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

#include "kvHttp/HttpRaw.h"
#include "support/FailingHeap.h"
#include "support/ImportPatch.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

// A registry in memory: keys are "parent\child" texts, and any call can be made to fail.
struct Registry
{
    std::map<std::wstring, std::vector<std::wstring>> subkeys;
    std::map<std::wstring, LONG> openErrors;
    std::map<std::wstring, LONG> deleteErrors;
    LONG createError = ERROR_SUCCESS;
    std::vector<std::wstring> log;
    std::vector<std::wstring> handles;  // the key behind handle number i + 1
    int open = 0;

    HKEY Open(const std::wstring& name)
    {
        handles.push_back(name);
        ++open;
        return reinterpret_cast<HKEY>(handles.size());
    }
    std::wstring Name(HKEY hKey) const
    {
        return hKey == HKEY_CLASSES_ROOT ? L"HKCR" : handles.at(reinterpret_cast<size_t>(hKey) - 1);
    }
};
Registry* g_pRegistry = nullptr;

LSTATUS WINAPI ScriptedCreate(HKEY hParent, LPCWSTR pszName, DWORD dwReserved, LPWSTR pszClass,
                              DWORD dwOptions, REGSAM access, SECURITY_ATTRIBUTES* pSecurity, HKEY* phKey,
                              DWORD*)
{
    EXPECT_EQ(hParent, HKEY_CLASSES_ROOT);
    EXPECT_EQ(dwReserved, 0u);
    EXPECT_EQ(pszClass, nullptr);
    EXPECT_EQ(dwOptions, 0u) << "must outlive the session";
    EXPECT_EQ(access, static_cast<REGSAM>(KEY_ALL_ACCESS));
    EXPECT_EQ(pSecurity, nullptr);
    g_pRegistry->log.push_back(std::wstring(L"create ") + pszName);
    if (g_pRegistry->createError == ERROR_SUCCESS)
    {
        *phKey = g_pRegistry->Open(pszName);
    }
    return g_pRegistry->createError;
}

LSTATUS WINAPI ScriptedSet(HKEY hKey, LPCWSTR pszName, DWORD dwReserved, DWORD dwType, const BYTE* pData,
                           DWORD cb)
{
    EXPECT_EQ(dwReserved, 0u);
    EXPECT_EQ(dwType, static_cast<DWORD>(REG_SZ));
    g_pRegistry->log.push_back(L"set " + g_pRegistry->Name(hKey) + L" [" +
                               (pszName == nullptr ? L"" : pszName) + L"]=" +
                               reinterpret_cast<const wchar_t*>(pData) + L" " + std::to_wstring(cb));
    return ERROR_SUCCESS;
}

LSTATUS WINAPI ScriptedOpen(HKEY hParent, LPCWSTR pszName, DWORD dwOptions, REGSAM access, HKEY* phKey)
{
    EXPECT_EQ(dwOptions, 0u);
    EXPECT_EQ(access, static_cast<REGSAM>(KEY_ALL_ACCESS));
    const std::wstring name = g_pRegistry->Name(hParent) + L"\\" + pszName;
    g_pRegistry->log.push_back(L"open " + name);
    const auto error = g_pRegistry->openErrors.find(name);
    if (error != g_pRegistry->openErrors.end())
    {
        return error->second;
    }
    *phKey = g_pRegistry->Open(name);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI ScriptedEnum(HKEY hKey, DWORD dwIndex, LPWSTR pszName, LPDWORD pcchName, LPDWORD pReserved,
                            LPWSTR, LPDWORD, PFILETIME)
{
    EXPECT_EQ(dwIndex, 0u);
    EXPECT_EQ(*pcchName, 260u);
    EXPECT_EQ(pReserved, nullptr);
    const std::vector<std::wstring>& names = g_pRegistry->subkeys[g_pRegistry->Name(hKey)];
    if (names.empty())
    {
        return ERROR_NO_MORE_ITEMS;
    }
    names.front().copy(pszName, 259);
    pszName[names.front().size()] = L'\0';
    *pcchName = static_cast<DWORD>(names.front().size());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI ScriptedDelete(HKEY hParent, LPCWSTR pszName)
{
    const std::wstring parent = g_pRegistry->Name(hParent);
    const std::wstring name = parent + L"\\" + pszName;
    g_pRegistry->log.push_back(L"delete " + name);
    const auto error = g_pRegistry->deleteErrors.find(name);
    if (error != g_pRegistry->deleteErrors.end())
    {
        return error->second;
    }
    std::vector<std::wstring>& names = g_pRegistry->subkeys[parent];
    if (!names.empty() && names.front() == pszName)
    {
        names.erase(names.begin());
    }
    return ERROR_SUCCESS;
}

LSTATUS WINAPI ScriptedClose(HKEY hKey)
{
    g_pRegistry->log.push_back(L"close " + g_pRegistry->Name(hKey));
    --g_pRegistry->open;
    return ERROR_SUCCESS;
}

class RegistrationTest : public testing::Test
{
protected:
    RegistrationTest() { g_pRegistry = &m_registry; }
    ~RegistrationTest() override
    {
        EXPECT_EQ(m_registry.open, 0) << "keys stay open";
        g_pRegistry = nullptr;
    }

    Registry m_registry;
    const HMODULE m_hProgram = GetModuleHandleW(nullptr);
    CImportPatch m_create{m_hProgram, "RegCreateKeyExW", ScriptedCreate};
    CImportPatch m_set{m_hProgram, "RegSetValueExW", ScriptedSet};
    CImportPatch m_open{m_hProgram, "RegOpenKeyExW", ScriptedOpen};
    CImportPatch m_enum{m_hProgram, "RegEnumKeyExW", ScriptedEnum};
    CImportPatch m_delete{m_hProgram, "RegDeleteKeyW", ScriptedDelete};
    CImportPatch m_close{m_hProgram, "RegCloseKey", ScriptedClose};
};

TEST_F(RegistrationTest, SetsTheDefaultValueOneByteShortOfItsTerminator)
{
    EXPECT_TRUE(SetKeyAndValue(L"Key", L"Sub", L"Text"));
    EXPECT_THAT(m_registry.log,
                ElementsAre(L"create Key\\Sub", L"set Key\\Sub []=Text 9", L"close Key\\Sub"));
}

TEST_F(RegistrationTest, SetsTheKeyItselfWithoutASubkey)
{
    EXPECT_TRUE(SetKeyAndValue(L"Key", nullptr, L""));
    EXPECT_THAT(m_registry.log, ElementsAre(L"create Key", L"set Key []= 1", L"close Key"));
}

TEST_F(RegistrationTest, AddsABackslashForAnEmptySubkey)
{
    EXPECT_TRUE(SetKeyAndValue(L"Key", L"", L"x"));
    EXPECT_THAT(m_registry.log, ElementsAre(L"create Key\\", L"set Key\\ []=x 3", L"close Key\\"));
}

TEST_F(RegistrationTest, CreatesAKeyWithoutAValue)
{
    EXPECT_TRUE(SetKeyAndValue(L"Key", L"Sub", nullptr));
    EXPECT_THAT(m_registry.log, ElementsAre(L"create Key\\Sub", L"close Key\\Sub"));
}

TEST_F(RegistrationTest, SaysThatAKeyCouldNotBeCreated)
{
    m_registry.createError = ERROR_ACCESS_DENIED;
    EXPECT_FALSE(SetKeyAndValue(L"Key", nullptr, L"x"));
    EXPECT_FALSE(SetThreadingModel(L"Key"));
    EXPECT_THAT(m_registry.log, ElementsAre(L"create Key", L"create Key\\InProcServer32"));
}

TEST_F(RegistrationTest, CutsKeyNamesTo259Characters)
{
    struct Row
    {
        const char* label;
        size_t cchKey;
        const wchar_t* pszSubkey;
        std::wstring expectedTail;  // behind the key, as far as that fits
    };
    const Row rows[] = {
        {"longest key that fits", 259, nullptr, L""}, {"key too long by one", 260, nullptr, L""},
        {"key much too long", 300, nullptr, L""},     {"subkey fits", 255, L"Sub", L"\\Sub"},
        {"subkey cut", 257, L"Sub", L"\\S"},          {"room for the backslash only", 258, L"Sub", L"\\"},
        {"no room behind the key", 259, L"Sub", L""},
    };
    for (const Row& row : rows)
    {
        m_registry.log.clear();
        EXPECT_TRUE(SetKeyAndValue(std::wstring(row.cchKey, L'k').c_str(), row.pszSubkey, nullptr))
            << row.label;
        const std::wstring name = std::wstring(std::min<size_t>(row.cchKey, 259), L'k') + row.expectedTail;
        EXPECT_THAT(m_registry.log, ElementsAre(L"create " + name, L"close " + name)) << row.label;
    }
}

TEST_F(RegistrationTest, SetsTheThreadingModelWithItsWholeTerminator)
{
    const std::wstring key(300, L'k');  // this name has no limit of 259
    EXPECT_TRUE(SetThreadingModel(key.c_str()));
    const std::wstring name = key + L"\\InProcServer32";
    EXPECT_THAT(
        m_registry.log,
        ElementsAre(L"create " + name, L"set " + name + L" [ThreadingModel]=Apartment 20", L"close " + name));
}

TEST_F(RegistrationTest, DoesWithoutTheThreadingModelWhenThereIsNoMemoryForItsName)
{
    const CFailingHeap memory(1, 1);
    EXPECT_FALSE(SetThreadingModel(L"Key"));
    EXPECT_EQ(memory.Refusals(), 1);
    EXPECT_EQ(memory.RefusedSize(), (3 + 14 + 2) * sizeof(wchar_t));
    EXPECT_THAT(m_registry.log, IsEmpty());
}

TEST_F(RegistrationTest, TriesEveryStepAlthoughAllFail)
{
    m_registry.createError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(RegisterServer(m_hProgram, CLSID_HttpRaw, L"friendly", L"independent", L"prog"), S_OK);
    const std::wstring key = L"create CLSID\\{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2}";
    EXPECT_THAT(
        m_registry.log,
        ElementsAre(key, key + L"\\InprocServer32", key + L"\\InProcServer32", key + L"\\ProgID",
                    key + L"\\VersionIndependentProgID", L"create independent", L"create independent\\CLSID",
                    L"create independent\\CurVer", L"create prog", L"create prog\\CLSID"));
}

TEST_F(RegistrationTest, WritesNoFriendlyNameWhenThereIsNone)
{
    EXPECT_EQ(RegisterServer(m_hProgram, CLSID_HttpRaw, nullptr, L"independent", L"prog"), S_OK);
    const std::wstring key = L"CLSID\\{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2}";
    EXPECT_EQ(m_registry.log.at(0), L"create " + key);
    EXPECT_EQ(m_registry.log.at(1), L"close " + key);
}

// The platform's text of an identifier.
struct ClsidTexts
{
    HRESULT hr = S_OK;
    wchar_t* pszHandedOut = nullptr;
    std::vector<void*> freed;
};
ClsidTexts* g_pTexts = nullptr;

HRESULT WINAPI ScriptedStringFromCLSID(REFCLSID clsid, LPOLESTR* ppszText)
{
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_HttpRaw));
    static wchar_t s_szText[] = L"{text}";
    // A failing call leaves garbage.
    *ppszText = SUCCEEDED(g_pTexts->hr) ? s_szText : reinterpret_cast<wchar_t*>(0x10);
    g_pTexts->pszHandedOut = *ppszText;
    return g_pTexts->hr;
}

void WINAPI ScriptedTaskMemFree(void* block)
{
    g_pTexts->freed.push_back(block);
}

class ClsidTextTest : public RegistrationTest
{
protected:
    ClsidTextTest() { g_pTexts = &m_texts; }
    ~ClsidTextTest() override { g_pTexts = nullptr; }

    ClsidTexts m_texts;
    CImportPatch m_fromClsid{m_hProgram, "StringFromCLSID", ScriptedStringFromCLSID};
    CImportPatch m_free{m_hProgram, "CoTaskMemFree", ScriptedTaskMemFree};
};

TEST_F(ClsidTextTest, IsFreedOnceItHasBeenCopied)
{
    EXPECT_EQ(RegisterServer(m_hProgram, CLSID_HttpRaw, L"friendly", L"independent", L"prog"), S_OK);
    EXPECT_EQ(m_registry.log.at(0), L"create CLSID\\{text}");
    EXPECT_THAT(m_texts.freed, ElementsAre(m_texts.pszHandedOut));
    m_texts.freed.clear();
    EXPECT_EQ(UnregisterServer(CLSID_HttpRaw, L"independent", L"prog"), S_OK);
    EXPECT_THAT(m_texts.freed, ElementsAre(m_texts.pszHandedOut));
}

// The key of all classes must neither be written nor deleted.
TEST_F(ClsidTextTest, RegistersNothingWithoutIt)
{
    m_texts.hr = E_OUTOFMEMORY;
    EXPECT_EQ(RegisterServer(m_hProgram, CLSID_HttpRaw, L"friendly", L"independent", L"prog"), S_OK);
    EXPECT_THAT(m_registry.log, IsEmpty());
    EXPECT_THAT(m_texts.freed, IsEmpty());
}

TEST_F(ClsidTextTest, UnregistersTheNamesAloneWithoutIt)
{
    m_texts.hr = E_OUTOFMEMORY;
    EXPECT_EQ(UnregisterServer(CLSID_HttpRaw, L"independent", L"prog"), S_OK);
    EXPECT_THAT(m_registry.log, ElementsAre(L"open HKCR\\independent", L"close HKCR\\independent",
                                            L"delete HKCR\\independent", L"open HKCR\\prog",
                                            L"close HKCR\\prog", L"delete HKCR\\prog"));
    EXPECT_THAT(m_texts.freed, IsEmpty());
}

std::wstring g_modulePath;

// As older systems do it: a path that does not fit is cut without a terminator.
DWORD WINAPI ScriptedModuleFileName(HMODULE, LPWSTR pszPath, DWORD cch)
{
    const size_t copied = g_modulePath.copy(pszPath, cch);
    if (copied < cch)
    {
        pszPath[copied] = L'\0';
    }
    return static_cast<DWORD>(copied);
}

TEST_F(RegistrationTest, RegistersWhatFitsOfTheModulesPath)
{
    const CImportPatch path(m_hProgram, "GetModuleFileNameW", ScriptedModuleFileName);
    for (const size_t length : {size_t{258}, size_t{259}, size_t{260}, size_t{3000}})
    {
        g_modulePath = L"C:\\" + std::wstring(length - 3, L'd');
        m_registry.log.clear();
        EXPECT_EQ(RegisterServer(m_hProgram, CLSID_HttpRaw, L"friendly", L"independent", L"prog"), S_OK);
        const std::wstring fitting = g_modulePath.substr(0, 259);
        EXPECT_EQ(m_registry.log.at(4),
                  L"set CLSID\\{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2}\\InprocServer32 []=" + fitting + L" " +
                      std::to_wstring(2 * fitting.size() + 1))
            << length;
    }
}

TEST_F(RegistrationTest, DeletesAKeyBehindItsSubkeys)
{
    m_registry.subkeys[L"HKCR\\top"] = {L"a", L"b"};
    m_registry.subkeys[L"HKCR\\top\\a"] = {L"x"};
    EXPECT_EQ(RecursiveDeleteKey(HKEY_CLASSES_ROOT, L"top"), ERROR_SUCCESS);
    EXPECT_THAT(m_registry.log,
                ElementsAre(L"open HKCR\\top", L"open HKCR\\top\\a", L"open HKCR\\top\\a\\x",
                            L"close HKCR\\top\\a\\x", L"delete HKCR\\top\\a\\x", L"close HKCR\\top\\a",
                            L"delete HKCR\\top\\a", L"open HKCR\\top\\b", L"close HKCR\\top\\b",
                            L"delete HKCR\\top\\b", L"close HKCR\\top", L"delete HKCR\\top"));
}

TEST_F(RegistrationTest, DeletesSubkeysWithTheLongestNames)
{
    const std::wstring name(259, L'n');
    m_registry.subkeys[L"HKCR\\top"] = {name, L"b"};
    EXPECT_EQ(RecursiveDeleteKey(HKEY_CLASSES_ROOT, L"top"), ERROR_SUCCESS);
    EXPECT_THAT(m_registry.log, testing::Contains(L"delete HKCR\\top\\" + name));
}

TEST_F(RegistrationTest, StopsDeletingAtTheFirstKeyThatCannotBeDeleted)
{
    m_registry.subkeys[L"HKCR\\top"] = {L"a", L"b"};
    m_registry.deleteErrors[L"HKCR\\top\\a"] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(RecursiveDeleteKey(HKEY_CLASSES_ROOT, L"top"), ERROR_ACCESS_DENIED);
    EXPECT_THAT(m_registry.log, ElementsAre(L"open HKCR\\top", L"open HKCR\\top\\a", L"close HKCR\\top\\a",
                                            L"delete HKCR\\top\\a", L"close HKCR\\top"));
}

TEST_F(RegistrationTest, StopsDeletingAtTheFirstSubkeyThatCannotBeOpened)
{
    m_registry.subkeys[L"HKCR\\top"] = {L"a"};
    m_registry.openErrors[L"HKCR\\top\\a"] = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(RecursiveDeleteKey(HKEY_CLASSES_ROOT, L"top"), ERROR_SHARING_VIOLATION);
    EXPECT_THAT(m_registry.log, ElementsAre(L"open HKCR\\top", L"open HKCR\\top\\a", L"close HKCR\\top"));
}

TEST_F(RegistrationTest, ReportsThatAKeyIsMissing)
{
    m_registry.openErrors[L"HKCR\\top"] = ERROR_FILE_NOT_FOUND;
    EXPECT_EQ(RecursiveDeleteKey(HKEY_CLASSES_ROOT, L"top"), ERROR_FILE_NOT_FOUND);
    EXPECT_THAT(m_registry.log, ElementsAre(L"open HKCR\\top"));
}

TEST_F(RegistrationTest, ReportsTheFailureOfTheLastDeletion)
{
    m_registry.deleteErrors[L"HKCR\\top"] = ERROR_KEY_DELETED;
    EXPECT_EQ(RecursiveDeleteKey(HKEY_CLASSES_ROOT, L"top"), ERROR_KEY_DELETED);
}

TEST_F(RegistrationTest, UnregistersTheRestAlthoughOneTreeFails)
{
    const std::wstring key = L"HKCR\\CLSID\\{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2}";
    m_registry.openErrors[key] = ERROR_ACCESS_DENIED;
    m_registry.deleteErrors[L"HKCR\\independent"] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(UnregisterServer(CLSID_HttpRaw, L"independent", L"prog"), S_OK);
    EXPECT_THAT(m_registry.log, ElementsAre(L"open " + key, L"open HKCR\\independent",
                                            L"close HKCR\\independent", L"delete HKCR\\independent",
                                            L"open HKCR\\prog", L"close HKCR\\prog", L"delete HKCR\\prog"));
}

}  // namespace
