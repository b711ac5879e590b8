// Which records are one exchange's.
#include "tracecat/Exchanges.h"

#include <gmock/gmock.h>

#include "unit/tracecat/SampleTrace.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class ExchangesTest : public testing::Test
{
protected:
    void Take(unsigned long thread, const std::string& text, unsigned long level = 2)
    {
        m_exchanges.Take(Entry(++m_now, thread, text, level));
    }

    void TakeStatus(unsigned long thread, int status)
    {
        Take(thread, "--> CHttpRequest::UpdateRequestStatus");
        Take(thread, "emStatus=" + std::to_string(status) + ",");
        Take(thread, "<-- CHttpRequest::UpdateRequestStatus");
    }

    void Post(unsigned long thread = kHost)
    {
        Take(thread, "--> CHttpSession::OpenInternet().");
        Take(thread, "<-- CHttpSession::OpenInternet().");
        Take(thread, "Http Send request,");
    }

    const Exchange& Only() const
    {
        EXPECT_THAT(m_exchanges.All(), SizeIs(1));
        return m_exchanges.All().front();
    }

    static std::vector<std::string> Texts(const Exchange& exchange, bool bWorker)
    {
        std::vector<std::string> texts;
        for (const Step& step : exchange.steps)
        {
            if (step.bWorker == bWorker)
            {
                texts.push_back(step.strText);
            }
        }
        return texts;
    }

    std::int64_t m_now = 0;
    CExchanges m_exchanges;
};

TEST_F(ExchangesTest, HasTheRecordsOfBothThreads)
{
    Take(kHost, "before,");
    Post();
    TakeStatus(kHost, 5);
    Take(kHost, "no more of it,");
    TakeStatus(kWorker, 5);
    Take(kWorker, "--> CHttpRequest::ReadInternetDataToBuffer");
    TakeStatus(kWorker, 9);
    Take(kWorker, "<-- CHttpRequest::ReadInternetDataToBuffer");
    Take(kWorker, "of another,");
    const Exchange& exchange = Only();
    EXPECT_THAT(Texts(exchange, false), ElementsAre("CHttpSession::OpenInternet().", "Http Send request,",
                                                    "CHttpRequest::UpdateRequestStatus", "emStatus=5,"));
    EXPECT_THAT(Texts(exchange, true), ElementsAre("CHttpRequest::UpdateRequestStatus", "emStatus=5,",
                                                   "CHttpRequest::ReadInternetDataToBuffer",
                                                   "CHttpRequest::UpdateRequestStatus", "emStatus=9,"));
    EXPECT_EQ(exchange.hostThread, kHost);
    EXPECT_EQ(exchange.workerThread, kWorker);
    EXPECT_EQ(exchange.nStatus, 9);
    EXPECT_TRUE(exchange.bOver);
    EXPECT_EQ(exchange.Begin(), 2);
    EXPECT_EQ(exchange.End(), m_now - 1);
}

TEST_F(ExchangesTest, CallsHaveTheirDurationAndDepth)
{
    Post();
    TakeStatus(kWorker, 5);
    Take(kWorker, "--> CHttpRequest::SendRequest");
    Take(kWorker, "GetLastError,dwError=12029,", 8);
    Take(kWorker, "<-- CHttpRequest::SendRequest");
    const std::vector<Step>& steps = Only().steps;
    ASSERT_THAT(steps, SizeIs(6));
    EXPECT_TRUE(steps[4].bCall);
    EXPECT_EQ(steps[4].nTook, 2);
    EXPECT_EQ(steps[4].depth, 0u);
    EXPECT_FALSE(steps[5].bCall);
    EXPECT_EQ(steps[5].depth, 1u);
    EXPECT_EQ(steps[5].level, 8u);
    EXPECT_EQ(steps[5].nTook, std::nullopt);
}

TEST_F(ExchangesTest, OneThatGoesOnIsNotOver)
{
    Post();
    TakeStatus(kHost, 5);
    TakeStatus(kWorker, 5);
    TakeStatus(kWorker, 6);
    EXPECT_FALSE(Only().bOver);
    EXPECT_EQ(Only().nStatus, 6);
}

TEST_F(ExchangesTest, OneWithoutAWorkerIsOverAtOnce)
{
    Post();
    TakeStatus(kHost, 2);
    EXPECT_TRUE(Only().bOver);
    EXPECT_EQ(Only().workerThread, std::nullopt);
    EXPECT_EQ(Only().nStatus, 2);
}

TEST_F(ExchangesTest, WorkerThatIsQuickerThanTheHostIsFound)
{
    Post();
    TakeStatus(kWorker, 5);
    TakeStatus(kWorker, 9);
    TakeStatus(kHost, 5);
    EXPECT_EQ(Only().workerThread, kWorker);
    EXPECT_TRUE(Only().bOver);
    EXPECT_EQ(Only().nStatus, 5) << "the host's status was the last";
}

TEST_F(ExchangesTest, PollThatEndsItIsItsOwn)
{
    Post();
    TakeStatus(kHost, 5);
    TakeStatus(kWorker, 5);
    TakeStatus(kHost, 7);
    EXPECT_EQ(Only().nStatus, 7);
    EXPECT_FALSE(Only().bOver) << "the worker is still at it";
    TakeStatus(kWorker, 2);
    EXPECT_TRUE(Only().bOver);
    EXPECT_EQ(Only().nStatus, 2);
}

TEST_F(ExchangesTest, OneComesBehindTheOtherOnTheSameThreads)
{
    for (int count = 0; count < 2; ++count)
    {
        Post();
        TakeStatus(kHost, 5);
        TakeStatus(kWorker, 5);
        TakeStatus(kWorker, count == 0 ? 9 : 0);
    }
    ASSERT_THAT(m_exchanges.All(), SizeIs(2));
    EXPECT_EQ(m_exchanges.All()[0].nStatus, 9);
    EXPECT_EQ(m_exchanges.All()[1].nStatus, 0);
    EXPECT_EQ(m_exchanges.All()[0].steps.size(), m_exchanges.All()[1].steps.size());
}

TEST_F(ExchangesTest, TwoAtOnceGetTheirWorkersInTheirOrder)
{
    Post(21);
    TakeStatus(21, 5);
    Post(22);
    TakeStatus(22, 5);
    TakeStatus(31, 5);
    TakeStatus(32, 5);
    TakeStatus(32, 9);
    TakeStatus(31, 2);
    ASSERT_THAT(m_exchanges.All(), SizeIs(2));
    EXPECT_EQ(m_exchanges.All()[0].workerThread, 31u);
    EXPECT_EQ(m_exchanges.All()[0].nStatus, 2);
    EXPECT_EQ(m_exchanges.All()[1].workerThread, 32u);
    EXPECT_EQ(m_exchanges.All()[1].nStatus, 9);
}

TEST_F(ExchangesTest, NewProcessOfTheSameNumberHasNoneYet)
{
    Post();
    TakeStatus(kWorker, 5);
    m_exchanges.Take(Entry(++m_now, 99, "trace begins: C:\\host.exe", 0));
    Take(kHost, "of the new process,");
    Take(kWorker, "of the new process,");
    EXPECT_THAT(Only().steps, SizeIs(4));
}

TEST_F(ExchangesTest, RecordsAloneMakeNone)
{
    Take(kHost, "--> CHttpSession::DisConnect()");
    Take(kHost, "<-- CHttpSession::DisConnect()");
    TakeStatus(kHost, 7);
    TakeStatus(kWorker, 5);
    EXPECT_THAT(m_exchanges.All(), IsEmpty());
}

}  // namespace
