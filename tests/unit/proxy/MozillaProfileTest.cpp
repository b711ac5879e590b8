#include "proxy/MozillaProfile.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>
#include <vector>

#include "proxy/ProxyInfo.h"
#include "support/FailingHeap.h"
#include "support/ImportPatch.h"
#include "support/ScriptedShell.h"
#include "support/TempFolder.h"

namespace
{

using testing::ElementsAre;

std::vector<std::string> g_opened;
std::vector<std::wstring> g_debugTexts;
decltype(fopen_s)* g_pfnOpen = nullptr;

errno_t __cdecl ScriptedOpen(FILE** ppFile, const char* path, const char* mode)
{
    g_opened.push_back(std::string(path) + "|" + mode);
    return g_pfnOpen(ppFile, path, mode);
}

void WINAPI ScriptedOutputDebugString(LPCWSTR text)
{
    g_debugTexts.emplace_back(text);
}

TEST(FindFirstProfileTest, TakesTheTextBehindTheFirstPathUpToItsLineEnd)
{
    struct Row
    {
        const char* label;
        const char* ini;
        const char* value;  // null: none
    };
    const Row rows[] = {
        {"second profile first",
         "[General]\nX=1\n\n[Profile1]\nPath=Profiles/b.second\n[Profile0]\nPath=Profiles/a\n",
         "Profiles/b.second"},
        {"install section first",
         "[Install308]\nDefault=Profiles/x\nLocked=1\n\n[Profile0]\nPath=Profiles/a\n", "Profiles/a"},
        {"only key", "Path=x\n", "x"},
        {"no line end", "Path=x", nullptr},
        {"second line without line end", "[Profile0]\nPath=x", nullptr},
        {"no such key", "[Profile0]\nName=x\n", nullptr},
        {"other case", "path=x\nPATH=y\n", nullptr},
        {"blank before the sign", "Path =x\n", nullptr},
        {"blank behind the sign", "Path= x \n", " x "},
        {"within another key", "DefaultPath=x\nPath=y\n", "x"},
        {"within a comment", ";Path=x\nPath=y\n", "x"},
        {"within a value", "Name=Path=x\nPath=y\n", "x"},
        {"twice on a line", "Path=Path=x\n", "Path=x"},
        {"empty value", "Path=\nPath=y\n", ""},
        {"carriage return", "Path=x\r\n", "x\r"},
        {"empty text", "", nullptr},
        {"key at the end", "[Profile0]\nPath=", nullptr},
    };
    for (const Row& row : rows)
    {
        std::string value = "as before";
        EXPECT_EQ(FindFirstProfile(row.ini, value), row.value != nullptr) << row.label;
        EXPECT_EQ(value, row.value != nullptr ? row.value : "as before") << row.label;
    }
}

TEST(WideToAnsiTest, CopiesIntoTheAnsiCodePage)
{
    EXPECT_EQ(CProxyInfo::WideToAnsi(nullptr), nullptr);
    EXPECT_STREQ(CProxyInfo::WideToAnsi(L"").get(), "");
    EXPECT_STREQ(CProxyInfo::WideToAnsi(L"C:\\a b\\prefs.js").get(), "C:\\a b\\prefs.js");
    const wchar_t* const mixed = L"a\u00e4\u65e5z";
    char expected[32] = {};
    WideCharToMultiByte(CP_ACP, 0, mixed, -1, expected, 32, nullptr, nullptr);
    EXPECT_STREQ(CProxyInfo::WideToAnsi(mixed).get(), expected);
    EXPECT_EQ(std::string(CProxyInfo::WideToAnsi(std::wstring(5000, L'x').c_str()).get()),
              std::string(5000, 'x'));
}

TEST(WideToAnsiTest, IsNullWithoutMemory)
{
    const CFailingHeap memory{3001};
    EXPECT_EQ(CProxyInfo::WideToAnsi(std::wstring(3000, L'x').c_str()), nullptr);
    EXPECT_EQ(memory.Refusals(), 1);
}

class MozillaProfileTest : public testing::Test
{
protected:
    MozillaProfileTest()
    {
        m_shell.m_folder = m_folder.Narrow();
        m_info.m_dwBrowser = BROWSER_FIREFOX;
        g_opened.clear();
        g_debugTexts.clear();
        g_pfnOpen = m_open.Original<decltype(fopen_s)>();
    }

    void WriteIni(const std::string& bytes) const
    {
        m_folder.Write(L"Mozilla\\firefox\\profiles.ini", bytes);
    }

