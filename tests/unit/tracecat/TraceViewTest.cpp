// The lines that people see.
#include "tracecat/TraceView.h"

#include <gtest/gtest.h>

namespace
{

class TraceViewTest : public testing::Test
{
protected:
    // All that is shown of a small trace, without the line of the date.
    std::string Shown() const
    {
        CTraceView view(m_options);
        std::string shown;
        for (const char* const pszLine : {
                 "2026-01-02T03:04:05.000100Z 0 10 19 trace begins: C:\\host.exe",
                 "2026-01-02T03:04:05.000200Z 2 10 11 --> CHttpRequest::SendRequest",
                 "2026-01-02T03:04:05.000300Z 8 10 11 GetLastError,dwError=12029,",
                 "2026-01-02T03:04:05.000400Z 2 10 12 %61%3D%31,",
                 "2026-01-02T03:04:05.001700Z 2 10 11 <-- CHttpRequest::SendRequest",
                 "2026-01-02T03:04:05.001800Z 2 20 21 other process,",
             })
        {
            shown += view.Show(pszLine);
        }
        const size_t begin = shown.starts_with("==") ? shown.find('\n') + 1 : 0;
        return shown.substr(begin);
    }

    Options m_options;
};

constexpr char kBegins[] = "03:04:05.000100 10.19 0 | trace begins: C:\\host.exe\n";
constexpr char kEntry[] = "03:04:05.000200 10.11 2 | --> CHttpRequest::SendRequest\n";
constexpr char kError[] = "03:04:05.000300 10.11 8 |   GetLastError,dwError=12029,\n";
constexpr char kData[] = "03:04:05.000400 10.12 2 | %61%3D%31,\n";
constexpr char kExit[] = "03:04:05.001700 10.11 2 | <-- CHttpRequest::SendRequest  (1.500 ms)\n";
constexpr char kOther[] = "03:04:05.001800 20.21 2 | other process,\n";

std::string Join(std::initializer_list<const char*> lines)
{
    std::string text;
    for (const char* const pszLine : lines)
    {
        text += pszLine;
    }
    return text;
}

TEST_F(TraceViewTest, IndentsAndTellsDurations)
{
    EXPECT_EQ(Shown(), Join({kBegins, kEntry, kError, kData, kExit, kOther}));
}

TEST_F(TraceViewTest, FiltersByLevel)
{
    m_options.level = 8;
    EXPECT_EQ(Shown(), kError);
    m_options.level = 2;
    EXPECT_EQ(Shown(), Join({kEntry, kError, kData, kExit, kOther}));
}

TEST_F(TraceViewTest, FiltersByThread)
{
    m_options.threads = {12, 21};
    EXPECT_EQ(Shown(), Join({kData, kOther}));
}

TEST_F(TraceViewTest, FiltersByProcess)
{
    m_options.processes = {20};
    EXPECT_EQ(Shown(), kOther);
}

TEST_F(TraceViewTest, FiltersByFunctionWithWhatHappensInIt)
{
    m_options.strFunction = "sendrequest";
    EXPECT_EQ(Shown(), Join({kEntry, kError, kExit}));
}

TEST_F(TraceViewTest, FiltersByTextInCapitalsOrNot)
{
    m_options.strText = "DWERROR=";
    EXPECT_EQ(Shown(), kError);
}

TEST_F(TraceViewTest, FiltersAddUp)
{
    m_options.strFunction = "SendRequest";
    m_options.level = 8;
    m_options.strText = "nothing of that kind";
    EXPECT_EQ(Shown(), "");
}

TEST_F(TraceViewTest, DecodesOnlyWhenAsked)
{
    m_options.bDecode = true;
    m_options.threads = {12};
    EXPECT_EQ(Shown(), "03:04:05.000400 10.12 2 | a=1,\n");
    m_options.strText = "a=1";
    EXPECT_EQ(Shown(), "03:04:05.000400 10.12 2 | a=1,\n") << "what is shown is what is looked for";
}

TEST_F(TraceViewTest, NamesEachDayOnce)
{
    CTraceView view(m_options);
    EXPECT_EQ(view.Show("2026-01-02T03:04:05.000100Z 2 1 1 a"),
              "== 2026-01-02, UTC: time, process.thread, level, record\n03:04:05.000100 1.1 2 | a\n");
    EXPECT_EQ(view.Show("2026-01-02T03:04:05.000200Z 2 1 1 b"), "03:04:05.000200 1.1 2 | b\n");
    EXPECT_TRUE(view.Show("2026-01-03T03:04:05.000200Z 2 1 1 c").starts_with("== 2026-01-03"));
}

TEST_F(TraceViewTest, ShowsOtherLinesAsTheyStand)
{
    CTraceView view(m_options);
    EXPECT_EQ(view.Show("what is this"), "what is this\n");
}

}  // namespace
