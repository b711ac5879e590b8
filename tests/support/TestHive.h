// Real registry keys of a test's own, which are gone after it, and their use in place of the predefined
// ones of this process.
#pragma once

#include <windows.h>

#include <string>

// A key without anything in it. Make all hives of a test before any of them takes the place of a
// predefined key.
class CTestHive
{
public:
    CTestHive();
    ~CTestHive();
    CTestHive(const CTestHive&) = delete;
    CTestHive& operator=(const CTestHive&) = delete;

    HKEY Root() const { return m_hRoot; }

    // The key is made where it is missing. A null name is the key's default value.
    void SetBytes(const std::wstring& key, const wchar_t* pszName, DWORD dwType, const void* pData,
                  size_t cb) const;
    void SetText(const std::wstring& key, const wchar_t* pszName, const std::wstring& text,
                 DWORD dwType = REG_SZ) const;
    void SetNumber(const std::wstring& key, const wchar_t* pszName, DWORD dwValue) const;
    void AddKey(const std::wstring& key) const;

private:
    std::wstring m_path;
    HKEY m_hRoot = nullptr;
};

// Puts a key in the place of a predefined one for this process. Declare it behind the hives.
class CRedirectedKey
{
public:
    CRedirectedKey(HKEY hPredefined, const CTestHive& hive);
    ~CRedirectedKey();
    CRedirectedKey(const CRedirectedKey&) = delete;
    CRedirectedKey& operator=(const CRedirectedKey&) = delete;

private:
    HKEY m_hPredefined;
};
