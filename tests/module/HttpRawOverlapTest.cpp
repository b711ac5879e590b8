// A send while the exchange of the last one still runs.
#include "module/HttpRawTest.h"
#include "support/FailingHeap.h"
#include "support/ProcessResources.h"

using testing::SizeIs;

namespace
{

class HttpRawOverlapTest : public HttpRawTest
{
protected:
    // Sends; the worker comes to the send of that request and stays in it.
    void PostBlocked(int request)
    {
        EXPECT_EQ(StartPost(), S_OK);
        m_system.LetGo();
        EXPECT_TRUE(m_journal.WaitFor("HttpSendRequestW(request" + std::to_string(request) + ","));
    }
};

TEST_F(HttpRawOverlapTest, StopsTheOldRequestAndServesTheNewOneByAnother)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::BlockedSend());
    PostBlocked(1);
    EXPECT_EQ(StartPost(), S_OK);
    EXPECT_EQ(m_journal.Count("InternetCloseHandle(request1)"), 1u);
    EXPECT_NE(m_system.Worker(1), m_system.Worker(0));
    Finish();
    EXPECT_EQ(m_system.ExitCode(0), 0u);
    EXPECT_EQ(m_system.ExitCode(1), 0u);
    EXPECT_EQ(Status(), 9u) << "the outcome of the old request reached the host";
}

TEST_F(HttpRawOverlapTest, ASendThatIsRefusedLeavesTheOldRequestAlone)
{
    const std::wstring path(700, L'p');
    m_winInet.m_attempts.Then(CScriptedWinInet::BlockedSend());
    PostBlocked(1);
    m_pHttpRaw->SetDownloadFile(path.c_str());
    {
        // The copy of the new exchange.
        const CFailingHeap memory({(path.size() + 1) * sizeof(wchar_t)}, m_pModule->Handle());
        EXPECT_EQ(StartPost(), E_FAIL);
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_EQ(m_journal.Count("InternetCloseHandle(request1)"), 0u);
    EXPECT_EQ(Status(), 5u);
}

TEST_F(HttpRawOverlapTest, LaterSendReusesTheObjectOfTheFinishedExchange)
{
    for (size_t nth = 0; nth < 3; ++nth)
    {
        Post();
        EXPECT_EQ(m_system.Worker(nth), m_system.Worker(0));
    }
    EXPECT_THAT(Select(CALL_NET, "InternetCloseHandle(request"), SizeIs(2));
}

TEST_F(HttpRawOverlapTest, ReusesAnObjectThatWasStoppedAndHasLeft)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::BlockedSend()).Then(CScriptedWinInet::BlockedSend());
    PostBlocked(1);
    PostBlocked(2);
    EXPECT_EQ(m_system.ExitCode(0), 0u);
    EXPECT_EQ(StartPost(), S_OK);
    EXPECT_EQ(m_system.Worker(2), m_system.Worker(0));
    Finish();
    Post();
    EXPECT_EQ(m_system.Worker(3), m_system.Worker(0))
        << "the object of the last exchange is the one to reuse";
}

TEST_F(HttpRawOverlapTest, UsesAThirdObjectWhileTwoAreStillHeld)
{
    // Closing the handle does not wake these.
    CHold first(m_journal, "HttpSendRequestW(request1,");
    CHold second(m_journal, "HttpSendRequestW(request2,");
    PostInto(first);
    PostInto(second);
    EXPECT_EQ(StartPost(), S_OK);
    m_system.LetGo();
    EXPECT_EQ(m_system.ExitCode(2), 0u);
    EXPECT_NE(m_system.Worker(1), m_system.Worker(0));
    EXPECT_NE(m_system.Worker(2), m_system.Worker(0));
    EXPECT_NE(m_system.Worker(2), m_system.Worker(1));
    first.LetGo();
    second.LetGo();
    Finish();
    EXPECT_EQ(Status(), 9u);
}

// The old worker had no request handle yet that could have been closed.
TEST_F(HttpRawOverlapTest, StoppedRequestThatWasStillConnectingSendsNothing)
{
    CHold connect(m_journal, "InternetConnectW");
    PostInto(connect);
    EXPECT_EQ(StartPost(), S_OK);
    m_system.LetGo();
    EXPECT_EQ(m_system.ExitCode(1), 0u);
    EXPECT_THAT(Sends(), SizeIs(1));
    connect.LetGo();
    Finish();
    EXPECT_THAT(Sends(), SizeIs(1)) << "the stopped request was sent";
    EXPECT_EQ(m_journal.Count("InternetCloseHandle(request2)"), 1u) << "its late handle stays open";
}

TEST_F(HttpRawOverlapTest, ReleaseWaitsForEveryWorker)
{
    CHold first(m_journal, "HttpSendRequestW(request1,");
    CHold second(m_journal, "HttpSendRequestW(request2,");
    PostInto(first);
    PostInto(second);
    ReleaseComponent(
        [&]
        {
            first.LetGo();
            second.LetGo();
        });
    EXPECT_EQ(m_system.ExitCode(0), 0u) << "killed";
    EXPECT_EQ(m_system.ExitCode(1), 0u) << "killed";
    EXPECT_THAT(Select(CALL_NET, "InternetCloseHandle"), SizeIs(5));
    EXPECT_EQ(Net().back(), "InternetCloseHandle(session1)");
}

TEST_F(HttpRawOverlapTest, LeavesNoHandleAndNoThreadBehind)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::BlockedSend());
    int request = 0;
    const auto overlap = [&](int count)
    {
        for (int nth = 0; nth < count; ++nth)
        {
            PostBlocked(++request);
        }
        ReleaseComponent();
        m_pHttpRaw = m_pModule->CreateHttpRaw();
    };
    overlap(5);
    // The script has a handle of its own for each thread.
    const int handles = CountHandles() - request;
    const int threads = CountThreads();
    overlap(100);
    EXPECT_LE(CountSettled(CountThreads, threads), threads);
    EXPECT_LE(CountSettled(CountHandles, handles + request) - request, handles);
}

}  // namespace
