#include <gmock/gmock.h>

#include "proxy/DefaultBrowser.h"

namespace
{

TEST(CutToExecutableTest, KeepsThePathOfTheExecutable)
{
    struct Row
    {
        const char* label;
        const wchar_t* command;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {"quoted, with arguments", L"\"C:\\Program Files\\Internet Explorer\\iexplore.exe\" %1",
         L"c:\\program files\\internet explorer\\iexplore.exe"},
        {"quoted, without arguments", L"\"C:\\a b\\c.exe\"", L"c:\\a b\\c.exe"},
        {"quoted, with a quoted argument",
         L"\"C:\\Program Files\\Mozilla Firefox\\firefox.exe\" -osint -url \"%1\"",
         L"c:\\program files\\mozilla firefox\\firefox.exe"},
        {"unquoted with blanks", L"C:\\Program Files\\Mozilla Firefox\\firefox.exe -url %1",
         L"c:\\program files\\mozilla firefox\\firefox.exe"},
        {"short names in capitals", L"\"C:\\PROGRA~1\\MOZILL~1\\FIREFOX.EXE\" -url \"%1\"",
         L"c:\\progra~1\\mozill~1\\firefox.exe"},
        {"path only", L"C:\\a.exe", L"c:\\a.exe"},
        {"file name only", L"firefox.exe %1", L"firefox.exe"},
        {"several leading quotes", L"\"\"\"C:\\a.exe\"\"\"", L"c:\\a.exe"},
        {"a blank before the quote", L" \"C:\\a.exe\"", L" \"c:\\a.exe"},
        {"a quote within", L"\"C:\\a\"b.exe\"", L"c:\\a\"b.exe"},
        {"ending within a folder's name", L"C:\\my.executables\\firefox.exe", L"c:\\my.exe"},
        {"two programs", L"C:\\launch.exe C:\\firefox.exe", L"c:\\launch.exe"},
        {"ending in an argument", L"C:\\browser -x firefox.exe", L"c:\\browser -x firefox.exe"},
        {"nothing but the ending", L".EXE", L".exe"},
        {"nothing but quotes and the ending", L"\"\".exe", L".exe"},
    };
    for (const Row& row : rows)
    {
        CStringEx strCommand(row.command);
        EXPECT_TRUE(CutToExecutable(strCommand)) << row.label;
        EXPECT_STREQ(strCommand.c_str(), row.expected) << row.label;
    }
}

TEST(CutToExecutableTest, OnlyLowersATextWithoutAnExecutable)
{
    for (const wchar_t* const command : {L"", L"\"C:\\Firefox\" %1", L"C:\\FIREFOX.COM", L"C:\\Firefox.ex e"})
    {
        CStringEx strCommand(command);
        CStringEx strLower(command);
        strLower.MakeLower();
        EXPECT_FALSE(CutToExecutable(strCommand));
        EXPECT_STREQ(strCommand.c_str(), strLower.c_str());
    }
}

TEST(BrowserOfTest, FindsTheExecutablesNameAnywhere)
{
    struct Row
    {
        const wchar_t* path;
        DWORD expected;
    };
    const Row rows[] = {
        {L"c:\\program files\\internet explorer\\iexplore.exe", 1},
        {L"c:\\program files\\mozilla firefox\\firefox.exe", 2},
        {L"c:\\users\\anna\\appdata\\local\\google\\chrome\\application\\chrome.exe", 3},
        {L"c:\\program files\\safari\\safari.exe", 4},
        {L"iexplore.exe", 1},
        {L"c:\\firefox.exe.d\\x.exe", 2},
        {L"c:\\myfirefox.exe", 2},
        {L"c:\\firefox.exe\\iexplore.exe", 1},
        {L"c:\\iexplore.exe\\firefox.exe", 1},
        {L"c:\\chrome.exe\\firefox.exe", 2},
        {L"c:\\safari.exe\\chrome.exe", 3},
        {L"c:\\safari.exe\\iexplore.exe", 1},
        {L"c:\\windows\\system32\\winebrowser.exe", 0},
        {L"c:\\program files\\microsoft\\edge\\msedge.exe", 0},
        {L"c:\\mozilla firefox\\launcher.exe", 0},
        {L"c:\\firefox.com", 0},
        {L"c:\\firefox .exe", 0},
        {L"", 0},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(static_cast<DWORD>(BrowserOf(row.path)), row.expected) << CStringEx(row.path).c_str();
    }
}

TEST(BrowserTypeTest, HasTheseNumbers)
{
    EXPECT_EQ(static_cast<DWORD>(BROWSER_OTHER), 0u);
    EXPECT_EQ(static_cast<DWORD>(BROWSER_IE), 1u);
    EXPECT_EQ(static_cast<DWORD>(BROWSER_FIREFOX), 2u);
    EXPECT_EQ(static_cast<DWORD>(BROWSER_CHROME), 3u);
    EXPECT_EQ(static_cast<DWORD>(BROWSER_SAFARI), 4u);
}

}  // namespace
