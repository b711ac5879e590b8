// Reading the answer into the file that the host named.
#include "module/HttpRawTest.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr wchar_t kPath[] = L"C:\\d\\f \u00E4.bin";
constexpr char kCreate[] = "CreateFileW('C:\\d\\f \xC3\xA4.bin', 0x40000000, 0, null, 2, 0, null)";
constexpr char kDelete[] = "DeleteFileW('C:\\d\\f \xC3\xA4.bin')";

class HttpRequestFileTest : public HttpRawTest
{
protected:
    HttpRequestFileTest() { EXPECT_EQ(m_pHttpRaw->SetDownloadFile(kPath), S_OK); }

    Texts Files() const { return m_journal.Texts(CALL_FILE); }
};

TEST_F(HttpRequestFileTest, WritesThePiecesAsTheyCome)
{
    m_winInet.m_reads.Then({"one "}).Then({std::string("\0\xC3", 2)}).Then({"three"});
    Post();
    EXPECT_EQ(Status(), 9u);
    Texts tail = m_journal.Texts(CALL_FILE | CALL_NET);
    tail.erase(tail.begin(), tail.end() - 9);
    EXPECT_THAT(tail, ElementsAre(kCreate, "InternetReadFile(request1, 16384)", "WriteFile(file, 4, null)",
                                  "InternetReadFile(request1, 16384)", "WriteFile(file, 2, null)",
                                  "InternetReadFile(request1, 16384)", "WriteFile(file, 5, null)",
                                  "InternetReadFile(request1, 16384)", "CloseHandle(file)"));
    EXPECT_EQ(m_system.FileContent(), std::string("one \0\xC3three", 11));
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "9"));
}

TEST_F(HttpRequestFileTest, LeavesNoAnswerInMemory)
{
    m_winInet.m_reads.Then({"body"});
    Post();
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestFileTest, DropsTheAnswerInMemoryOfTheExchangeBefore)
{
    m_pHttpRaw->SetDownloadFile(L"");
    m_winInet.m_reads.Then({"in memory"});
    Post();
    m_pHttpRaw->SetDownloadFile(kPath);
    Post();
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestFileTest, WritesABodyOfThreeChunksAndAByte)
{
    std::string body(49153, 'a');
    body.back() = 'z';
    m_winInet.m_reads.Then({body});
    Post();
    EXPECT_THAT(Files(),
                ElementsAre(kCreate, "WriteFile(file, 16384, null)", "WriteFile(file, 16384, null)",
                            "WriteFile(file, 16384, null)", "WriteFile(file, 1, null)", "CloseHandle(file)"));
    EXPECT_EQ(m_system.FileContent(), body);
}

TEST_F(HttpRequestFileTest, EmptyBodyMakesAnEmptyFile)
{
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Files(), ElementsAre(kCreate, "CloseHandle(file)"));
}

TEST_F(HttpRequestFileTest, TracesItsEndAtErrorLevel)
{
    m_pHttpRaw->SetDownloadFile(L"C:\\d\\f.bin");
    m_winInet.m_reads.Then({"body"});
    Post();
    const Texts trace = Trace();
    const Texts expected = Join({{Enter("CHttpRequest::ReadInternetDataToFile")},
                                 StatusRecords(6),
                                 {"8| download file [%s] is finished,m_strFile.c_str()=C:\\d\\f.bin,\n"},
                                 StatusRecords(9),
                                 {Leave("CHttpRequest::ReadInternetDataToFile")}});
    ASSERT_GE(trace.size(), expected.size());
    EXPECT_EQ(Texts(trace.end() - static_cast<std::ptrdiff_t>(expected.size()), trace.end()), expected);
}

TEST_F(HttpRequestFileTest, IsReceivingBeforeItMakesTheFile)
{
    CHold create(m_journal, "CreateFileW");
    PostInto(create);
    EXPECT_EQ(Status(), 6u);
    create.LetGo();
    Finish();
}

TEST_F(HttpRequestFileTest, FileThatCannotBeMadeShowsAsATimeoutInTheEnd)
{
    m_system.m_bFilesFail = true;
    m_winInet.m_reads.Then({"body"});
    Post();
    EXPECT_EQ(Status(), 6u);
    EXPECT_THAT(TracedErrors(), ElementsAre("8| Can not create file....,\n"));
    EXPECT_THAT(Reads(), IsEmpty());
    EXPECT_THAT(Files(), ElementsAre(kCreate));
    EXPECT_EQ(StatusAfter(60000), 6u);
    EXPECT_EQ(StatusAfter(1), 7u);
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestFileTest, ShortWriteIsTracedAndReadingGoesOn)
{
    m_system.m_writes.Then(3).Then(std::nullopt).Then(0);
    m_winInet.m_reads.Then({"first"}).Then({"second"}).Then({"third"});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Files(), ElementsAre(kCreate, "WriteFile(file, 5, null)", "WriteFile(file, 6, null)",
                                     "WriteFile(file, 5, null)", "CloseHandle(file)"));
    EXPECT_EQ(m_system.FileContent(), "firsecond");
    EXPECT_THAT(TracedErrors(), SizeIs(3));
    EXPECT_EQ(m_journal.Count("8| write file failed,\n"), 2u);
}

