#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "proxy/Profile.h"

namespace
{

struct LineRow
{
    const char* label;
    std::string line;
    const char* name;  // null: no entry
    std::string value;
};

// What stands behind the line's end would complete a line that is cut short.
constexpr char kNextLine[] = "\", 99);\nuser_pref(\"next\", \"next\");\n";

void ExpectRows(const std::vector<LineRow>& rows)
{
    for (const LineRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        const std::string text = row.line + "\n" + kNextLine;
        const std::unique_ptr<PrefEntry> entry =
            CProfile::ParseLine(text.c_str(), text.c_str() + row.line.size());
        if (row.name == nullptr)
        {
            EXPECT_EQ(entry, nullptr) << "name " << entry->name << " value " << entry->value;
            continue;
        }
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->name, row.name);
        EXPECT_EQ(entry->value, row.value);
    }
}

TEST(ProfileLineTest, TakesNameAndValue)
{
    ExpectRows({
        {"text", R"(user_pref("network.proxy.http", "10.0.0.1");)", "network.proxy.http", "10.0.0.1"},
        {"number", R"(user_pref("network.proxy.type", 1);)", "network.proxy.type", "1"},
        {"negative number", R"(user_pref("a", -1);)", "a", "-1"},
        {"truth value", R"(user_pref("a", true);)", "a", "true"},
        {"blank behind a number", R"(user_pref("a", 1 );)", "a", "1 "},
        {"empty text", R"(user_pref("a", "");)", "a", ""},
        {"blanks only", R"(user_pref("a", "  ");)", "a", "  "},
        {"blanks within the text", R"(user_pref("a", " b c ");)", "a", " b c "},
        {"no value", R"(user_pref("a", );)", "a", ""},
        {"name only", R"(user_pref("a");)", "a", ""},
        {"name in capitals", R"(user_pref("A.B", 1);)", "A.B", "1"},
        {"carriage return behind it", "user_pref(\"a\", \"b\");\r", "a", "b"},
        {"comment behind it", R"(user_pref("a", "b"); // "c");)", "a", "b"},
        {"several thousand characters", "user_pref(\"a\", \"" + std::string(6000, 'v') + "\");", "a",
         std::string(6000, 'v')},
    });
}

TEST(ProfileLineTest, AcceptsOnlyTheKeywordAtTheLinesFirstByte)
{
    ExpectRows({
        {"one blank before", R"( user_pref("a", 1);)", nullptr, ""},
        {"two blanks before", R"(  user_pref("a", 1);)", nullptr, ""},
        {"a tab before", "\tuser_pref(\"a\", 1);", nullptr, ""},
        {"a comment before", R"(// user_pref("a", 1);)", nullptr, ""},
        {"a hash before", R"(#user_pref("a", 1);)", nullptr, ""},
        {"capital initial", R"(User_pref("a", 1);)", nullptr, ""},
        {"all capitals", R"(USER_PREF("a", 1);)", nullptr, ""},
        {"another keyword", R"(pref("a", 1);)", nullptr, ""},
        {"a cut keyword", R"(user_pre)", nullptr, ""},
        {"the empty line", "", nullptr, ""},
        // Only the nine characters of the keyword are compared: the rest belongs to the name.
        {"a longer keyword", R"(user_prefs("a", 1);)", "s(", R"(a", 1)"},
    });
}

TEST(ProfileLineTest, SkipsBlanksAndBracketsBeforeTheName)
{
    ExpectRows({
        {"blanks around the bracket", R"(user_pref  (  "a", 1);)", "a", "1"},
        {"several brackets", R"(user_pref((("a", 1);)", "a", "1"},
        {"no bracket", R"(user_pref "a", 1);)", "a", "1"},
        {"several quotes", R"(user_pref("""a", 1);)", "a", "1"},
        {"blanks behind the quote", R"(user_pref("   a", 1);)", "a", "1"},
        {"no quote before the name", R"(user_pref(a", 1);)", "a", "1"},
        {"brackets apart", R"(user_pref( ( ("a", 1);)", "( (", R"(a", 1)"},
        {"quotes apart", R"(user_pref(" "a", 1);)", "", R"(a", 1)"},
        {"a tab behind the bracket", "user_pref(\t\"a\", 1);", "\t", R"(a", 1)"},
        {"an empty name", R"(user_pref("", 1);)", nullptr, ""},
    });
}

TEST(ProfileLineTest, HasNoEntryWithoutAWholeName)
{
    ExpectRows({
        {"keyword only", "user_pref", nullptr, ""},
        {"keyword and blanks", "user_pref   ", nullptr, ""},
        {"keyword and bracket", "user_pref(", nullptr, ""},
        {"bracket and blanks", "user_pref(  ", nullptr, ""},
        {"keyword, bracket and quote", "user_pref(\"", nullptr, ""},
        {"quote and blanks", "user_pref(\"  ", nullptr, ""},
        {"a name without its end", "user_pref(\"a", nullptr, ""},
        {"a name without its end, with blanks", "user_pref(\"a  ", nullptr, ""},
        {"no quote at all", "user_pref(a, 1);", nullptr, ""},
    });
}

