// Servers that fall silent: the host's polls end the exchange.
#include <gmock/gmock.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/HttpRawHost.h"
#include "system/TempFile.h"

namespace
{

constexpr char kHalfAnswer[] = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this";

// Where Windows wakes a blocked read when its handle is closed, Wine lets it run into its time-out, which
// is the component's.
constexpr DWORD kReleaseBoundMs = 10000;

// The silence begins a while after the exchange, so that the clock of the polls, which counts from the
// opening, always runs out before the platform's, which counts from the last byte. The platform's would
// end the exchange differently: a read that has failed counts as the end of the body.
void SendHalfOfTheHeadAndStall(CLoopbackConnection& connection)
{
    connection.Pause(400);
    connection.Send("HTTP/1.1 200 OK\r\n");
    connection.Stall();
}

void SendHalfAndStall(CLoopbackConnection& connection)
{
    connection.Pause(400);
    connection.Send(kHalfAnswer);
    connection.Stall();
}

TEST(StallTest, SilenceInsideTheHeadTimesOut)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { SendHalfOfTheHeadAndStall(connection); });
    CHttpRawHost hosts[2];
    const ULONGLONG begin = GetTickCount64();
    for (unsigned long seconds = 1; CHttpRawHost & host : hosts)
    {
        host->SetTimeout(seconds++);
        host.Post(server.Url(L"/"));
    }
    for (unsigned long seconds = 1; CHttpRawHost & host : hosts)
    {
        EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT}) << seconds << " s";
        const ULONGLONG elapsed = GetTickCount64() - begin;
        EXPECT_GE(elapsed + 50, seconds * 1000);
        EXPECT_LT(elapsed, seconds * 1000 + 3000);
        EXPECT_EQ(host.TakeAnswer(), std::nullopt);
        ++seconds;
    }
    for (CHttpRawHost& host : hosts)
    {
        EXPECT_LT(host.Release(), kReleaseBoundMs);
    }
}

TEST(StallTest, SilenceInsideTheBodyTimesOut)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { SendHalfAndStall(connection); });
    CHttpRawHost host;
    host->SetTimeout(1);
    host.Post(server.Url(L"/"));
    EXPECT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT});
    EXPECT_LT(host.Release(), kReleaseBoundMs);
}

TEST(StallTest, SilenceInsideTheBodyOfAFileTimesOutAndDeletesTheFile)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { SendHalfAndStall(connection); });
    CTempFile file;
    CHttpRawHost host;
    host->SetDownloadFile(file.Path());
    host->SetTimeout(1);
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_TIMEOUT});
    EXPECT_LT(host.Release(), kReleaseBoundMs);
    EXPECT_FALSE(file.Exists());
}

// The time-out counts from the opening, not from the last byte: an answer that keeps coming does not keep
// it away.
TEST(StallTest, AnAnswerThatTakesTooLongTimesOut)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 10000000\r\n\r\n");
            connection.Trickle(std::string(10000000, 'x'), 20000, 20);
        });
    CHttpRawHost host;
    host->SetTimeout(1);
    host.Post(server.Url(L"/"));
    EXPECT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT});
    EXPECT_LT(host.Release(), kReleaseBoundMs);
}

// Both clocks run from the same moment, and whichever ends the exchange last has the word. Wine's WinINet
// reports the time-out of the head as an error of its own, which fails the exchange.
TEST(StallTest, SilenceFromTheBeginningEndsInATimeOutOrUnderWineInAFailure)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Stall(); });
    CHttpRawHost host;
    host->SetTimeout(1);
    const Status status = host.PostAndAwaitEnd(server.Url(L"/"));
    if (IsWine())
    {
        EXPECT_THAT(status, testing::AnyOf(Status{REQ_STATUS_TIMEOUT}, Status{REQ_STATUS_FAILED}));
    }
    else
    {
        EXPECT_EQ(status, Status{REQ_STATUS_TIMEOUT});
    }
    EXPECT_LT(host.Release(), kReleaseBoundMs);
}

