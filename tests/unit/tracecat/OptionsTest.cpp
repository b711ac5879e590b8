// The command line of the viewer.
#include "tracecat/Options.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

TEST(TraceCatOptionsTest, TakesEachOption)
{
    Options options;
    EXPECT_EQ(ReadOptions({"--follow", "--old", "--decode", "--level", "8", "--process", "1", "--process",
                           "2", "--thread", "3", "--function", "Open Request", "--text", "--x", "t.log"},
                          options),
              "");
    EXPECT_EQ(options.strFile, "t.log");
    EXPECT_TRUE(options.bFollow);
    EXPECT_TRUE(options.bOld);
    EXPECT_TRUE(options.bDecode);
    EXPECT_FALSE(options.bTimeLine);
    EXPECT_FALSE(options.bHelp);
    EXPECT_EQ(options.level, 8u);
    EXPECT_THAT(options.processes, ElementsAre(1, 2));
    EXPECT_THAT(options.threads, ElementsAre(3));
    EXPECT_EQ(options.strFunction, "Open Request");
    EXPECT_EQ(options.strText, "--x");
}

TEST(TraceCatOptionsTest, NothingIsOnByItself)
{
    Options options;
    EXPECT_EQ(ReadOptions({"t.log"}, options), "");
    EXPECT_FALSE(options.bFollow || options.bOld || options.bDecode || options.bTimeLine || options.level);
}

TEST(TraceCatOptionsTest, TimeLineMayNameItsExchange)
{
    Options last;
    EXPECT_EQ(ReadOptions({"t.log", "--timeline"}, last), "");
    EXPECT_TRUE(last.bTimeLine);
    EXPECT_EQ(last.nExchange, 0);
    Options third;
    EXPECT_EQ(ReadOptions({"--timeline=3", "t.log"}, third), "");
    EXPECT_TRUE(third.bTimeLine);
    EXPECT_EQ(third.nExchange, 3);
}

struct BadRow
{
    std::vector<std::string> arguments;
    const char* complaint;
};

TEST(TraceCatOptionsTest, RefusesWhatMakesNoSense)
{
    const BadRow rows[] = {
        {{}, "which file?"},
        {{"--follow"}, "which file?"},
        {{"a", "b"}, "one file at a time"},
        {{"a", "--nonsense"}, "--nonsense makes no sense"},
        {{"--nonsense", "a"}, "--nonsense makes no sense"},
        {{"a", "--level"}, "--level makes no sense"},
        {{"a", "--level", "high"}, "--level makes no sense"},
        {{"a", "--thread", "1x"}, "--thread makes no sense"},
        {{"a", "--process", "-1"}, "--process makes no sense"},
        {{"a", "--timeline=0"}, "--timeline=0 makes no sense"},
        {{"a", "--timeline=x"}, "--timeline=x makes no sense"},
        {{"a", "--follow", "--timeline"}, "not together"},
    };
    for (const BadRow& row : rows)
    {
        Options options;
        EXPECT_THAT(ReadOptions(row.arguments, options), HasSubstr(row.complaint));
    }
}

TEST(TraceCatOptionsTest, HelpNeedsNoFileAndNamesEachOption)
{
    Options options;
    EXPECT_EQ(ReadOptions({"--help"}, options), "");
    EXPECT_TRUE(options.bHelp);
    for (const char* const pszOption : {"--follow", "--old", "--level", "--process", "--thread", "--function",
                                        "--text", "--timeline", "--decode"})
    {
        EXPECT_THAT(kUsage, HasSubstr(pszOption));
    }
}

}  // namespace