    // What comes behind the application-data folder; the text "failed" on failure.
    std::wstring Below()
    {
        CStringEx path(L"as before");
        if (m_info.GetMozillaProfile(path) == FALSE)
        {
            return L"failed";
        }
        const std::wstring found = path.c_str();
        const std::wstring folder = m_folder.Wide();
        EXPECT_EQ(found.substr(0, folder.size()), folder);
        return found.substr(folder.size());
    }

    CTempFolder m_folder;
    CScriptedShell m_shell;
    CImportPatch m_open{GetModuleHandleW(nullptr), "fopen_s", ScriptedOpen};
    CImportPatch m_debug{GetModuleHandleW(nullptr), "OutputDebugStringW", ScriptedOutputDebugString};
    CProxyInfo m_info;
};

constexpr wchar_t kNoProfile[] = L"\\Mozilla\\prefs.js";

TEST_F(MozillaProfileTest, JoinsTheFirstProfileToTheFirefoxFolder)
{
    struct Row
    {
        const char* label;
        std::string ini;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {"second profile first",
         "[General]\nStartWithLastProfile=1\n\n[Profile1]\nPath=Profiles/b.second\n\n[Profile0]\n"
         "Path=Profiles/a.default\n",
         L"\\Mozilla\\firefox\\Profiles/b.second\\prefs.js"},
        {"install section first",
         "[Install308046B0AF4A39CB]\r\nDefault=Profiles/x.default\r\nLocked=1\r\n\r\n[Profile0]\r\n"
         "Name=default\r\nIsRelative=1\r\nPath=Profiles/a.default\r\nDefault=1\r\n",
         L"\\Mozilla\\firefox\\Profiles/a.default\\prefs.js"},
        {"no line end", "[Profile0]\nPath=x", kNoProfile},
        {"no path", "[Profile0]\nName=x\n", kNoProfile},
        {"empty", "", kNoProfile},
        {"empty value", "Path=\n", L"\\Mozilla\\firefox\\prefs.js"},
        {"slashes around", "Path=/a/b/\n", L"\\Mozilla\\firefox\\a/b\\prefs.js"},
        {"backslashes around", "Path=\\a\\b\\\n", L"\\Mozilla\\firefox\\a\\b\\prefs.js"},
        {"absolute path", "Path=D:\\Profiles\\a\nIsRelative=0\n",
         L"\\Mozilla\\firefox\\D:\\Profiles\\a\\prefs.js"},
        {"blanks", "Path= a b \n", L"\\Mozilla\\firefox\\ a b \\prefs.js"},
        {"zero byte before", std::string("[General]\0\nPath=a\n", 18), kNoProfile},
        {"zero byte in the value", std::string("Path=a\0b\n", 9), kNoProfile},
    };
    for (const Row& row : rows)
    {
        WriteIni(row.ini);
        EXPECT_EQ(Below(), row.expected) << row.label;
    }
}

TEST_F(MozillaProfileTest, FindsNoProfileWithoutTheFile)
{
    EXPECT_EQ(Below(), kNoProfile);
}

TEST_F(MozillaProfileTest, OpensTheFileInTextModeAndClosesIt)
{
    WriteIni("Path=a\n");
    EXPECT_EQ(Below(), L"\\Mozilla\\firefox\\a\\prefs.js");
    EXPECT_THAT(g_opened, ElementsAre(m_folder.Narrow() + "\\Mozilla\\firefox\\profiles.ini|r"));
    EXPECT_TRUE(DeleteFileW((m_folder.Wide() + L"\\Mozilla\\firefox\\profiles.ini").c_str()));
}

TEST_F(MozillaProfileTest, LeavesOutTheMozillaFolderForAnotherBrowser)
{
    m_folder.Write(L"firefox\\profiles.ini", "Path=a\n");
    m_info.m_dwBrowser = BROWSER_IE;
    EXPECT_EQ(Below(), L"\\firefox\\a\\prefs.js");
}

TEST_F(MozillaProfileTest, SeesTheFirst16384BytesOnly)
{
    const std::string line = "Path=a\n";
    const auto padded = [&line](size_t padding)
    { return std::string(padding - 1, '#') + "\n" + line + std::string(3000, '#') + "\n"; };
    WriteIni(padded(16384 - line.size()));
    EXPECT_EQ(Below(), L"\\Mozilla\\firefox\\a\\prefs.js") << "the line ends with the last byte that is seen";
    WriteIni(padded(16384 - line.size() + 1));
    EXPECT_EQ(Below(), kNoProfile) << "its end is the first byte that is not seen";
    WriteIni(padded(16384));
    EXPECT_EQ(Below(), kNoProfile) << "all of it lies beyond";
    WriteIni(std::string(16384, '#'));
    EXPECT_EQ(Below(), kNoProfile) << "a file of just that size";
    WriteIni("Path=a\n" + std::string(1000000, '#'));
    EXPECT_EQ(Below(), L"\\Mozilla\\firefox\\a\\prefs.js") << "a large file";
}

// Line ends count as one character, so that more than 16384 bytes of such a file can be seen.
TEST_F(MozillaProfileTest, SeesTheFirst16384CharactersOfAFileWithCarriageReturns)
{
    const auto padded = [](size_t lines, size_t rest)
    {
        std::string text;
        for (size_t line = 0; line < lines; ++line)
        {
            text += "#######\r\n";
        }
        return text + std::string(rest, '#') + "Path=a\r\n#\r\n";
    };
    // 2047 lines of eight characters leave room for eight more.
    WriteIni(padded(2047, 1));
    EXPECT_EQ(Below(), L"\\Mozilla\\firefox\\a\\prefs.js") << "its end is the last one that is seen";
    WriteIni(padded(2047, 2));
    EXPECT_EQ(Below(), kNoProfile) << "its end is the first one that is not seen";
}

TEST_F(MozillaProfileTest, SeesNothingBehindTheTextThatWasRead)
{
    struct Row
    {
        const char* label;
        std::string ini;
    };
    std::string shrunk;
    for (int line = 0; line < 10; ++line)
    {
        shrunk += "\r\n";
    }
    const Row rows[] = {
        {"line ends that shrink, the last line without one", shrunk + "Path=a"},
        {"an end-of-text character", "[General]\n\x1APath=a\n"},
        {"an end-of-text character within the line", "Path=a\x1A\n"},
        {"an end-of-text character behind line ends that shrink", shrunk + "Path=a\x1A\r\nPath=b\r\n"},
    };
    for (const Row& row : rows)
    {
        WriteIni(row.ini);
        EXPECT_EQ(Below(), kNoProfile) << row.label;
    }
}

TEST_F(MozillaProfileTest, FailsWithoutAFolderAndLeavesThePath)
{
    m_shell.m_bPath = false;
    m_shell.m_cchWindows = 260;
    CStringEx path(L"as before");
    EXPECT_EQ(m_info.GetMozillaProfile(path), 0);
    EXPECT_STREQ(path.c_str(), L"as before");
    EXPECT_TRUE(g_opened.empty());
}

TEST_F(MozillaProfileTest, FailsWithoutMemoryForTheTextAndClosesTheFile)
{
    WriteIni("Path=a\n");
    {
        const CFailingHeap memory{16384, 16385, 16386};
        EXPECT_EQ(Below(), L"failed");
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_TRUE(DeleteFileW((m_folder.Wide() + L"\\Mozilla\\firefox\\profiles.ini").c_str()))
        << GetLastError();
}

// Windows file names hold what the code page has; the text of the file is taken in that code page.
TEST_F(MozillaProfileTest, TakesTheValueInTheAnsiCodePage)
{
    WriteIni("Path=Profiles/\xE4.x\n");
    wchar_t szExpected[8] = {};
    MultiByteToWideChar(CP_ACP, 0, "\xE4.x", -1, szExpected, 8);
    EXPECT_EQ(Below(), L"\\Mozilla\\firefox\\Profiles/" + std::wstring(szExpected) + L"\\prefs.js");
}

TEST_F(MozillaProfileTest, TellsTheDebuggerWhenThereIsNoMemoryForTheValue)
{
    const size_t length = 3000;
    WriteIni("Path=" + std::string(length, 'v') + "\n");
    std::wstring below;
    {
        // The value's wide text, and the empty text that stands in for it.
        const CFailingHeap memory{(length + 1) * sizeof(wchar_t), sizeof(wchar_t)};
        CStringEx path;
        EXPECT_EQ(m_info.GetMozillaProfile(path), 1);
        EXPECT_EQ(memory.Refusals(), 2);
        below = std::wstring(path.c_str()).substr(m_folder.Wide().size());
    }
    EXPECT_EQ(below, L"\\Mozilla\\firefox\\prefs.js");
    EXPECT_THAT(g_debugTexts, ElementsAre(L"CStringEx::PathAppend: lpszFile == NULL\n"));
}

}  // namespace
