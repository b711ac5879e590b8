// The course of an exchange: the connection check, redirects and what they carry along, and its end.
#include "module/HttpRawTest.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class HttpRequestDriverTest : public HttpRawTest
{
protected:
    Texts Redirections() const { return Select(CALL_TRACE, "2| Url redirected!"); }
};

TEST_F(HttpRequestDriverTest, EndsBeforeAnyHandleIsOpenedWhenNotConnected)
{
    m_winInet.m_bConnected = false;
    Post();
    EXPECT_EQ(Status(), 3u);
    EXPECT_THAT(Net(), ElementsAre("InternetOpenW('Brixo Kestrin Desktop Http Agent', 0, null, null, 0)",
                                   "InternetGetConnectedState(2, 0)"));
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "3"));
    EXPECT_THAT(TracedErrors(), IsEmpty());
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestDriverTest, KeepsTheLastRequestOpenWhenNotConnectedAnyMore)
{
    Post();
    m_winInet.m_bConnected = false;
    ClearJournal();
    Post();
    EXPECT_EQ(Status(), 3u);
    EXPECT_THAT(Net(), ElementsAre("InternetGetConnectedState(2, 0)"));
}

TEST_F(HttpRequestDriverTest, ChecksTheConnectionOncePerExchange)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::Answer(L"302"));
    Post();
    EXPECT_THAT(Select(CALL_NET, "InternetGetConnectedState"), SizeIs(1));
}

TEST_F(HttpRequestDriverTest, FollowsARedirectWithTheSameBody)
{
    for (const wchar_t* code : {L"301", L"302", L"303", L"307"})
    {
        SCOPED_TRACE(testing::Message() << "code " << code);
        ReleaseComponent();
        m_winInet.m_handles.ForgetNames();
        m_pHttpRaw = m_pModule->CreateHttpRaw();
        ClearJournal();
        m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(code, L"https://other.example:8443/q?r=1"));
        m_pHttpRaw->SetTimeout(30);
        Post();
        EXPECT_EQ(Status(), 9u);
        EXPECT_THAT(
            Net(),
            ElementsAre(
                "InternetOpenW('Brixo Kestrin Desktop Http Agent', 0, null, null, 0)",
                "InternetGetConnectedState(2, 0)",
                "InternetConnectW(session1, '127.0.0.1', 80, null, null, 3, 0, 0)", OpenOf(1, "/p"),
                "InternetQueryOptionW(request1, 31, 4)", "InternetSetOptionW(request1, 31, 0x80, 4)",
                "InternetSetOptionW(request1, 2, 30000, 4)", "InternetSetOptionW(request1, 6, 30000, 4)",
                "InternetSetOptionW(request1, 5, 30000, 4)", SendOf("request1", "'a=1'", 3),
                "HttpQueryInfoW(request1, 19, 262, null)", "HttpQueryInfoW(request1, 33, 32770, null)",
                "InternetCloseHandle(request1)", "InternetCloseHandle(connect1)",
                "InternetConnectW(session1, 'other.example', 8443, null, null, 3, 0, 0)",
                "HttpOpenRequestW(connect2, 'POST', '/q?r=1', 'HTTP/1.1', null, null, 0x84C00900, 0)",
                "InternetQueryOptionW(request2, 31, 4)", "InternetSetOptionW(request2, 31, 0x80, 4)",
                "InternetSetOptionW(request2, 2, 30000, 4)", "InternetSetOptionW(request2, 6, 30000, 4)",
                "InternetSetOptionW(request2, 5, 30000, 4)", SendOf("request2", "'a=1'", 3),
                "HttpQueryInfoW(request2, 19, 262, null)", "InternetReadFile(request2, 16384)"));
        EXPECT_THAT(Redirections(),
                    ElementsAre("2| Url redirected!,szLocation=https://other.example:8443/q?r=1,\n"));
        EXPECT_THAT(Statuses(), ElementsAre("5", "5", "6", "9"));
    }
}

