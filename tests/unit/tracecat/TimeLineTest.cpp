// An exchange as a drawing.
#include "tracecat/TimeLine.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

namespace
{

std::deque<Exchange> OneExchange()
{
    Exchange exchange;
    exchange.strDate = "2026-01-02";
    exchange.strTime = "03:04:05.000006";
    exchange.process = 10;
    exchange.hostThread = 11;
    exchange.workerThread = 12;
    exchange.nStatus = 9;
    exchange.bOver = true;
    exchange.steps = {
        {5000, 100, true, false, 0, 2, "CHttpSession::OpenInternet()."},
        {5050, {}, false, false, 1, 2, "%61%3D%31,"},
        {5100, 900, true, true, 0, 2, "CHttpRequest::SendRequest"},
        {5550, {}, false, true, 1, 8, "GetLastError,dwError=12029,"},
    };
    return {exchange};
}

TEST(TimeLineTest, DrawsCallsAsBarsAndRecordsAsMarks)
{
    EXPECT_EQ(DrawTimeLine(OneExchange(), 0, false),
              "exchange 1 of 1: process 10, host's thread 11, worker 12\n"
              "began 2026-01-02 03:04:05.000006 UTC, took 1.000 ms, last status 9 REQ_STATUS_DONE\n"
              "\n"
              "      begins         took  thread\n"
              "    0.000 ms     0.100 ms  host   |====                                    | "
              "CHttpSession::OpenInternet().\n"
              "    0.050 ms               host   | .                                      |   %61%3D%31,\n"
              "    0.100 ms     0.900 ms  worker |   =====================================| "
              "CHttpRequest::SendRequest\n"
              "    0.550 ms               worker |                     !                  |   "
              "GetLastError,dwError=12029,\n");
}

TEST(TimeLineTest, DecodesOnlyWhenAsked)
{
    EXPECT_THAT(DrawTimeLine(OneExchange(), 0, true), HasSubstr("|   a=1,\n"));
    EXPECT_THAT(DrawTimeLine(OneExchange(), 0, false), Not(HasSubstr("a=1")));
}

TEST(TimeLineTest, ChoosesTheExchangeByItsNumber)
{
    std::deque<Exchange> exchanges = OneExchange();
    exchanges.push_back(exchanges[0]);
    exchanges[1].nStatus = 2;
    EXPECT_THAT(DrawTimeLine(exchanges, 1, false), HasSubstr("exchange 1 of 2"));
    EXPECT_THAT(DrawTimeLine(exchanges, 2, false), HasSubstr("2 REQ_STATUS_FAILED"));
    EXPECT_THAT(DrawTimeLine(exchanges, 0, false), HasSubstr("exchange 2 of 2"));
    EXPECT_EQ(DrawTimeLine(exchanges, 3, false), "");
    EXPECT_EQ(DrawTimeLine({}, 0, false), "");
}

TEST(TimeLineTest, ShowsWhatIsNotOver)
{
    std::deque<Exchange> exchanges = OneExchange();
    exchanges[0].bOver = false;
    exchanges[0].workerThread.reset();
    exchanges[0].nStatus.reset();
    exchanges[0].steps = {{5000, {}, true, false, 0, 2, "CHttpSession::OpenInternet()."}};
    const std::string drawing = DrawTimeLine(exchanges, 0, false);
    EXPECT_THAT(drawing, HasSubstr("no worker\n"));
    EXPECT_THAT(drawing, HasSubstr("not over after 0.000 ms\n"));
    EXPECT_THAT(drawing, HasSubstr("|>    "));
}

TEST(TimeLineTest, OrdersByTime)
{
    std::deque<Exchange> exchanges = OneExchange();
    std::swap(exchanges[0].steps[1], exchanges[0].steps[3]);
    EXPECT_EQ(DrawTimeLine(exchanges, 0, false), DrawTimeLine(OneExchange(), 0, false));
}

TEST(TimeLineTest, CutsLongTexts)
{
    std::deque<Exchange> exchanges = OneExchange();
    exchanges[0].steps[1].strText = std::string(1000, 'x');
    EXPECT_THAT(DrawTimeLine(exchanges, 0, false), HasSubstr(" " + std::string(77, 'x') + "...\n"));
}

}  // namespace
