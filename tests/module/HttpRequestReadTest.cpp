// Reading the answer into memory, and taking it from there.
#include "module/HttpRawTest.h"
#include "support/FailingHeap.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace
{

constexpr char kAnswerHere[] = "2| Get http response here.,\n";

// Text in which every place looks different.
std::string Pattern(size_t length)
{
    std::string text(length, '\0');
    for (size_t at = 0; at < length; ++at)
    {
        text[at] = static_cast<char>('a' + (at * 7 + at / 16384) % 26);
    }
    return text;
}

std::wstring Widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end());
}

using HttpRequestReadTest = HttpRawTest;

TEST_F(HttpRequestReadTest, ReadsPiecesAsTheyComeUntilAnEmptyOne)
{
    m_winInet.m_reads.Then({"one "}).Then({"two "}).Then({"three"});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Reads(),
                ElementsAre("InternetReadFile(request1, 16384)", "InternetReadFile(request1, 16384)",
                            "InternetReadFile(request1, 16384)", "InternetReadFile(request1, 16384)"));
    EXPECT_EQ(Response(), L"one two three");
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "9"));
}

TEST_F(HttpRequestReadTest, KeepsABodyOfThreeChunksAndAByteWhole)
{
    const std::string body = Pattern(49153);
    m_winInet.m_reads.Then({body});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Reads(), SizeIs(5));
    EXPECT_EQ(Response(), Widen(body));
}

TEST_F(HttpRequestReadTest, BodiesAroundTheChunkSize)
{
    for (const size_t length : {size_t{1}, size_t{16383}, size_t{16384}, size_t{16385}, size_t{32768}})
    {
        SCOPED_TRACE(testing::Message() << "length " << length);
        const std::string body = Pattern(length);
        m_winInet.m_reads.Then({body});
        Post();
        EXPECT_EQ(Status(), 9u);
        EXPECT_EQ(Response(), Widen(body));
    }
}

TEST_F(HttpRequestReadTest, GrowsTheBlockByExactlyWhatWasRead)
{
    m_winInet.m_reads.Then({Pattern(20000)}).Then({"abc"});
    const CFailingHeap memory({}, m_pModule->Handle());
    Post();
    EXPECT_THAT(memory.Growths(), ElementsAre(16385u, 20001u, 20004u));
}

TEST_F(HttpRequestReadTest, DecodesUtf8AcrossPieces)
{
    m_winInet.m_reads.Then({"a\xC3"}).Then({"\xA4\xE2\x82"}).Then({"\xAC\xF0\x9F\x98\x80z"});
    Post();
    EXPECT_EQ(Response(), L"a\u00E4\u20AC\U0001F600z");
}

TEST_F(HttpRequestReadTest, TextEndsAtTheFirstNul)
{
    m_winInet.m_reads.Then({std::string("ab\0cd", 5)});
    Post();
    EXPECT_EQ(Response(), L"ab");
}

TEST_F(HttpRequestReadTest, EmptyBodyIsDoneWithoutAnAnswer)
{
    Post();
    EXPECT_EQ(Status(), 9u);
    BSTR const untouched = SysAllocString(L"untouched");
    BSTR bstr = untouched;
    EXPECT_EQ(m_pHttpRaw->GetResponseData(&bstr), E_FAIL);
    EXPECT_EQ(bstr, untouched);
    SysFreeString(untouched);
    EXPECT_EQ(m_pHttpRaw->GetResponseData(nullptr), E_FAIL);
}

TEST_F(HttpRequestReadTest, AnswerCanBeTakenAgain)
{
    m_winInet.m_reads.Then({"answer"});
    Post();
    EXPECT_EQ(Response(), L"answer");
    EXPECT_EQ(Response(), L"answer");
}

TEST_F(HttpRequestReadTest, AnswerNeedsNoPlaceToGo)
{
    m_winInet.m_reads.Then({"answer"});
    Post();
    EXPECT_EQ(m_pHttpRaw->GetResponseData(nullptr), S_OK);
    EXPECT_EQ(Response(), L"answer");
}

TEST_F(HttpRequestReadTest, ReadThatFailsCountsAsTheEnd)
{
    m_winInet.m_reads.Then({"part"}).Then({"", ERROR_INTERNET_CONNECTION_RESET}).Then({"more"});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(Response(), L"part");
    EXPECT_THAT(Reads(), SizeIs(2));
    EXPECT_THAT(TracedErrors(), IsEmpty());
}