TEST_F(HttpRequestDriverTest, RedirectLoopEndsAsATimeoutAfterFiveOpens)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::Redirect(L"302", L"http://127.0.0.1/p"));
    Post();
    EXPECT_EQ(Status(), 7u);
    EXPECT_THAT(Opens(), SizeIs(5));
    EXPECT_THAT(Sends(), SizeIs(5));
    EXPECT_THAT(Redirections(), SizeIs(5));
    EXPECT_THAT(Reads(), IsEmpty());
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "7"));
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

TEST_F(HttpRequestDriverTest, RedirectWithoutTargetOpensTheSameUrlFiveTimes)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::Answer(L"302"));
    Post();
    EXPECT_EQ(Status(), 7u);
    EXPECT_THAT(Connects(), SizeIs(5));
    EXPECT_THAT(Connects(), Each("InternetConnectW(session1, '127.0.0.1', 80, null, null, 3, 0, 0)"));
    EXPECT_THAT(Redirections(), IsEmpty());
}

TEST_F(HttpRequestDriverTest, FourRedirectsAreFollowed)
{
    for (int redirects = 1; redirects <= 4; ++redirects)
    {
        m_winInet.m_attempts.Then(CScriptedWinInet::Answer(L"302"));
    }
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Opens(), SizeIs(5));
    EXPECT_THAT(Reads(), SizeIs(1));
}

TEST_F(HttpRequestDriverTest, EmptyTargetCountsAsNone)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", L""));
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(1, "/p"), OpenOf(2, "/p")));
    EXPECT_THAT(Redirections(), IsEmpty());
}

TEST_F(HttpRequestDriverTest, TakesATargetThatFillsTheBufferAndNoLongerOne)
{
    // 32770 bytes hold 16384 characters and the terminator.
    const std::wstring begin = L"http://127.0.0.1/";
    const std::wstring longest = begin + std::wstring(16384 - begin.size(), L'x');
    m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", longest));
    Post();
    const std::string path = "/" + std::string(16384 - begin.size(), 'x');
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(1, "/p"), OpenOf(2, path)));

    ClearJournal();
    m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", longest + L"x"));
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(3, "/p"), OpenOf(4, "/p")));
    EXPECT_THAT(Redirections(), IsEmpty());
}

TEST_F(HttpRequestDriverTest, TargetThatCannotBeSplitConnectsToNoHost)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", L"/relative"));
    Post();
    EXPECT_THAT(Connects(), ElementsAre("InternetConnectW(session1, '127.0.0.1', 80, null, null, 3, 0, 0)",
                                        "InternetConnectW(session1, '', 0, null, null, 3, 0, 0)"));
}

TEST_F(HttpRequestDriverTest, FailsWhenItCannotOpenAfterARedirect)
{
    m_winInet.m_connects.Then(kSucceeds).Then(kSucceeds).Then(kSucceeds).Then(kSucceeds).Then(12029);
    m_winInet.m_attempts.Always(CScriptedWinInet::Answer(L"302"));
    Post();
    EXPECT_EQ(Status(), 2u);
    EXPECT_THAT(Connects(), SizeIs(5));
    EXPECT_THAT(Sends(), SizeIs(4));
}

TEST_F(HttpRequestDriverTest, EveryOpenHasItsOwnResends)
{
    for (const wchar_t* code : {L"302", L"200"})
    {
        for (int sends = 1; sends <= 9; ++sends)
        {
            m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_FORCE_RETRY));
        }
        m_winInet.m_attempts.Then(CScriptedWinInet::Answer(code));
    }
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Sends(), SizeIs(20));
}

TEST_F(HttpRequestDriverTest, SecondSendForgetsTheRedirectOfTheFirst)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", L"http://other.example/q"));
    Post();
    ClearJournal();
    Post();
    EXPECT_THAT(Connects(), ElementsAre("InternetConnectW(session1, '127.0.0.1', 80, null, null, 3, 0, 0)"));
}

TEST_F(HttpRequestDriverTest, NewExchangeDropsTheAnswerOfTheOneBefore)
{
    m_winInet.m_reads.Then({"first"}).Then({});
    Post();
    EXPECT_EQ(Response(), L"first");
    m_winInet.m_attempts.Always(CScriptedWinInet::Answer(L"404"));
    Post();
    EXPECT_EQ(Status(), 0u);
    EXPECT_EQ(ResponseResult(), E_FAIL);
}

}  // namespace
