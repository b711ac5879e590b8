// What the settings of the trace library may say, and where.
#include "tracelib/TraceSettings.h"

#include <gmock/gmock.h>

#include "support/TempFolder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr ULONGLONG kKilo = 1024;

TEST(TraceSettingsTest, IniTextSetsWhatItNames)
{
    TraceSettings settings;
    TakeIniText(
        "\xEF\xBB\xBF# a comment\r\n[trace]\r\n\r\n  file = C:\\tr\xC3\xA4"
        "ce.log \r\nlimit=64K\nkeep=1\n"
        "; another\ndebugger=1",
        settings);
    EXPECT_EQ(settings.strFile, L"C:\\tr\u00E4ce.log");
    EXPECT_EQ(settings.nLimit, 64 * kKilo);
    EXPECT_EQ(settings.nKeep, 1u);
    EXPECT_TRUE(settings.bDebugger);
    EXPECT_THAT(settings.complaints, IsEmpty());
}

TEST(TraceSettingsTest, WithoutSettingsThereIsNoFile)
{
    const TraceSettings settings;
    EXPECT_EQ(settings.strFile, L"");
    EXPECT_EQ(settings.nLimit, 10 * kKilo * kKilo);
    EXPECT_EQ(settings.nKeep, 3u);
    EXPECT_FALSE(settings.bDebugger);
}

TEST(TraceSettingsTest, WhatMakesNoSenseIsNamedAndLeftOut)
{
    TraceSettings settings;
    TakeIniText("file\nlimit=much\nfile=a\nkeep=100\nsize=1\ndebugger=yes\nlimit=\n", settings);
    EXPECT_THAT(
        settings.complaints,
        ElementsAre("qnztraceX64.ini: line 1 makes no sense", "qnztraceX64.ini: line 2 makes no sense",
                    "qnztraceX64.ini: line 4 makes no sense", "qnztraceX64.ini: line 5 makes no sense",
                    "qnztraceX64.ini: line 6 makes no sense", "qnztraceX64.ini: line 7 makes no sense"));
    EXPECT_EQ(settings.strFile, L"a");
    EXPECT_EQ(settings.nLimit, 10 * kKilo * kKilo);
    EXPECT_EQ(settings.nKeep, 3u);
    EXPECT_FALSE(settings.bDebugger);
}

struct SizeRow
{
    const wchar_t* text;
    bool bGood;
    ULONGLONG size;
};

TEST(TraceSettingsTest, ASwitchThatMakesNoSenseLeavesWhatWasSaidBefore)
{
    TraceSettings settings;
    TakeIniText("debugger=1\ndebugger=yes\n", settings);
    EXPECT_TRUE(settings.bDebugger);
    TakeIniText("debugger=0\n", settings);
    EXPECT_FALSE(settings.bDebugger);
}

TEST(TraceSettingsTest, SizesHaveUnits)
{
    constexpr SizeRow kRows[] = {
        {L"0", true, 0},
        {L"1", true, 1},
        {L"123456", true, 123456},
        {L"2K", true, 2 * kKilo},
        {L"3M", true, 3 * kKilo * kKilo},
        {L"4G", true, 4 * kKilo * kKilo * kKilo},
        {L"K", false, 7},
        {L"2k", false, 7},
        {L"-1", false, 7},
        {L"1.5M", false, 7},
        {L"1234567890123456", false, 7},
        {L"17179869183G", true, 17179869183 * kKilo * kKilo * kKilo},
        {L"17179869184G", false, 7},
    };
    for (const SizeRow& row : kRows)
    {
        TraceSettings settings;
        settings.nLimit = 7;
        EXPECT_EQ(TakeSetting("limit", row.text, settings), row.bGood) << row.text;
        EXPECT_EQ(settings.nLimit, row.size) << row.text;
    }
}

// The program itself stands for the library here.
class TraceSettingsPlaceTest : public testing::Test
{
protected:
    TraceSettingsPlaceTest() { Clear(); }
    ~TraceSettingsPlaceTest() override { Clear(); }

    static void Clear()
    {
        for (const wchar_t* pszName :
             {L"QNZTRACE_FILE", L"QNZTRACE_LIMIT", L"QNZTRACE_KEEP", L"QNZTRACE_DEBUGGER"})
        {
            SetEnvironmentVariableW(pszName, nullptr);
        }
    }

    static std::wstring Folder()
    {
        wchar_t szPath[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, szPath, MAX_PATH);
        const std::wstring path = szPath;
        return path.substr(0, path.find_last_of(L'\\') + 1);
    }

    static std::wstring FileFor(const wchar_t* pszValue)
    {
        SetEnvironmentVariableW(L"QNZTRACE_FILE", pszValue);
        return ReadTraceSettings(nullptr).strFile;
    }
};

TEST_F(TraceSettingsPlaceTest, EnvironmentNamesEachSetting)
{
    SetEnvironmentVariableW(L"QNZTRACE_FILE", L"C:\\a.log");
    SetEnvironmentVariableW(L"QNZTRACE_LIMIT", L"5K");
    SetEnvironmentVariableW(L"QNZTRACE_KEEP", L"0");
    SetEnvironmentVariableW(L"QNZTRACE_DEBUGGER", L"1");
    const TraceSettings settings = ReadTraceSettings(nullptr);
    EXPECT_EQ(settings.strFile, L"C:\\a.log");
    EXPECT_EQ(settings.nLimit, 5 * kKilo);
    EXPECT_EQ(settings.nKeep, 0u);
    EXPECT_TRUE(settings.bDebugger);
    EXPECT_THAT(settings.complaints, IsEmpty());
}

TEST_F(TraceSettingsPlaceTest, EnvironmentThatMakesNoSenseIsNamed)
{
    SetEnvironmentVariableW(L"QNZTRACE_KEEP", L"all");
    EXPECT_THAT(ReadTraceSettings(nullptr).complaints, ElementsAre("QNZTRACE_KEEP makes no sense"));
}

TEST_F(TraceSettingsPlaceTest, RelativeFilesBeginInTheLibrarysFolder)
{
    EXPECT_EQ(FileFor(L"t.log"), Folder() + L"t.log");
    EXPECT_EQ(FileFor(L"logs\\t.log"), Folder() + L"logs\\t.log");
    EXPECT_EQ(FileFor(L"\\\\server\\t.log"), L"\\\\server\\t.log");
    EXPECT_EQ(FileFor(L"/t.log"), L"/t.log");
    EXPECT_EQ(FileFor(L"Z:\\t.log"), L"Z:\\t.log");
    EXPECT_EQ(FileFor(nullptr), L"");
}

TEST_F(TraceSettingsPlaceTest, VariablesInTheFileNameAreReplaced)
{
    SetEnvironmentVariableW(L"KVHTTP_TEST_PLACE", L"C:\\place");
    EXPECT_EQ(FileFor(L"%KVHTTP_TEST_PLACE%\\t.log"), L"C:\\place\\t.log");
    SetEnvironmentVariableW(L"KVHTTP_TEST_PLACE", nullptr);
}

}  // namespace
