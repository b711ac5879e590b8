// Ends that come from messages: while a post waits for its answer, and while it waits for a stopped download.
#include "support/TempFolder.h"
#include "unit/client/ClientTest.h"

using kvHttp::Answer;
using kvHttp::Outcome;
using kvHttp::Progress;
using testing::Contains;
using testing::Not;
using namespace std::chrono_literals;

namespace
{

class ClientCloseTest : public ClientTest
{
protected:
    // What a window would do at a message that the client dispatches.
    void AtAMessage(const std::function<void()>& action)
    {
        m_client.OnMessage(
            [=](const MSG&)
            {
                action();
                return true;
            });
        PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0);
    }

    // A download is given up, and its component waits for the worker in its last release.
    void WhileADownloadStops(const std::function<void()>& action)
    {
        m_client.Start(m_download);
        m_client.Cancel();
        m_httpRaw.m_calls.clear();
        m_httpRaw.m_onLastRelease = action;
    }

    void ExpectNothingBegun(Outcome outcome)
    {
        EXPECT_EQ(m_client.Post(m_download).outcome, outcome);
        EXPECT_THAT(m_httpRaw.m_calls, Not(Contains(L"PostRequest u d")));
        EXPECT_NE(m_client.State().outcome, Outcome::Running);
    }

    CTempFolder m_folder;
    const kvHttp::Form m_download{L"u", L"d", m_folder.Wide() + L"\\file"};
};

TEST_F(ClientCloseTest, APostThatAWindowClosesHasNoAnswerNotEvenAnEarlierOne)
{
    m_httpRaw.m_answer = L"of an earlier post";
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_client.Start({L"u", L"d", L""});
    ASSERT_EQ(m_client.Poll(), Outcome::Done);
    m_httpRaw.m_statuses.Always(REQ_STATUS_SENDING);
    AtAMessage([this] { m_client.Close(); });
    const Answer answer = m_client.Post(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::Idle);
    EXPECT_EQ(answer.nStatus, static_cast<unsigned long>(REQ_STATUS_IDLE));
    EXPECT_EQ(answer.strText, L"");
}

TEST_F(ClientCloseTest, APostThatAWindowClosesDoesNotWaitForWhatTheWindowStarts)
{
    AtAMessage(
        [this]
        {
            m_client.Close();
            EXPECT_EQ(m_client.Start({L"other", L"d", L""}), Outcome::Running);
        });
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::Idle);
    EXPECT_EQ(m_client.State().outcome, Outcome::Running) << "the window's exchange goes on";
}

TEST_F(ClientCloseTest, APostHasItsAnswerWhereTheReportOfItsEndCloses)
{
    m_httpRaw.m_answer = L"text";
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_client.OnChange(
        [this](const Progress& progress)
        {
            if (progress.outcome == Outcome::Done)
            {
                m_client.Close();
            }
        });
    const Answer answer = m_client.Post(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::Done);
    EXPECT_EQ(answer.strText, L"text");
    EXPECT_EQ(m_client.State().outcome, Outcome::Idle);
}

TEST_F(ClientCloseTest, APostThatCouldNotWaitDoesNotBegin)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    Outcome within = Outcome::Idle;
    m_client.OnChange(
        [&](const Progress& progress)
        {
            if (progress.outcome == Outcome::Done)
            {
                within = m_client.Post(L"within", L"d").outcome;
            }
        });
    EXPECT_TRUE(m_client.Post(L"u", L"d"));
    EXPECT_EQ(within, Outcome::Busy);
    EXPECT_THAT(m_httpRaw.m_calls, Not(Contains(L"PostRequest within d")));
}

TEST_F(ClientCloseTest, AQuitMessageEndsAPostThatBeginsAgainAtEachEnd)
{
    m_client.OnChange(
        [this](const Progress& progress)
        {
            if (progress.outcome == Outcome::QuitAsked)
            {
                EXPECT_EQ(m_client.Start({L"again", L"d", L""}), Outcome::Busy);
            }
        });
    PostQuitMessage(0);
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::QuitAsked);
    TakeMessages();
}

TEST_F(ClientCloseTest, CloseWhileADownloadStopsLetsNothingBegin)
{
    WhileADownloadStops([this] { m_client.Close(); });
    ExpectNothingBegun(Outcome::Idle);
}

TEST_F(ClientCloseTest, CancelWhileADownloadStopsLetsNothingBegin)
{
    WhileADownloadStops([this] { m_client.Cancel(); });
    ExpectNothingBegun(Outcome::Cancelled);
}

TEST_F(ClientCloseTest, ADeadlineThatPassesWhileADownloadStopsLetsNothingBegin)
{
    WhileADownloadStops([] { s_now += 1000; });
    m_client.SetDeadline(1000ms);
    ExpectNothingBegun(Outcome::DeadlinePassed);
}

TEST_F(ClientCloseTest, OfNothingLeavesTheTimeOfTheLastExchange)
{
    m_client.Close();
    EXPECT_EQ(m_client.State().nElapsedMs, 0u);
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_client.Start({L"u", L"d", L""});
    s_now += 70;
    m_client.Poll();
    s_now += 1000;
    m_client.Close();
    EXPECT_EQ(m_client.State().nElapsedMs, 70u);
}

}  // namespace
