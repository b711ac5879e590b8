// What the viewer reads from a line, and how it shows durations and encoded values.
#include "tracecat/TraceEntry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tracelib/TraceLine.h"

namespace
{

TEST(TraceEntryTest, ReadsWhatTheLibraryWrites)
{
    constexpr ULONGLONG kTime = 134100000000000000;
    const std::string line = MakeLine({kTime, 8, 4711, 4000000000}, "a \u00E4 text, with=items,");
    const std::optional<TraceEntry> entry = ParseEntry(std::string_view(line).substr(0, line.size() - 1));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->level, 8u);
    EXPECT_EQ(entry->process, 4711u);
    EXPECT_EQ(entry->thread, 4000000000u);
    EXPECT_EQ(entry->strText, "a \u00E4 text, with=items,");
    EXPECT_EQ(entry->strDate + "T" + entry->strTime + "Z", line.substr(0, 27));
}

std::int64_t TimeOf(const std::string& time)
{
    const std::optional<TraceEntry> entry = ParseEntry(time + "Z 2 1 1 x");
    EXPECT_TRUE(entry) << time;
    return entry ? entry->nMicroseconds : 0;
}

TEST(TraceEntryTest, TimesCountAcrossMonthsAndYears)
{
    constexpr std::int64_t kDay = std::int64_t{86400} * 1000000;
    EXPECT_EQ(TimeOf("2026-03-09T05:04:07.123457") - TimeOf("2026-03-09T05:04:07.123456"), 1);
    EXPECT_EQ(TimeOf("2026-03-09T05:04:08.000000") - TimeOf("2026-03-09T05:03:07.900000"), 60100000);
    EXPECT_EQ(TimeOf("2026-03-09T01:00:00.000000") - TimeOf("2026-03-08T23:00:00.000000"), kDay / 12);
    EXPECT_EQ(TimeOf("2026-03-01T00:00:00.000000") - TimeOf("2026-02-28T00:00:00.000000"), kDay);
    EXPECT_EQ(TimeOf("2028-03-01T00:00:00.000000") - TimeOf("2028-02-28T00:00:00.000000"), 2 * kDay);
    EXPECT_EQ(TimeOf("2027-01-01T00:00:00.000000") - TimeOf("2026-12-31T00:00:00.000000"), kDay);
    EXPECT_EQ(TimeOf("2027-01-01T00:00:00.000000") - TimeOf("2026-01-01T00:00:00.000000"), 365 * kDay);
}

TEST(TraceEntryTest, TextMayBeEmpty)
{
    const std::optional<TraceEntry> entry = ParseEntry("2026-03-09T05:04:07.123457Z 2 1 1 ");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->strText, "");
}

TEST(TraceEntryTest, OtherLinesAreNone)
{
    for (const char* const pszLine :
         {"", "text", "2026-03-09T05:04:07.123457Z", "2026-03-09T05:04:07.123457Z 2 1 1",
          "2026-03-09T05:04:07.123457Z 2 1", "2026-03-09T05:04:07.123457Z x 1 1 text",
          "2026-03-09T05:04:07.123457Z 2 -1 1 text", "2026-03-09T05:04:07.12345Z 2 1 1 text",
          "2026-03-09T05:04:07.123457  2 1 1 text", "26-03-09T05:04:07.123457Z 2 1 1 text",
          "2026-03-09 05:04:07.123457Z 2 1 1 text", "2026-03-09T05:04:07.123457Z 2  1 1 text"})
    {
        EXPECT_FALSE(ParseEntry(pszLine)) << pszLine;
    }
}

TEST(TraceEntryTest, DurationsAreInMillisecondsBelowASecond)
{
    EXPECT_EQ(FormatDuration(0), "0.000 ms");
    EXPECT_EQ(FormatDuration(7), "0.007 ms");
    EXPECT_EQ(FormatDuration(999999), "999.999 ms");
    EXPECT_EQ(FormatDuration(1000000), "1.000 s");
    EXPECT_EQ(FormatDuration(61500000), "61.500 s");
}

// No record, whatever a server or a user has put into it, makes more than one line, or one that is read
// otherwise.
TEST(TraceEntryTest, AnyRecordIsALineThatIsReadBack)
{
    const auto steers = [](char byte) { return static_cast<unsigned char>(byte) < 0x20; };
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round)
    {
        std::string record(random() % 60, ' ');
        for (char& byte : record)
        {
            constexpr std::string_view kAlphabet = "%%%0A9B c2:-Z\n\r\x1B\x7F\xC2\x9B\xE4\x01";
            byte = kAlphabet[random() % kAlphabet.size()];
        }
        const std::string text = LineText(record);
        std::string line = MakeLine({random(), 2, random(), random()}, text);
        ASSERT_EQ(line.back(), '\n');
        line.pop_back();
        ASSERT_TRUE(std::none_of(line.begin(), line.end(), steers)) << round;
        const std::optional<TraceEntry> entry = ParseEntry(line);
        ASSERT_TRUE(entry) << line;
        ASSERT_EQ(entry->strText, text);
        const std::string decoded = DecodePercent(text);
        ASSERT_TRUE(std::none_of(decoded.begin(), decoded.end(), steers)) << round;
        line.resize(random() % (line.size() + 1));
        static_cast<void>(ParseEntry(line));
    }
}

struct PercentRow
{
    const char* label;
    const char* text;
    const char* decoded;
};

TEST(TraceEntryTest, DecodesPercentEncodedValues)
{
    constexpr PercentRow kRows[] = {
        {"a whole value", "%61%3D%31,", "a=1,"},
        {"UTF-8", "%C3%A4", "\u00E4"},
        {"lower case", "%c3%a4", "\u00E4"},
        {"no digits behind it", "100% of %zz and %4", "100% of %zz and %4"},
        {"digits at the end", "x%41", "xA"},
        {"a line feed stays one line", "a%0Ab%1B%7F", "a\u240Ab\u241B\u2421"},
        {"the second row of control characters", "%C2%9B31m", "\uFFFD31m"},
        {"a letter behind that row", "%C2%A0%C3%9B", "\u00A0\u00DB"},
        {"decoded once only", "%2541", "%41"},
        {"nothing to decode", "text", "text"},
    };
    for (const PercentRow& row : kRows)
    {
        EXPECT_EQ(DecodePercent(row.text), row.decoded) << row.label;
    }
}

TEST(TraceEntryTest, ShortenedTextsEndInDotsAndCutNoCharacter)
{
    EXPECT_EQ(Shortened("12345678", 8), "12345678");
    EXPECT_EQ(Shortened("123456789", 8), "12345...");
    EXPECT_EQ(Shortened("1234\u00E4678", 8), "1234...");
}

}  // namespace