TEST_F(HttpRequestFileTest, ReadThatFailsCountsAsTheEnd)
{
    m_winInet.m_reads.Then({"part"}).Then({"", ERROR_INTERNET_CONNECTION_RESET});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(m_system.FileContent(), "part");
    EXPECT_THAT(Files(), ElementsAre(kCreate, "WriteFile(file, 4, null)", "CloseHandle(file)"));
}

TEST_F(HttpRequestFileTest, HasNoClockOfItsOwn)
{
    m_winInet.m_reads.Then({"one"}).Then({"two"});
    MoveTickAt("InternetReadFile", 2, 600000);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(m_system.FileContent(), "onetwo");
}

TEST_F(HttpRequestFileTest, PollThatGivesUpDeletesThePartialFile)
{
    m_winInet.m_reads.Then({"one"}).Then({"two"}).Then({"three"});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    EXPECT_EQ(StatusAfter(60001), 7u);
    read.LetGo();
    Finish();
    EXPECT_EQ(Status(), 2u);
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "7", "2"));
    EXPECT_THAT(Files(), ElementsAre(kCreate, "WriteFile(file, 3, null)", "CloseHandle(file)", kDelete));
    EXPECT_THAT(TracedErrors(), IsEmpty());
}

TEST_F(HttpRequestFileTest, ReleaseEndsABlockedReadAndDeletesThePartialFile)
{
    m_winInet.m_reads.Then({"one"}).Then({"", kSucceeds, true});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    read.LetGo();
    ReleaseComponent();
    EXPECT_THAT(Files(), ElementsAre(kCreate, "WriteFile(file, 3, null)", "CloseHandle(file)", kDelete));
    EXPECT_EQ(m_journal.Count("InternetCloseHandle(request1)"), 1u);
}

TEST_F(HttpRequestFileTest, PathStaysUntilTheAnswerIsAskedFor)
{
    Post();
    Post();
    EXPECT_THAT(Select(CALL_FILE, "CreateFileW"), ElementsAre(kCreate, kCreate));
    // Whatever the call answers.
    EXPECT_EQ(m_pHttpRaw->GetResponseData(nullptr), E_FAIL);
    ClearJournal();
    m_winInet.m_reads.Then({"in memory"});
    Post();
    EXPECT_THAT(Files(), IsEmpty());
    EXPECT_THAT(Trace(), Contains("2| Http download file to :[%s],lpszFile=,\n"));
    EXPECT_EQ(Response(), L"in memory");
}

TEST_F(HttpRequestFileTest, AnswerThatIsTakenForgetsThePathOfTheNextRequest)
{
    m_pHttpRaw->SetDownloadFile(L"");
    m_winInet.m_reads.Then({"in memory"});
    Post();
    m_pHttpRaw->SetDownloadFile(kPath);
    EXPECT_EQ(m_pHttpRaw->GetResponseData(nullptr), S_OK);
    Post();
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(HttpRequestFileTest, AskingAnObjectThatNeverSentKeepsThePath)
{
    EXPECT_EQ(m_pHttpRaw->GetResponseData(nullptr), E_FAIL);
    Post();
    EXPECT_THAT(Files(), ElementsAre(kCreate, "CloseHandle(file)"));
}

TEST_F(HttpRequestFileTest, PathSetWhileItRunsIsForTheNextRequest)
{
    StartPost();
    m_pHttpRaw->SetDownloadFile(L"C:\\next");
    Finish();
    EXPECT_THAT(Files(), ElementsAre(kCreate, "CloseHandle(file)"));
    Post();
    EXPECT_THAT(Files(), Contains("CreateFileW('C:\\next', 0x40000000, 0, null, 2, 0, null)"));
}

TEST_F(HttpRequestFileTest, ExchangeThatReadsNothingMakesNoFile)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::Answer(L"404"));
    Post();
    EXPECT_EQ(Status(), 0u);
    EXPECT_THAT(Files(), IsEmpty());
}

}  // namespace