TEST(StallTest, AComponentIsUsableAgainAfterATimeOut)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget == "/stall")
            {
                SendHalfOfTheHeadAndStall(connection);
                connection.Close();
                return;
            }
            connection.Send(MakeAnswer(200, request.strBody));
        });
    CHttpRawHost host;
    host->SetTimeout(1);
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/stall")), Status{REQ_STATUS_TIMEOUT});
    host->SetTimeout(10);
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), L"after it"), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"after it");
}

// A send overtakes an exchange that still runs: the old one is told to stop and leaves no trace.
class OvertakingTest : public testing::Test
{
protected:
    // Under Wine the release waits so long for the old one.
    static constexpr unsigned long kStallSeconds = 1;

    void ExpectNewAnswer()
    {
        m_host->SetTimeout(10);
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/"), L"new"), Status{REQ_STATUS_DONE});
        EXPECT_EQ(m_host.TakeAnswer(), L"new");
    }

    CLoopbackServer m_server{[](const CLoopbackRequest& request, CLoopbackConnection& connection)
                             {
                                 if (request.strTarget == "/head")
                                 {
                                     connection.Stall();
                                     connection.Send(MakeAnswer(200, "of the old one"));
                                 }
                                 else if (request.strTarget == "/body")
                                 {
                                     connection.Send(kHalfAnswer);
                                     connection.Stall();
                                 }
                                 else
                                 {
                                     connection.Send(MakeAnswer(200, request.strBody));
                                     return;
                                 }
                                 connection.Close();
                             }};
    CHttpRawHost m_host;
};

TEST_F(OvertakingTest, AnswersTheNewSendWhileTheOldOneWaitsForItsHead)
{
    m_host->SetTimeout(kStallSeconds);
    m_host.Post(m_server.Url(L"/head"), L"old");
    EXPECT_TRUE(m_server.AwaitRequests(1, kPatienceMs));
    ExpectNewAnswer();
    EXPECT_LT(m_host.Release(), kReleaseBoundMs);
}

TEST_F(OvertakingTest, AnswersTheNewSendWhileTheOldOneReads)
{
    m_host->SetTimeout(kStallSeconds);
    m_host.Post(m_server.Url(L"/body"), L"old");
    EXPECT_TRUE(m_host.AwaitStatus(REQ_STATUS_RECEIVING));
    ExpectNewAnswer();
    EXPECT_LT(m_host.Release(), kReleaseBoundMs);
}

TEST_F(OvertakingTest, TheOldFileIsDeletedAndTheNewAnswerKept)
{
    CTempFile file;
    m_host->SetDownloadFile(file.Path());
    m_host->SetTimeout(kStallSeconds);
    m_host.Post(m_server.Url(L"/body"), L"old");
    EXPECT_TRUE(m_host.AwaitStatus(REQ_STATUS_RECEIVING));
    m_host->SetDownloadFile(L"");
    ExpectNewAnswer();
    EXPECT_LT(m_host.Release(), kReleaseBoundMs);
    EXPECT_FALSE(file.Exists());
}

TEST_F(OvertakingTest, TheOldAnswerThatComesLaterChangesNothing)
{
    m_host.Post(m_server.Url(L"/head"), L"old");
    EXPECT_TRUE(m_server.AwaitRequests(1, kPatienceMs));
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/"), L"new"), Status{REQ_STATUS_DONE});
    m_server.Release();
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/"), L"newer"), Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"newer");
    EXPECT_LT(m_host.Release(), kReleaseBoundMs);
}

TEST_F(OvertakingTest, SurvivesManySendsInARow)
{
    for (int round = 0; round < 50; ++round)
    {
        m_host.Post(m_server.Url(L"/"), L"round=" + std::to_wstring(round));
    }
    EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"round=49");
    EXPECT_LT(m_host.Release(), kReleaseBoundMs);
}

}  // namespace
