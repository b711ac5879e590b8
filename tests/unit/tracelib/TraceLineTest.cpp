// What becomes of a record on its way into a line.
#include "tracelib/TraceLine.h"

#include <gtest/gtest.h>

namespace
{

struct PieceRow
{
    const char* label;
    size_t length;
    const char* ending;
    bool bLast;
};

TEST(TraceLineTest, TellsTheLastPieceOfARecord)
{
    constexpr PieceRow kRows[] = {
        {"a short record", 20, ",\n", true},
        {"a short rest without an ending", 1, "\n", true},
        {"one byte short of a whole piece", 2046, "x", true},
        {"a whole piece in the middle", 2047, "x", false},
        {"a whole piece that ends like a line of the text", 2047, "x\n", false},
        {"a whole piece that ends the items", 2047, ",\n", true},
        {"a whole piece that ends a name", 2047, " \n", true},
        {"more than the module ever sends", 2048, "x", true},
    };
    for (const PieceRow& row : kRows)
    {
        const std::string ending = row.ending;
        const std::string piece = std::string(row.length - std::min(row.length, ending.size()), 'a') + ending;
        EXPECT_EQ(IsLastPiece(piece), row.bLast) << row.label;
    }
}

struct TextRow
{
    const char* label;
    const char* record;
    const char* text;
};

TEST(TraceLineTest, TextIsOneLineWhateverTheRecordHolds)
{
    constexpr TextRow kRows[] = {
        {"a text", " Http Send request,\n", "Http Send request,"},
        {"the entry of a function", "--> CHttpSession::OpenInternet(). \n",
         "--> CHttpSession::OpenInternet()."},
        {"a name with a line feed of its own", "--> CHttpRequest::OpenRequest\n \n",
         "--> CHttpRequest::OpenRequest"},
        {"an empty text", " ,\n", ","},
        {"an ending within the items", " Default Browser is IE.\n,\n", "Default Browser is IE.\u240A,"},
        {"two blanks in front: one is the text's", "  indented,\n", " indented,"},
        {"a forged line", " a\n2026-01-01T00:00:00.000000Z 8 1 1 forged,\n",
         "a\u240A2026-01-01T00:00:00.000000Z 8 1 1 forged,"},
        {"control characters", " \x01\r\t\x1B[31m\x7F,\n", "\u2401\u240D\u2409\u241B[31m\u2421,"},
        {"nothing", "\n", ""},
        {"backslashes stay", " C:\\new\\file,\n", "C:\\new\\file,"},
    };
    for (const TextRow& row : kRows)
    {
        EXPECT_EQ(LineText(row.record), row.text) << row.label;
    }
}

TEST(TraceLineTest, TextIsUtf8)
{
    const std::wstring text = L"\u00E4\u00DF";
    char szAnsi[16] = {};
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, szAnsi, sizeof(szAnsi), nullptr, nullptr);
    EXPECT_EQ(LineText(szAnsi), "\u00E4\u00DF");
}

TEST(TraceLineTest, LineBeginsWithTimeLevelProcessAndThread)
{
    SYSTEMTIME date = {};
    date.wYear = 2026;
    date.wMonth = 3;
    date.wDay = 9;
    date.wHour = 5;
    date.wMinute = 4;
    date.wSecond = 7;
    FILETIME time = {};
    SystemTimeToFileTime(&date, &time);
    const ULONGLONG ticks = (ULONGLONG{time.dwHighDateTime} << 32) + time.dwLowDateTime;
    EXPECT_EQ(MakeLine({ticks + 1234569, 8, 17, 4000000000}, "text"),
              "2026-03-09T05:04:07.123456Z 8 17 4000000000 text\n");
    EXPECT_EQ(MakeLine({ticks, 2, 1, 2}, ""), "2026-03-09T05:04:07.000000Z 2 1 2 \n");
}

TEST(TraceLineTest, TimeIsThatOfTheSystem)
{
    FILETIME time = {};
    GetSystemTimeAsFileTime(&time);
    const ULONGLONG now = (ULONGLONG{time.dwHighDateTime} << 32) + time.dwLowDateTime;
    constexpr ULONGLONG kSecond = 10000000;
    EXPECT_GT(TimeNow() + kSecond, now);
    EXPECT_LT(TimeNow(), now + 60 * kSecond);
}

}  // namespace
