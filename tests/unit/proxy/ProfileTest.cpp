#include "proxy/Profile.h"

#include <gmock/gmock.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr char kHeader[] = "// Mozilla User Preferences\n";

struct TextRow
{
    const char* label;
    std::string text;
    // Preference and value; absent: the preference is not found.
    std::vector<std::pair<const char*, std::optional<std::string>>> expected;
};

std::optional<std::string> Lookup(const CProfile& profile, const char* name)
{
    const char* const value = profile.GetPref(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void ExpectRows(const std::vector<TextRow>& rows)
{
    for (const TextRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        CProfile profile;
        std::string text = row.text;
        profile.Parse(text);
        for (const auto& [name, value] : row.expected)
        {
            EXPECT_EQ(Lookup(profile, name), value) << name;
        }
    }
}

const auto kNone = std::nullopt;

TEST(ProfileTest, ReadsLines)
{
    ExpectRows({
        {"one line", "user_pref(\"a\", 1);\n", {{"a", "1"}}},
        {"two lines", "user_pref(\"a\", 1);\nuser_pref(\"b\", 2);\n", {{"a", "1"}, {"b", "2"}}},
        {"lines with carriage returns",
         "// h\r\n\r\nuser_pref(\"a\", 1);\r\nuser_pref(\"b\", \"c\");\r\n",
         {{"a", "1"}, {"b", "c"}}},
        {"empty lines between",
         "user_pref(\"a\", 1);\n\n\n\nuser_pref(\"b\", 2);\n",
         {{"a", "1"}, {"b", "2"}}},
        {"a foreign line between",
         "user_pref(\"a\", 1);\nx\nuser_pref(\"b\", 2);\n",
         {{"a", "1"}, {"b", "2"}}},
        {"a broken line between",
         "user_pref(\"a\", 1);\nuser_pref(\"x\nuser_pref(\"b\", 2);\n",
         {{"a", "1"}, {"x", kNone}, {"b", "2"}}},
        {"a line without its end mark",
         "user_pref(\"a\", 1\nuser_pref(\"b\", 2);\n",
         {{"a", ""}, {"b", "2"}}},
        {"no text", "", {{"", kNone}, {"a", kNone}}},
        {"only the header", kHeader, {{"a", kNone}}},
        {"only the header, without a line end", "// Mozilla User Preferences", {{"a", kNone}}},
    });
}

TEST(ProfileTest, LeavesOutALastLineWithoutALineEnd)
{
    ExpectRows({
        {"behind another", "user_pref(\"a\", 1);\nuser_pref(\"b\", 2);", {{"a", "1"}, {"b", kNone}}},
        {"the only one", "user_pref(\"a\", 1);", {{"a", kNone}}},
        {"ended by a carriage return", "// h\nuser_pref(\"a\", 1);\r", {{"a", kNone}}},
    });
}

TEST(ProfileTest, ReadsNothingOfATextThatBeginsWithAnEmptyLine)
{
    ExpectRows({
        {"line feed", "\nuser_pref(\"a\", 1);\n", {{"a", kNone}}},
        {"a carriage return is a line", "\r\nuser_pref(\"a\", 1);\n", {{"a", "1"}}},
        {"a zero byte", std::string("\0user_pref(\"a\", 1);\n", 20), {{"a", kNone}}},
    });
}

TEST(ProfileTest, SkipsTabsAndZeroBytesButNoBlanksBeforeALine)
{
    ExpectRows({
        {"a tab", "// h\n\tuser_pref(\"a\", 1);\n", {{"a", "1"}}},
        {"tabs behind empty lines", "// h\n\n\t\n\t\tuser_pref(\"a\", 1);\n", {{"a", "1"}}},
        {"a tab before the first line",
         "\tuser_pref(\"a\", 1);\nuser_pref(\"b\", 2);\n",
         {{"a", kNone}, {"b", "2"}}},
        {"two blanks", "// h\n  user_pref(\"a\", 1);\nuser_pref(\"b\", 2);\n", {{"a", kNone}, {"b", "2"}}},
        {"a tab and a blank", "// h\n\t user_pref(\"a\", 1);\n", {{"a", kNone}}},
        {"zero bytes", std::string("// h\n\0\0user_pref(\"a\", 1);\n", 26), {{"a", "1"}}},
        {"a zero byte within a line ends the reading",
         std::string("user_pref(\"a\", 1);\nx\0y\nuser_pref(\"b\", 2);\n", 42),
         {{"a", "1"}, {"b", kNone}}},
        {"only tabs and line feeds behind", "user_pref(\"a\", 1);\n\t\t\n\n\t", {{"a", "1"}}},
    });
}

TEST(ProfileTest, BlanksTheFirstCommentOnly)
{
    const std::string a = "user_pref(\"a\", 1);\n";
    const std::string b = "user_pref(\"b\", 2);\n";
    const std::string c = "user_pref(\"c\", 3);\n";
    ExpectRows({
        {"header style of older files", "# h\n\n/* Do not edit.\n * x\n */\n\n" + a, {{"a", "1"}}},
        {"preferences within", "// h\n/*\n" + a + "*/\n" + b, {{"a", kNone}, {"b", "2"}}},
        {"preferences within the second",
         "// h\n/*\n" + a + "*/\n" + b + "/*\n" + c + "*/\n",
         {{"a", kNone}, {"b", "2"}, {"c", "3"}}},
        {"on one line, the second with a preference", "// h\n/* x */\n/* y */\n" + a, {{"a", "1"}}},
        {"behind a preference", a + "/*\n" + b + "*/\n" + c, {{"a", "1"}, {"b", kNone}, {"c", "3"}}},
        {"at the first byte", "/* h */\n" + a, {{"a", kNone}}},
        {"at the second byte", "x/* h */\n" + a, {{"a", kNone}}},
        {"behind a line's text",
         "// h\n" + a + "user_pref(\"b\", 2); /* x */\n" + c,
         {{"a", "1"}, {"b", kNone}, {"c", kNone}}},
        {"behind a line end, a line right behind it", "// h\n/* x */" + a, {{"a", "1"}}},
        {"with shared star", "// h\n/*/\n" + a + "*/\n" + b, {{"a", "1"}, {"b", "2"}}},
        {"without an end", "// h\n/*\n" + a, {{"a", "1"}}},
        {"end before the start", "// h */\n" + a + "/*\n" + b, {{"a", "1"}, {"b", "2"}}},
        {"an end before the whole comment",
         "// h */\n" + a + "/*\n" + b + "*/\n" + c,
         {{"a", "1"}, {"b", kNone}, {"c", "3"}}},
    });
}

TEST(ProfileTest, TakesACommentsMarksInValuesForAComment)
{
    ExpectRows({
        {"only a start",
         "// h\nuser_pref(\"a\", \"/*x\");\nuser_pref(\"b\", 2);\n",
         {{"a", "/*x"}, {"b", "2"}}},
        {"only an end",
         "// h\nuser_pref(\"a\", \"x*/\");\nuser_pref(\"b\", 2);\n",
         {{"a", "x*/"}, {"b", "2"}}},
        // The blanked bytes end the text for the line that they stand in.
        {"a pattern of addresses",
         "// h\nuser_pref(\"a\", 1);\nuser_pref(\"b\", \"*://*/*\");\nuser_pref(\"c\", 3);\n",
         {{"a", "1"}, {"b", kNone}, {"c", kNone}}},
        {"start and end in two values",
         "// h\nuser_pref(\"a\", \"/*\");\nuser_pref(\"b\", \"*/\");\nuser_pref(\"c\", 3);\n",
         {{"a", kNone}, {"b", kNone}, {"c", kNone}}},
        {"behind a first comment",
         "// h\n/* x */\nuser_pref(\"a\", \"*://*/*\");\nuser_pref(\"b\", 2);\n",
         {{"a", "*://*/*"}, {"b", "2"}}},
    });
}

TEST(ProfileTest, ReadsValuesThatPeopleHave)
{
    std::string state = R"({\"placements\":{)";
    while (state.size() < 7000)
    {
        state += R"(\"nav-bar\":[\"back-button\",\"urlbar (x)\",\"C:\\\\a\\\\b\"],)";
    }
    ExpectRows({
        {"escaped structured text of several kilobytes",
         kHeader + ("user_pref(\"browser.uiCustomization.state\", \"" + state) +
             "\");\nuser_pref(\"network.proxy.type\", 1);\n",
         {{"browser.uiCustomization.state", state}, {"network.proxy.type", "1"}}},
        {"path",
         std::string(kHeader) + R"(user_pref("browser.download.dir", "C:\\Users\\Anna (x)\\Downloads");)" +
             "\nuser_pref(\"network.proxy.type\", 1);\n",
         {{"browser.download.dir", R"(C:\\Users\\Anna (x)\\Downloads)"}, {"network.proxy.type", "1"}}},
        {"the end mark within a value",
         std::string(kHeader) + R"(user_pref("script", "f(1);g(2);");)" +
             "\nuser_pref(\"network.proxy.type\", 1);\n",
         {{"script", "f(1"}, {"network.proxy.type", "1"}}},
    });
}

TEST(ProfileTest, FindsTheFirstEntryOfAName)
{
    ExpectRows({
        {"twice", "user_pref(\"a\", 1);\nuser_pref(\"a\", 2);\n", {{"a", "1"}}},
        {"twice in another case", "user_pref(\"A\", 1);\nuser_pref(\"a\", 2);\n", {{"a", "1"}}},
        {"first without a value", "user_pref(\"a\", );\nuser_pref(\"a\", 2);\n", {{"a", ""}}},
    });
}

TEST(ProfileTest, ComparesNamesInFullLengthWithoutRegardToCase)
{
    ExpectRows({
        {"lookups of one name",
         "user_pref(\"network.Proxy.type\", 1);\n",
         {{"network.proxy.type", "1"},
          {"NETWORK.PROXY.TYPE", "1"},
          {"network.Proxy.type", "1"},
          {"network.proxy.typ", kNone},
          {"network.proxy.type2", kNone},
          {"network.proxy.typE ", kNone},
          {"", kNone}}},
        {"one name that begins another",
         "user_pref(\"network.proxy.http_port\", 80);\nuser_pref(\"network.proxy.http\", \"p\");\n",
         {{"network.proxy.http", "p"}, {"network.proxy.http_port", "80"}}},
        {"an empty name", "user_pref(\" \"x\", 1);\n", {{"", "x\", 1"}}},
    });
}

TEST(ProfileTest, ASecondTextStandsBehindTheFirst)
{
    CProfile profile;
    std::string first = "user_pref(\"a\", 1);\n";
    std::string second = "user_pref(\"a\", 2);\nuser_pref(\"b\", 3);\n";
    profile.Parse(first);
    profile.Parse(second);
    EXPECT_EQ(Lookup(profile, "a"), "1");
    EXPECT_EQ(Lookup(profile, "b"), "3");
}

// Random bytes, mixed with pieces that mean something to the reader. What stands before them is read.
TEST(ProfileTest, SurvivesRandomBytes)
{
    const std::vector<std::string> pieces = {
        "user_pref(",         "\"", "\", ", ");", "\n", "/*", "*/", "\r\n", "\t", " ",
        std::string(1, '\0'), ",",  "("};
    for (unsigned seed = 1; seed <= 200; ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        std::string noise;
        while (noise.size() < 4000)
        {
            const size_t choice = random() % (2 * pieces.size());
            noise +=
                choice < pieces.size() ? pieces[choice] : std::string(1, static_cast<char>(random() % 256));
        }
        std::string text = "user_pref(\"kept\", \"as it is\");\n" + noise;
        CProfile profile;
        profile.Parse(text);
        EXPECT_EQ(Lookup(profile, "kept"), "as it is");
        EXPECT_EQ(Lookup(profile, "KEPT"), "as it is");

        CProfile noisy;
        noisy.Parse(noise);
        EXPECT_EQ(Lookup(noisy, "network.proxy.type"), std::nullopt);
    }
}

}  // namespace
