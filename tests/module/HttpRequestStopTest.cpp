// A poll that gives up sets the stop flag after the status 7. The reading clears it when it begins and looks
// at it after each read; what it does then is the same for memory and file but for the file itself.
#include "module/HttpRawTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr DWORD kTooLong = 60001;

class HttpRequestStopTest : public HttpRawTest, public testing::WithParamInterface<const char*>
{
protected:
    HttpRequestStopTest()
    {
        m_pHttpRaw->SetDownloadFile(IntoFile() ? L"C:\\f" : L"");
        m_winInet.m_reads.Then({"one"}).Then({"two"});
    }

    static bool IntoFile() { return std::string(GetParam()) == "File"; }

    // The poll that gives up. Afterwards the tick counter stands where it stood: the reading into memory has
    // a clock of its own, which must find nothing.
    unsigned long PollTooLate()
    {
        const unsigned long status = StatusAfter(kTooLong);
        m_system.m_dwTick -= kTooLong;
        return status;
    }

    void ExpectDone()
    {
        EXPECT_EQ(Status(), 9u);
        if (IntoFile())
        {
            EXPECT_EQ(m_system.FileContent(), "onetwo");
            EXPECT_THAT(Select(CALL_FILE, "DeleteFileW"), IsEmpty());
        }
        else
        {
            EXPECT_EQ(Response(), L"onetwo");
        }
    }

    void ExpectDropped()
    {
        EXPECT_EQ(ResponseResult(), E_FAIL);
        EXPECT_EQ(Select(CALL_FILE, "DeleteFileW"), IntoFile() ? Texts{"DeleteFileW('C:\\f')"} : Texts{});
    }
};

TEST_P(HttpRequestStopTest, FlagIsClearedAfterTheStatus)
{
    // Both statuses of sending come before that of receiving.
    CHold receiving(m_journal, Leave("CHttpRequest::UpdateRequestStatus"), 3);
    PostInto(receiving);
    EXPECT_EQ(PollTooLate(), 7u);
    receiving.LetGo();
    Finish();
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "7", "9"));
    ExpectDone();
}

TEST_P(HttpRequestStopTest, FlagIsSetAfterTheStatus)
{
    CHold read(m_journal, "InternetReadFile");
    PostInto(read);
    // The worker goes on, to its end, when the poll has just stored its status.
    m_journal.On(Leave("CHttpRequest::UpdateRequestStatus"), 1,
                 [&]
                 {
                     m_system.m_dwTick -= kTooLong;
                     read.LetGo();
                     EXPECT_TRUE(m_system.WaitForThreads());
                 });
    EXPECT_EQ(StatusAfter(kTooLong), 9u);
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "7", "9"));
    ExpectDone();
}

TEST_P(HttpRequestStopTest, FlagIsLookedAtBeforeTheEndOfTheBody)
{
    CHold read(m_journal, "InternetReadFile", 3);
    PostInto(read);
    EXPECT_EQ(PollTooLate(), 7u);
    read.LetGo();
    Finish();
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "7", "2"));
    ExpectDropped();
}

TEST_P(HttpRequestStopTest, FlagCountsAlsoWhenTheReadFails)
{
    m_winInet.m_reads.Then({"", ERROR_INTERNET_CONNECTION_RESET});
    CHold read(m_journal, "InternetReadFile", 3);
    PostInto(read);
    EXPECT_EQ(PollTooLate(), 7u);
    read.LetGo();
    Finish();
    // Nothing has looked at the flag within the reading.
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "7"));
    ExpectDropped();
}

INSTANTIATE_TEST_SUITE_P(Into, HttpRequestStopTest, testing::Values("Memory", "File"),
                         [](const testing::TestParamInfo<const char*>& into)
                         { return std::string(into.param); });

using HttpRequestFileStopTest = HttpRawTest;

TEST_F(HttpRequestFileStopTest, FlagIsClearedAfterTheFileIsMade)
{
    m_pHttpRaw->SetDownloadFile(L"C:\\f");
    m_winInet.m_reads.Then({"body"});
    CHold create(m_journal, "CreateFileW");
    PostInto(create);
    EXPECT_EQ(StatusAfter(kTooLong), 7u);
    create.LetGo();
    Finish();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(m_system.FileContent(), "body");
}

}  // namespace
