// Sending from the host's thread: what is refused, what the worker is started with, and what carries over
// from one send of an object to the next.
#include "module/HttpRawTest.h"
#include "request/HttpRequest.h"
#include "support/FailingHeap.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

using HttpRawSendTest = HttpRawTest;

TEST_F(HttpRawSendTest, PostMakesExactlyTheseCallsInThisOrder)
{
    m_winInet.m_reads.Then({"answer"});
    EXPECT_EQ(Post(L"http://127.0.0.1:8080/p/q?x=1", L"a=1"), S_OK);
    EXPECT_EQ(Status(), 9u);
    ReleaseComponent();
    EXPECT_THAT(
        m_journal.Texts(CALL_NET | CALL_THREAD | CALL_WINDOW),
        ElementsAre("InternetOpenW('Brixo Kestrin Desktop Http Agent', 0, null, null, 0)",
                    "_beginthreadex(null, 0, start, object, 0, id)", "InternetGetConnectedState(2, 0)",
                    "InternetConnectW(session1, '127.0.0.1', 8080, null, null, 3, 0, 0)",
                    OpenOf(1, "/p/q?x=1"), "InternetQueryOptionW(request1, 31, 4)",
                    "InternetSetOptionW(request1, 31, 0x80, 4)", "InternetSetOptionW(request1, 2, 60000, 4)",
                    "InternetSetOptionW(request1, 6, 60000, 4)", "InternetSetOptionW(request1, 5, 60000, 4)",
                    SendOf("request1", "'a=1'", 3), "HttpQueryInfoW(request1, 19, 262, null)",
                    "InternetReadFile(request1, 16384)", "InternetReadFile(request1, 16384)",
                    "InternetCloseHandle(request1)", "InternetCloseHandle(connect1)", "IsWindow(null)",
                    "InternetCloseHandle(session1)"));
}

TEST_F(HttpRawSendTest, SecondSendReusesSessionAndRequestObject)
{
    EXPECT_EQ(Post(), S_OK);
    void* const pFirst = m_system.Worker();
    ClearJournal();
    EXPECT_EQ(StartPost(L"http://127.0.0.2/second", L"b=22"), S_OK);
    EXPECT_EQ(Status(), 5u);
    Finish();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(m_system.Worker(), pFirst);
    EXPECT_THAT(
        Net(),
        ElementsAre("InternetGetConnectedState(2, 0)", "InternetCloseHandle(request1)",
                    "InternetCloseHandle(connect1)",
                    "InternetConnectW(session1, '127.0.0.2', 80, null, null, 3, 0, 0)", OpenOf(2, "/second"),
                    "InternetQueryOptionW(request2, 31, 4)", "InternetSetOptionW(request2, 31, 0x80, 4)",
                    "InternetSetOptionW(request2, 2, 60000, 4)", "InternetSetOptionW(request2, 6, 60000, 4)",
                    "InternetSetOptionW(request2, 5, 60000, 4)", SendOf("request2", "'b=22'", 4),
                    "HttpQueryInfoW(request2, 19, 262, null)", "InternetReadFile(request2, 16384)"));
    EXPECT_EQ(m_journal.Count("2|--> CHttpRequest::CHttpRequest \n"), 0u);
}

TEST_F(HttpRawSendTest, RefusesEmptyTextsAndStartsNothing)
{
    EXPECT_EQ(m_pHttpRaw->PostRequest(L"", L"a=1"), E_INVALIDARG);
    EXPECT_EQ(m_pHttpRaw->PostRequest(L"http://127.0.0.1/x", L""), E_INVALIDARG);
    EXPECT_EQ(m_pHttpRaw->PostRequest(L"", L""), E_INVALIDARG);
    EXPECT_EQ(m_pHttpRaw->PostUrl(L""), E_INVALIDARG);
    EXPECT_THAT(m_journal.Texts(CALL_NET | CALL_THREAD | CALL_TRACE), IsEmpty());
    EXPECT_EQ(Status(), 1u);
}

TEST_F(HttpRawSendTest, RefusedSendKeepsTheDataOfTheOneBefore)
{
    Post(L"http://127.0.0.1/p", L"old=1");
    EXPECT_EQ(m_pHttpRaw->PostRequest(L"http://127.0.0.1/x", L""), E_INVALIDARG);
    ClearJournal();
    PostUrl(L"http://127.0.0.1/q");
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request2", "'old=1'", 5)));
}

