#include "support/TestHive.h"

#include <cstdio>
#include <cstdlib>

namespace
{

// A hive that is not what a test believes would make the test pass or fail for no reason.
void Require(LSTATUS status, const char* step)
{
    if (status != ERROR_SUCCESS)
    {
        std::printf("TestHive: %s gives %ld\n", step, status);
        std::fflush(stdout);
        std::_Exit(3);
    }
}

// Volatile, so that what a test that crashed leaves behind ends with the session.
HKEY CreateKey(HKEY hParent, const std::wstring& path)
{
    HKEY hKey = nullptr;
    Require(RegCreateKeyExW(hParent, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                            &hKey, nullptr),
            "RegCreateKeyExW");
    return hKey;
}

int g_number = 0;

}  // namespace

CTestHive::CTestHive()
    : m_path(L"kvHttpTest" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++g_number))
{
    m_hRoot = CreateKey(HKEY_CURRENT_USER, m_path);
    // A process of the same identifier that crashed may have left its key.
    Require(RegDeleteTreeW(m_hRoot, nullptr), "RegDeleteTreeW");
}

CTestHive::~CTestHive()
{
    RegDeleteTreeW(m_hRoot, nullptr);
    RegCloseKey(m_hRoot);
    RegDeleteKeyW(HKEY_CURRENT_USER, m_path.c_str());
}

void CTestHive::SetBytes(const std::wstring& key, const wchar_t* pszName, DWORD dwType, const void* pData,
                         size_t cb) const
{
    const HKEY hKey = CreateKey(m_hRoot, key);
    Require(RegSetValueExW(hKey, pszName, 0, dwType, static_cast<const BYTE*>(pData), static_cast<DWORD>(cb)),
            "RegSetValueExW");
    RegCloseKey(hKey);
}

void CTestHive::SetText(const std::wstring& key, const wchar_t* pszName, const std::wstring& text,
                        DWORD dwType) const
{
    SetBytes(key, pszName, dwType, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void CTestHive::SetNumber(const std::wstring& key, const wchar_t* pszName, DWORD dwValue) const
{
    SetBytes(key, pszName, REG_DWORD, &dwValue, sizeof(dwValue));
}

void CTestHive::AddKey(const std::wstring& key) const
{
    RegCloseKey(CreateKey(m_hRoot, key));
}

CRedirectedKey::CRedirectedKey(HKEY hPredefined, const CTestHive& hive) : m_hPredefined(hPredefined)
{
    Require(RegOverridePredefKey(hPredefined, hive.Root()), "RegOverridePredefKey");
}

CRedirectedKey::~CRedirectedKey()
{
    RegOverridePredefKey(m_hPredefined, nullptr);
}
