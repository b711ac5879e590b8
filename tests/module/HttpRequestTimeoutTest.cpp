// The time-out that the host's polling enforces, and where its clock begins.
#include "module/HttpRawTest.h"

using testing::ElementsAre;

namespace
{

using HttpRequestTimeoutTest = HttpRawTest;

TEST_F(HttpRequestTimeoutTest, IsSixtySecondsByDefault)
{
    StartPost();
    EXPECT_EQ(StatusAfter(60000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
    EXPECT_EQ(Status(), 7u);
}

TEST_F(HttpRequestTimeoutTest, IsWhatTheHostSets)
{
    EXPECT_EQ(m_pHttpRaw->SetTimeout(5), S_OK);
    StartPost();
    EXPECT_EQ(StatusAfter(5000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRequestTimeoutTest, SecondsRunOverIn32Bits)
{
    m_pHttpRaw->SetTimeout(4294968);  // 2^32 + 704 milliseconds
    StartPost();
    EXPECT_EQ(StatusAfter(704), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRequestTimeoutTest, SecondsThatRunOverToZeroAllowNoTime)
{
    m_pHttpRaw->SetTimeout(536870912);
    StartPost();
    EXPECT_EQ(Status(), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRequestTimeoutTest, SettingMadeWhileItRunsIsForTheNextRequest)
{
    m_pHttpRaw->SetTimeout(5);
    StartPost();
    m_pHttpRaw->SetTimeout(1000);
    EXPECT_EQ(StatusAfter(5001), 7u);
    Finish();
    StartPost();
    EXPECT_EQ(StatusAfter(1000000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRequestTimeoutTest, PollWritesTheStatusWithItsRecordOnce)
{
    StartPost();
    m_system.m_dwTick += 60001;
    ClearJournal();
    Status();
    Status();
    EXPECT_EQ(Trace(), StatusRecords(7));
}

TEST_F(HttpRequestTimeoutTest, LeavesAStatusThatIsFinal)
{
    EXPECT_EQ(StatusAfter(600000), 1u);
    Post();
    EXPECT_EQ(StatusAfter(600000), 9u);
    m_winInet.m_attempts.Then(CScriptedWinInet::Answer(L"404")).Then(CScriptedWinInet::FailingSend(12029));
    m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12045));
    for (const unsigned long status : {0ul, 2ul, 3ul})
    {
        Post();
        EXPECT_EQ(StatusAfter(600000), status);
    }
}

TEST_F(HttpRequestTimeoutTest, ClockOfAReusedObjectBeginsBeforeItsWorker)
{
    Post();
    m_system.m_dwTick += 600000;
    StartPost();
    EXPECT_EQ(Status(), 5u);
    EXPECT_EQ(StatusAfter(60000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRequestTimeoutTest, ClockBeginsAnewWhenTheRequestIsOpened)
{
    CHold send(m_journal, "HttpSendRequestW");
    MoveTickAt("InternetGetConnectedState", 1, 40000);
    PostInto(send);
    EXPECT_EQ(StatusAfter(60000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
    send.LetGo();
    Finish();
}

TEST_F(HttpRequestTimeoutTest, ClockBeginsAnewAtEveryRedirect)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::Answer(L"302"));
    MoveTickAt("HttpSendRequestW", 1, 50000);
    MoveTickAt("HttpSendRequestW", 2, 50000);
    CHold read(m_journal, "InternetReadFile");
    PostInto(read);
    EXPECT_EQ(Status(), 6u);
    EXPECT_EQ(StatusAfter(10000), 6u);
    EXPECT_EQ(StatusAfter(1), 7u);
    read.LetGo();
    Finish();
}

TEST_F(HttpRequestTimeoutTest, ClockRunsOnThroughResends)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_FORCE_RETRY));
    MoveTickAt("HttpSendRequestW", 1, 50000);
    MoveTickAt("HttpSendRequestW", 2, 10000);
    CHold read(m_journal, "InternetReadFile");
    PostInto(read);
    EXPECT_EQ(Status(), 6u);
    EXPECT_EQ(StatusAfter(1), 7u);
    read.LetGo();
    Finish();
}

TEST_F(HttpRequestTimeoutTest, TickCountThatWrapsCountsAsNoTime)
{
    m_system.m_dwTick = 0xFFFFFFF0;
    StartPost();
    m_system.m_dwTick = 0x7FFFFFFF;
    EXPECT_EQ(Status(), 5u);
    m_system.m_dwTick = 0xFFFFFFF1;
    EXPECT_EQ(Status(), 5u);
}

TEST_F(HttpRequestTimeoutTest, WorkerReadsOnAfterAPollThatGaveUpWhileItSent)
{
    // The reading begins with the stop flag cleared; a download has no clock of its own.
    m_pHttpRaw->SetDownloadFile(L"C:\\d\\f.bin");
    m_winInet.m_reads.Then({"body"});
    CHold send(m_journal, "HttpSendRequestW");
    PostInto(send);
    EXPECT_EQ(StatusAfter(60001), 7u);
    send.LetGo();
    Finish();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "7", "6", "9"));
}

}  // namespace