TEST_F(HttpRawSendTest, FreshObjectIsIdleAndHasNoAnswer)
{
    EXPECT_EQ(Status(), 1u);
    BSTR const untouched = SysAllocString(L"untouched");
    BSTR bstr = untouched;
    EXPECT_EQ(m_pHttpRaw->GetResponseData(&bstr), E_FAIL);
    EXPECT_EQ(bstr, untouched);
    SysFreeString(untouched);
    EXPECT_EQ(m_pHttpRaw->GetResponseData(nullptr), E_FAIL);
}

TEST_F(HttpRawSendTest, StatusNeedsAPlaceToGo)
{
    EXPECT_EQ(m_pHttpRaw->GetRequestStatus(nullptr), E_INVALIDARG);
    Post();
    EXPECT_EQ(m_pHttpRaw->GetRequestStatus(nullptr), E_INVALIDARG);
}

TEST_F(HttpRawSendTest, PostUrlTakesTheQueryAsData)
{
    EXPECT_EQ(PostUrl(L"http://127.0.0.1/p?a=1&b=2"), S_OK);
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(1, "/p")));
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'a=1&b=2'", 7)));
}

TEST_F(HttpRawSendTest, PostUrlSplitsAtTheFirstQuestionMark)
{
    PostUrl(L"http://127.0.0.1/p?a=1?b=2");
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(1, "/p")));
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'a=1?b=2'", 7)));
}

TEST_F(HttpRawSendTest, PostUrlWithAnEmptyQuerySendsNoBody)
{
    Post(L"http://127.0.0.1/p", L"old=1");
    ClearJournal();
    EXPECT_EQ(PostUrl(L"http://127.0.0.1/p?"), S_OK);
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(2, "/p")));
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request2", "null", 0)));
}

TEST_F(HttpRawSendTest, PostUrlWithoutQueryOnAFreshObjectSendsNoBody)
{
    EXPECT_EQ(PostUrl(L"http://127.0.0.1/p"), S_OK);
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "null", 0)));
}

TEST_F(HttpRawSendTest, PostUrlWithoutQuerySendsTheDataOfTheCallBefore)
{
    PostUrl(L"http://127.0.0.1/p?a=1");
    ClearJournal();
    EXPECT_EQ(PostUrl(L"http://127.0.0.1/q"), S_OK);
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(2, "/q")));
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request2", "'a=1'", 3)));
}

TEST_F(HttpRawSendTest, PostUrlThatBeginsWithAQuestionMarkIsSentWholeWithTheDataBefore)
{
    Post(L"http://127.0.0.1/p", L"old=1");
    ClearJournal();
    EXPECT_EQ(PostUrl(L"?a=1"), S_OK);
    EXPECT_THAT(Select(CALL_TRACE, "2| %3F"), ElementsAre("2| %3F%61%3D%31,\n"));
    EXPECT_THAT(Select(CALL_TRACE, "2| %6F"), ElementsAre("2| %6F%6C%64%3D%31,\n"));
    // What cannot be split has no host.
    EXPECT_THAT(Connects(), ElementsAre("InternetConnectW(session1, '', 0, null, null, 3, 0, 0)"));
}

TEST_F(HttpRawSendTest, PostRequestLeavesTheQueryInTheUrl)
{
    Post(L"http://127.0.0.1/p?q=1", L"a=1");
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(1, "/p?q=1")));
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'a=1'", 3)));
}

TEST_F(HttpRawSendTest, BodyIsUtf8)
{
    Post(L"http://127.0.0.1/p", L"\u00E4");
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'\xC3\xA4'", 2)));
}

TEST_F(HttpRawSendTest, BodyHasSurrogatePairsAsOneCharacter)
{
    Post(L"http://127.0.0.1/p", L"k=\U0001F600");
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'k=\xF0\x9F\x98\x80'", 6)));
}

