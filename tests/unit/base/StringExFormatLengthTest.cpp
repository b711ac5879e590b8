#include <gtest/gtest.h>

#include <climits>

#include "base/StringEx.h"

namespace
{

int Estimate(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = CStringEx::GetFormatLength(format, args);
    va_end(args);
    return length;
}

struct Row
{
    const wchar_t* format;
    int estimate;
    int expected;
};

void Check(const Row& row)
{
    EXPECT_EQ(row.estimate, row.expected) << "format \"" << testing::PrintToString(row.format) << '"';
}

constexpr const wchar_t* kNull = nullptr;
constexpr const char* kNarrowNull = nullptr;

TEST(StringExFormatLengthTest, CountsPlainCharactersAndFourMore)
{
    const Row rows[] = {
        {L"", Estimate(L""), 4},         {L"abc", Estimate(L"abc"), 3 + 4},
        {L"%%", Estimate(L"%%"), 1 + 4}, {L"a%%b%%", Estimate(L"a%%b%%"), 4 + 4},
        {L"%", Estimate(L"%"), 4},       {L"ab%", Estimate(L"ab%"), 2 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, MeasuresTexts)
{
    const Row rows[] = {
        {L"%s", Estimate(L"%s", L"abcdef"), 6 + 4},
        {L"%s empty", Estimate(L"%s", L""), 1 + 4},
        {L"%s null", Estimate(L"%s", kNull), 6 + 4},
        {L"%S", Estimate(L"%S", "abcdef"), 6 + 4},
        {L"%S empty", Estimate(L"%S", ""), 1 + 4},
        {L"%S null", Estimate(L"%S", kNarrowNull), 6 + 4},
        {L"%hs", Estimate(L"%hs", "abc"), 3 + 4},
        {L"%hs empty", Estimate(L"%hs", ""), 1 + 4},
        {L"%hs null", Estimate(L"%hs", kNarrowNull), 6 + 4},
        {L"%hS", Estimate(L"%hS", "abc"), 3 + 4},
        {L"%ls", Estimate(L"%ls", L"abc"), 3 + 4},
        {L"%ls empty", Estimate(L"%ls", L""), 1 + 4},
        {L"%ls null", Estimate(L"%ls", kNull), 6 + 4},
        {L"%lS", Estimate(L"%lS", L"abc"), 3 + 4},
        {L"%lS null", Estimate(L"%lS", kNull), 6 + 4},
        {L"%Fs", Estimate(L"%Fs", L"abc"), 3 + 4},
        {L"%NS", Estimate(L"%NS", "abc"), 3 + 4},
        {L"%Ls", Estimate(L"%Ls", L"abc"), 3 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, CapsTextsByPrecisionAndRaisesThemByWidth)
{
    const Row rows[] = {
        {L"%.2s", Estimate(L"%.2s", L"abcdef"), 2 + 4},
        {L"%.9s", Estimate(L"%.9s", L"abcdef"), 6 + 4},
        {L"%.0s", Estimate(L"%.0s", L"abcdef"), 6 + 4},
        {L"%.s", Estimate(L"%.s", L"abcdef"), 6 + 4},
        {L"%10s", Estimate(L"%10s", L"abc"), 10 + 4},
        {L"%2s", Estimate(L"%2s", L"abc"), 3 + 4},
        {L"%10.2s", Estimate(L"%10.2s", L"abcdef"), 10 + 4},
        {L"%3.5s", Estimate(L"%3.5s", L"abcdef"), 5 + 4},
        {L"%.2S", Estimate(L"%.2S", "abcdef"), 2 + 4},
        {L"%10S", Estimate(L"%10S", "abc"), 10 + 4},
        {L"%.2s null", Estimate(L"%.2s", kNull), 2 + 4},
        {L"%-10s", Estimate(L"%-10s", L"abc"), 10 + 4},
        {L"%*s", Estimate(L"%*s", 9, L"abc"), 9 + 4},
        {L"%.*s", Estimate(L"%.*s", 2, L"abcdef"), 2 + 4},
        {L"%*.*s", Estimate(L"%*.*s", 3, 2, L"abcdef"), 3 + 4},
        {L"%#s", Estimate(L"%#s", L"abc"), 2 + 3 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, TakesTwoForACharacter)
{
    const Row rows[] = {
        {L"%c", Estimate(L"%c", 'x'), 2 + 4},   {L"%C", Estimate(L"%C", 'x'), 2 + 4},
        {L"%hc", Estimate(L"%hc", 'x'), 2 + 4}, {L"%lc", Estimate(L"%lc", 'x'), 2 + 4},
        {L"%hC", Estimate(L"%hC", 'x'), 2 + 4}, {L"%lC", Estimate(L"%lC", 'x'), 2 + 4},
        {L"%5c", Estimate(L"%5c", 'x'), 5 + 4}, {L"%.1c", Estimate(L"%.1c", 'x'), 1 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, TakesAtLeast32ForAnInteger)
{
    const Row rows[] = {
        {L"%d", Estimate(L"%d", 5), 32 + 4},
        {L"%i", Estimate(L"%i", 5), 32 + 4},
        {L"%u", Estimate(L"%u", 5u), 32 + 4},
        {L"%x", Estimate(L"%x", 5u), 32 + 4},
        {L"%X", Estimate(L"%X", 5u), 32 + 4},
        {L"%o", Estimate(L"%o", 5u), 32 + 4},
        {L"%hd", Estimate(L"%hd", 5), 32 + 4},
        {L"%ld", Estimate(L"%ld", 5L), 32 + 4},
        {L"%I64d", Estimate(L"%I64d", 5LL), 32 + 4},
        {L"%p", Estimate(L"%p", kNull), 32 + 4},
        {L"%#x", Estimate(L"%#x", 5u), 2 + 32 + 4},
        {L"%##x", Estimate(L"%##x", 5u), 4 + 32 + 4},
        {L"%32d", Estimate(L"%32d", 5), 32 + 4},
        {L"%33d", Estimate(L"%33d", 5), 33 + 4},
        {L"%020d", Estimate(L"%020d", 5), 32 + 4},
        {L"%040d", Estimate(L"%040d", 5), 40 + 4},
        {L"%-+ 040d", Estimate(L"%-+ 040d", 5), 40 + 4},
        {L"%.40d", Estimate(L"%.40d", 5), 40 + 4},
        {L"%30.20d", Estimate(L"%30.20d", 5), 50 + 4},
        {L"%*.*d", Estimate(L"%*.*d", 30, 20, 5), 50 + 4},
        {L"%40p", Estimate(L"%40p", kNull), 40 + 4},
        {L"%30.20p", Estimate(L"%30.20p", kNull), 50 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, TakesAtLeast128ForAFraction)
{
    const Row rows[] = {
        {L"%e", Estimate(L"%e", 1.0), 128 + 4},
        {L"%g", Estimate(L"%g", 1.0), 128 + 4},
        {L"%G", Estimate(L"%G", 1.0), 128 + 4},
        {L"%128e", Estimate(L"%128e", 1.0), 128 + 4},
        {L"%100.29e", Estimate(L"%100.29e", 1.0), 129 + 4},
        {L"%100.100g", Estimate(L"%100.100g", 1.0), 200 + 4},
        {L"%f", Estimate(L"%f", 1.0), 312 + 4},
        {L"%.10f", Estimate(L"%.10f", 1.0), 322 + 4},
        {L"%500.10f", Estimate(L"%500.10f", 1.0), 322 + 4},
        {L"%.*f", Estimate(L"%.*f", -200, 1.0), 128 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, TakesNothingForOtherConversions)
{
    const Row rows[] = {
        {L"%n", Estimate(L"%n", kNull), 4},
        {L"%y", Estimate(L"%y"), 4},
        {L"%40y", Estimate(L"%40y"), 4},
        {L"%E", Estimate(L"%E", 1.0), 4},
        {L"%A", Estimate(L"%A", 1.0), 4},
        {L"%a", Estimate(L"%a", 1.0), 4},
        {L"%#y", Estimate(L"%#y"), 2 + 4},
        // A width from the list ends the width: the digits that follow are the conversion.
        {L"%*5d", Estimate(L"%*5d", 7), 1 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

// A second one is the conversion, and counts nothing; what follows are plain characters.
TEST(StringExFormatLengthTest, TakesOneSizeModifierOnly)
{
    const Row rows[] = {
        {L"%lld", Estimate(L"%lld", 5LL), 1 + 4},     {L"%hhd", Estimate(L"%hhd", 5), 1 + 4},
        {L"%hls", Estimate(L"%hls", L"abc"), 1 + 4},  {L"%LLf", Estimate(L"%LLf", 1.0), 1 + 4},
        {L"%lI64d", Estimate(L"%lI64d", 5LL), 3 + 4}, {L"%I64ld", Estimate(L"%I64ld", 5LL), 1 + 4},
        {L"%I32d", Estimate(L"%I32d", 5), 3 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

// Signs before a width are flags. One behind the point is the conversion, and counts nothing; what follows
// are plain characters.
TEST(StringExFormatLengthTest, TakesSignsInWidthAndPrecision)
{
    const Row rows[] = {
        {L"%+40d", Estimate(L"%+40d", 5), 40 + 4},
        {L"% 40d", Estimate(L"% 40d", 5), 40 + 4},
        {L"%--40d", Estimate(L"%--40d", 5), 40 + 4},
        {L"%.+40d", Estimate(L"%.+40d", 5), 3 + 4},
        {L"%.-40d", Estimate(L"%.-40d", 5), 3 + 4},
        {L"%40.-1d", Estimate(L"%40.-1d", 5), 2 + 4},
        {L"%.+2s", Estimate(L"%.+2s", L"abc"), 2 + 4},
        {L"%*d below zero", Estimate(L"%*d", -40, 5), 32 + 4},
        {L"%*s below zero", Estimate(L"%*s", -40, L"abc"), 3 + 4},
        {L"%*.*d below zero", Estimate(L"%*.*d", 60, -20, 5), 40 + 4},
        {L"%.*s below zero", Estimate(L"%.*s", -1, L"abc"), 0 + 4},
        {L"%*.*s below zero", Estimate(L"%*.*s", 2, -1, L"abc"), 2 + 4},
        {L"%*.*s both below zero", Estimate(L"%*.*s", -2, -1, L"abc"), -1 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

// Each conversion is followed by a text of 50: it is measured right only when the list is still aligned.
TEST(StringExFormatLengthTest, TakesOneArgumentForEachConversion)
{
    constexpr wchar_t kText[] = L"01234567890123456789012345678901234567890123456789";
    const Row rows[] = {
        {L"%c%s", Estimate(L"%c%s", 'x', kText), 2 + 50 + 4},
        {L"%s%s", Estimate(L"%s%s", L"ab", kText), 2 + 50 + 4},
        {L"%S%s", Estimate(L"%S%s", "ab", kText), 2 + 50 + 4},
        {L"%d%s", Estimate(L"%d%s", 1, kText), 32 + 50 + 4},
        {L"%I64u%s", Estimate(L"%I64u%s", 1ULL, kText), 32 + 50 + 4},
        {L"%e%s", Estimate(L"%e%s", 1.0, kText), 128 + 50 + 4},
        {L"%f%s", Estimate(L"%f%s", 1.0, kText), 312 + 50 + 4},
        {L"%p%s", Estimate(L"%p%s", kNull, kText), 32 + 50 + 4},
        {L"%n%s", Estimate(L"%n%s", kNull, kText), 50 + 4},
        {L"%y%s", Estimate(L"%y%s", kText), 50 + 4},
        {L"%%%s", Estimate(L"%%%s", kText), 1 + 50 + 4},
        {L"%*.*d%s", Estimate(L"%*.*d%s", 1, 2, 3, kText), 32 + 50 + 4},
        {L"%Lf%s", Estimate(L"%Lf%s", 1.0, kText), 312 + 50 + 4},
    };
    for (const Row& row : rows)
    {
        Check(row);
    }
}

TEST(StringExFormatLengthTest, LeavesTheListAsItWas)
{
    const auto pfnTwice = [](const wchar_t* format, ...)
    {
        va_list args;
        va_start(args, format);
        const int first = CStringEx::GetFormatLength(format, args);
        const int second = CStringEx::GetFormatLength(format, args);
        va_end(args);
        return testing::AssertionResult(first == second) << first << " and then " << second;
    };
    EXPECT_TRUE(pfnTwice(L"%s%s", L"a", L"bcd"));
}

TEST(StringExFormatLengthTest, GivesNoEstimateForAWidthThatRunsOver)
{
    EXPECT_LE(Estimate(L"%*d", INT_MAX, 5), 0);
    EXPECT_LE(Estimate(L"%*dx", INT_MAX, 5), 0) << "a plain character behind it";
    EXPECT_LE(Estimate(L"%*d%%", INT_MAX, 5), 0) << "a percent sign behind it";
    EXPECT_LE(Estimate(L"x%*d", INT_MAX, 5), 0) << "a plain character before it";
    EXPECT_LE(Estimate(L"%#*d", INT_MAX, 5), 0) << "a flag that adds to it";
}

}  // namespace