// The value is looked for right behind the name's last character, even where that is not its quote.
TEST(ProfileLineTest, DropsBlanksBehindTheNameAndTakesTheValueFromBehindTheName)
{
    ExpectRows({
        {"one blank, a number", R"(user_pref("a ", 1);)", "a", ", 1"},
        {"one blank, a text", R"(user_pref("a ", "b");)", "a", ", \"b"},
        {"two blanks, a number", R"(user_pref("a  ", 1);)", "a", ", 1"},
        {"many blanks, a text", R"(user_pref("a     ", "b");)", "a", ", \"b"},
        {"blanks within", R"(user_pref("a b", 1);)", "a b", "1"},
        {"no value", R"(user_pref("a  ");)", "a", ""},
        {"name and line end there", R"(user_pref("a  ")", "a", ""},
    });
}

TEST(ProfileLineTest, SkipsBlanksAndCommasBeforeTheValue)
{
    ExpectRows({
        {"no blank", R"(user_pref("a",1);)", "a", "1"},
        {"no blank before a text", R"(user_pref("a","b");)", "a", "b"},
        {"many blanks", R"(user_pref("a"   ,    "b");)", "a", "b"},
        {"several commas", R"(user_pref("a",,,1);)", "a", "1"},
        {"no comma", R"(user_pref("a" "b");)", "a", "b"},
        {"commas apart", R"(user_pref("a", , 1);)", "a", ", 1"},
        {"a tab", "user_pref(\"a\",\t1);", "a", "\t1"},
        {"a tab before a text", "user_pref(\"a\",\t\"b\");", "a", "\t\"b"},
    });
}

TEST(ProfileLineTest, EndsTheValueAtTheFirstBracketWithSemicolon)
{
    ExpectRows({
        {"within a text", R"(user_pref("a", "x);y");)", "a", "x"},
        {"at the text's front", R"(user_pref("a", ");y");)", "a", ""},
        {"behind a quote in the text", R"(user_pref("a", "x");y");)", "a", "x"},
        {"brackets in the text", R"x(user_pref("a", "f(x) (y)");)x", "a", "f(x) (y)"},
        {"missing", R"(user_pref("a", "b")", "a", ""},
        {"bracket without semicolon", R"(user_pref("a", "b"))", "a", ""},
        {"bracket and semicolon apart", R"(user_pref("a", 1) ;)", "a", ""},
        {"bracket at the end of the line", R"(user_pref("a", 1))", "a", ""},
        {"in the name", R"(user_pref("a);b", 1);)", "a);b", "1"},
    });
}

TEST(ProfileLineTest, CutsOneQuoteAtEachEndOfTheValue)
{
    ExpectRows({
        {"quotes within", R"(user_pref("a", "b "c" d");)", "a", R"(b "c" d)"},
        {"escaped quotes stay as they are", R"(user_pref("a", "{\"b\":\"c\"}");)", "a", R"({\"b\":\"c\"})"},
        {"escaped quote at the end", R"(user_pref("a", "say \"b\"");)", "a", R"(say \"b\")"},
        {"three quotes", R"(user_pref("a", """);)", "a", "\""},
        {"four quotes", R"(user_pref("a", """");)", "a", "\"\""},
        {"one quote", R"(user_pref("a", ");)", "a", ""},
        {"no quote at the end", R"(user_pref("a", "b);)", "a", "b"},
        {"no quote at the front", R"(user_pref("a", b");)", "a", "b"},
        {"blank behind the closing quote", R"(user_pref("a", "b" );)", "a", "b\" "},
        {"backslashes stay doubled", R"(user_pref("a", "C:\\Users\\Anna\\x.pac");)", "a",
         R"(C:\\Users\\Anna\\x.pac)"},
        {"backslash at the end", R"(user_pref("a", "C:\\");)", "a", R"(C:\\)"},
        {"a comment's marks", R"(user_pref("a", "/* b */");)", "a", "/* b */"},
    });
}

TEST(ProfileLineTest, HasNoEntryForNull)
{
    const char text[] = "user_pref(\"a\", 1);\n";
    EXPECT_EQ(CProfile::ParseLine(nullptr, nullptr), nullptr);
    EXPECT_EQ(CProfile::ParseLine(nullptr, text), nullptr);
    EXPECT_EQ(CProfile::ParseLine(text, nullptr), nullptr);
}

TEST(ProfileLineTest, LooksAtNothingBehindAnEndWithinTheLine)
{
    const std::string text = R"(user_pref("a"   , "b");)";
    const char* const begin = text.c_str();
    for (size_t length = 0; length <= text.size(); ++length)
    {
        SCOPED_TRACE(length);
        const std::unique_ptr<PrefEntry> entry = CProfile::ParseLine(begin, begin + length);
        // Up to the name's closing quote there is no name.
        ASSERT_EQ(entry != nullptr, length > 12);
        if (entry != nullptr)
        {
            EXPECT_EQ(entry->name, "a");
            // What closes the value counts when it begins before the end.
            EXPECT_EQ(entry->value, length + 1 < text.size() ? "" : "b");
        }
    }
}

TEST(ProfileLineTest, EndsANameWhoseBlanksReachBeyondTheEnd)
{
    const std::string text = R"(user_pref("a   ", 1);)";
    const char* const begin = text.c_str();
    for (const size_t length : {12u, 13u, 14u, 15u})
    {
        SCOPED_TRACE(length);
        const std::unique_ptr<PrefEntry> entry = CProfile::ParseLine(begin, begin + length);
        ASSERT_EQ(entry != nullptr, length > 12);
        if (entry != nullptr)
        {
            EXPECT_EQ(entry->name, "a");
            EXPECT_EQ(entry->value, "");
        }
    }
}

}  // namespace