TEST_F(HttpRawSendTest, ThreadThatCannotBeStartedIsAStatusNotAResult)
{
    m_system.m_bThreadsFail = true;
    EXPECT_EQ(StartPost(), S_OK);
    EXPECT_EQ(Status(), 2u);
    EXPECT_THAT(Statuses(), ElementsAre("2"));
    m_system.m_bThreadsFail = false;
    EXPECT_EQ(Post(), S_OK);
    EXPECT_EQ(Status(), 9u);
}

TEST_F(HttpRawSendTest, NoMemoryForTheRequestIsAnError)
{
    {
        const CFailingHeap memory({sizeof(CHttpRequest)}, m_pModule->Handle());
        EXPECT_EQ(StartPost(), E_FAIL);
    }
    EXPECT_EQ(Status(), 1u);
    EXPECT_THAT(TracedErrors(), ElementsAre("8| Out of memory,\n"));
    EXPECT_THAT(m_journal.Texts(CALL_THREAD), IsEmpty());
    EXPECT_EQ(Post(), S_OK);
    EXPECT_EQ(Status(), 9u);
}

TEST_F(HttpRawSendTest, NoMemoryForUrlOrDataIsAnErrorAndSendsNothing)
{
    const std::wstring url = L"http://127.0.0.1/" + std::wstring(500, L'u');
    const std::wstring data(600, L'd');
    for (const size_t length : {url.size(), data.size()})
    {
        SCOPED_TRACE(testing::Message() << "text of " << length << " characters");
        ClearJournal();
        const CFailingHeap memory({(length + 1) * sizeof(wchar_t)}, m_pModule->Handle());
        EXPECT_EQ(StartPost(url.c_str(), data.c_str()), E_FAIL);
        EXPECT_THAT(TracedErrors(), ElementsAre("8| Out of memory,\n"));
        EXPECT_THAT(m_journal.Texts(CALL_THREAD), IsEmpty());
        EXPECT_EQ(Status(), 1u);
    }
}

TEST_F(HttpRawSendTest, SessionThatCannotBeOpenedFailsTheRequest)
{
    m_winInet.m_sessions.Always(ERROR_INTERNET_INTERNAL_ERROR);
    EXPECT_EQ(Post(), S_OK);
    EXPECT_EQ(Status(), 2u);
    EXPECT_THAT(Connects(), ElementsAre("InternetConnectW(null, '127.0.0.1', 80, null, null, 3, 0, 0)"));
    EXPECT_THAT(Select(CALL_TRACE, "8|"), ElementsAre("8| InternetConnect failed!,dwError=6,\n"));
}

TEST_F(HttpRawSendTest, EveryObjectHasASessionOfItsOwn)
{
    Post();
    IHttpRaw* const pOther = m_pModule->CreateHttpRaw();
    ASSERT_NE(pOther, nullptr);
    EXPECT_EQ(pOther->PostRequest(L"http://127.0.0.3/", L"a=1"), S_OK);
    Finish();
    EXPECT_THAT(Select(CALL_NET, "InternetOpenW"), SizeIs(2));
    EXPECT_EQ(Connects().back(), "InternetConnectW(session2, '127.0.0.3', 80, null, null, 3, 0, 0)");
    pOther->Release();
}

TEST_F(HttpRawSendTest, ObjectThatNeverSentTouchesNoNetwork)
{
    ReleaseComponent();
    EXPECT_THAT(Net(), IsEmpty());
}

TEST_F(HttpRawSendTest, QuickWorkersStatusIsOverwrittenAndBecomesATimeoutByPoll)
{
    m_system.m_bThreadsHeld = false;
    bool bEnded = false;
    // The host's record of the status comes just before it is stored: hold the host there until the
    // worker has ended. The worker's own record may come before or after that one.
    const DWORD dwHost = GetCurrentThreadId();
    for (int nth = 1; nth <= 2; ++nth)
    {
        m_journal.On("2| emStatus=5,", nth,
                     [&]
                     {
                         if (GetCurrentThreadId() == dwHost)
                         {
                             bEnded = m_system.WaitForThreads();
                         }
                     });
    }
    EXPECT_EQ(StartPost(), S_OK);
    EXPECT_TRUE(bEnded);
    EXPECT_EQ(Status(), 5u);
    m_system.m_dwTick += 60000;
    EXPECT_EQ(Status(), 5u);
    m_system.m_dwTick += 1;
    EXPECT_EQ(Status(), 7u);
}

}  // namespace