TEST_F(HttpRequestReadTest, FirstReadThatFailsIsAnEmptyBody)
{
    m_winInet.m_reads.Then({"", ERROR_INTERNET_CONNECTION_RESET});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestReadTest, TimeoutWhileReadingDropsTheAnswer)
{
    struct Row
    {
        const char* label;
        unsigned long seconds;
        DWORD milliseconds;
        int read;
        unsigned long status;
    };
    const Row rows[] = {
        {"at the default limit", 0, 60000, 2, 9}, {"past the default limit", 0, 60001, 2, 7},
        {"at five seconds", 5, 5000, 2, 9},       {"past five seconds", 5, 5001, 2, 7},
        {"in the first read", 5, 5001, 1, 7},     {"in the read that finds the end", 5, 5001, 3, 7},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        ClearJournal();
        ReleaseComponent();
        m_pHttpRaw = m_pModule->CreateHttpRaw();
        m_pHttpRaw->SetTimeout(row.seconds);
        m_winInet.m_reads.Always({});
        m_winInet.m_reads.Then({"one"}).Then({"two"});
        MoveTickAt("InternetReadFile", row.read, row.milliseconds);
        Post();
        EXPECT_EQ(Status(), row.status);
        const bool bDone = row.status == 9;
        EXPECT_EQ(Statuses(), bDone ? (Texts{"5", "5", "6", "9"}) : (Texts{"5", "5", "6", "7"}));
        EXPECT_EQ(ResponseResult(), bDone ? S_OK : E_FAIL);
        EXPECT_EQ(m_journal.Count(kAnswerHere), bDone ? 1u : 0u);
        EXPECT_THAT(Reads(), SizeIs(bDone ? 3 : static_cast<size_t>(row.read)));
    }
}

TEST_F(HttpRequestReadTest, PollThatGivesUpStopsTheReading)
{
    m_winInet.m_reads.Then({"one"}).Then({"two"}).Then({"three"});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    EXPECT_EQ(Status(), 6u);
    EXPECT_EQ(StatusAfter(60001), 7u);
    read.LetGo();
    Finish();
    // The worker has its own last word.
    EXPECT_EQ(Status(), 2u);
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "7", "2"));
    EXPECT_EQ(ResponseResult(), E_FAIL);
    EXPECT_THAT(Reads(), SizeIs(2));
}

TEST_F(HttpRequestReadTest, AnswerThatMayStillGrowIsNotGiven)
{
    m_winInet.m_reads.Then({"one"}).Then({"two"});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    EXPECT_EQ(ResponseResult(), E_FAIL);
    EXPECT_EQ(StatusAfter(60001), 7u);
    EXPECT_EQ(ResponseResult(), E_FAIL);
    read.LetGo();
    Finish();
}

TEST_F(HttpRequestReadTest, ReadingIntoMemoryHasItsOwnClockAfterAPollThatGaveUp)
{
    m_winInet.m_reads.Then({"one"});
    CHold send(m_journal, "HttpSendRequestW");
    PostInto(send);
    EXPECT_EQ(StatusAfter(60001), 7u);
    send.LetGo();
    Finish();
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "7", "6", "7"));
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestReadTest, NextExchangeIsNotStoppedByTheLast)
{
    m_winInet.m_reads.Then({"one"});
    MoveTickAt("InternetReadFile", 1, 60001);
    Post();
    EXPECT_EQ(Status(), 7u);
    m_winInet.m_reads.Then({"two"});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(Response(), L"two");
}

TEST_F(HttpRequestReadTest, AnswerThatFindsNoMemoryFails)
{
    m_winInet.m_reads.Then({Pattern(12345)});
    const CFailingHeap memory({12346}, m_pModule->Handle());
    Post();
    EXPECT_EQ(Status(), 2u);
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestReadTest, ReleaseEndsABlockedRead)
{
    m_winInet.m_reads.Then({"one"}).Then({"", kSucceeds, true});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    read.LetGo();
    ClearJournal();
    ReleaseComponent();
    EXPECT_THAT(Net(), ElementsAre("InternetCloseHandle(request1)", "InternetCloseHandle(connect1)",
                                   "InternetCloseHandle(session1)"));
    EXPECT_THAT(Trace(), Not(Contains(kAnswerHere)));
    EXPECT_THAT(Statuses(), IsEmpty());
}

TEST_F(HttpRequestReadTest, AnswerIsTracedAsText)
{
    m_winInet.m_reads.Then({"plain=1&x"});
    Post();
    EXPECT_THAT(TracedTexts(), Contains(kAnswerHere));
    EXPECT_EQ(TracedTexts().back(), "2| plain=1&x,\n");
}

TEST_F(HttpRequestReadTest, EmptyAnswerIsTracedAsEmptyText)
{
    Post();
    const Texts texts = TracedTexts();
    EXPECT_EQ(texts[texts.size() - 2], kAnswerHere);
    EXPECT_EQ(texts.back(), "2| ,\n");
}

TEST_F(HttpRequestReadTest, AnswerIsNotTracedWhenTheHostSaysSo)
{
    EXPECT_EQ(m_pHttpRaw->SetTraceResponse(0), S_OK);
    m_winInet.m_reads.Then({"secret"});
    Post();
    EXPECT_EQ(TracedTexts().back(), "2| http status code,dwHttpStatusCode=200,\n");

    EXPECT_EQ(m_pHttpRaw->SetTraceResponse(2), S_OK);
    m_winInet.m_reads.Then({"public"});
    Post();
    EXPECT_EQ(TracedTexts().back(), "2| public,\n");
}

TEST_F(HttpRequestReadTest, TraceSettingMadeWhileItRunsIsForTheNextRequest)
{
    m_winInet.m_reads.Then({"first"});
    StartPost();
    m_pHttpRaw->SetTraceResponse(0);
    Finish();
    EXPECT_EQ(TracedTexts().back(), "2| first,\n");
    m_winInet.m_reads.Then({"second"});
    Post();
    EXPECT_THAT(Trace(), Not(Contains("2| second,\n")));
}

}  // namespace
