#include "base/ModulePath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <string>

#include "support/ImportPatch.h"

namespace
{

constexpr wchar_t kFiller = L'q';

// The platform, newer or older: a path that does not fit is cut, with a terminator or without one.
class CPathScript
{
public:
    CPathScript() { s_pThis = this; }

    std::wstring m_path;
    bool m_bTerminates = true;
    HMODULE m_hAsked = nullptr;
    DWORD m_cchAsked = 0;

private:
    static DWORD WINAPI Scripted(HMODULE hModule, LPWSTR pszPath, DWORD cch)
    {
        s_pThis->m_hAsked = hModule;
        s_pThis->m_cchAsked = cch;
        const std::wstring& path = s_pThis->m_path;
        if (path.empty())
        {
            return 0;
        }
        const size_t copied = path.copy(pszPath, cch);
        if (copied < cch || s_pThis->m_bTerminates)
        {
            pszPath[copied < cch ? copied : cch - 1] = L'\0';
        }
        return static_cast<DWORD>(copied);
    }

    static inline CPathScript* s_pThis = nullptr;
    CImportPatch m_patch{GetModuleHandleW(nullptr), "GetModuleFileNameW", Scripted};
};

// Room behind the path, where nothing may be written.
struct GuardedPath
{
    GuardedPath()
    {
        std::fill(std::begin(szPath), std::end(szPath), kFiller);
        std::fill(std::begin(behind), std::end(behind), kFiller);
    }

    wchar_t szPath[MAX_PATH];
    wchar_t behind[4];
};

TEST(ModulePathTest, StoresWhatFitsOfAPathWithItsTerminator)
{
    struct Row
    {
        const char* label;
        size_t cch;
        bool bWhole;
    };
    const Row rows[] = {
        {"short", 12, true},          {"one less than fits", 258, true}, {"the longest that fits", 259, true},
        {"one too many", 260, false}, {"two too many", 261, false},      {"much too long", 3000, false},
    };
    CPathScript script;
    const HMODULE hModule = GetModuleHandleW(nullptr);
    for (const Row& row : rows)
    {
        for (const bool bTerminates : {true, false})
        {
            SCOPED_TRACE(std::string(row.label) + (bTerminates ? "" : ", without a terminator"));
            script.m_path = L"C:\\" + std::wstring(row.cch - 3, L'd');
            script.m_bTerminates = bTerminates;
            GuardedPath path;
            EXPECT_EQ(GetModulePath(hModule, path.szPath), row.bWhole);
            EXPECT_EQ(std::wstring(path.szPath, wcsnlen(path.szPath, MAX_PATH)),
                      script.m_path.substr(0, 259));
            EXPECT_EQ(path.behind[0], kFiller);
            EXPECT_EQ(script.m_hAsked, hModule);
            EXPECT_EQ(script.m_cchAsked, 260u);
        }
    }
}

TEST(ModulePathTest, StoresTheEmptyTextForAnUnknownModule)
{
    const CPathScript script;
    GuardedPath path;
    EXPECT_FALSE(GetModulePath(GetModuleHandleW(nullptr), path.szPath));
    EXPECT_STREQ(path.szPath, L"");
}

TEST(ModulePathTest, FindsThisProgram)
{
    wchar_t szPath[MAX_PATH] = {};
    EXPECT_TRUE(GetModulePath(nullptr, szPath));
    const std::wstring path = szPath;
    EXPECT_EQ(path.substr(path.find_last_of(L'\\')), L"\\unit_base.exe");
}

}  // namespace
