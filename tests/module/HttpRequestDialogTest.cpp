// The error dialog: what its results mean, over which window it appears, the security flags that the
// user accepts in it, and its place on the clock.
#include "module/HttpRawTest.h"

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace
{

constexpr char kNoParent[] =
    "2| CHttpRequest::GetParentWnd: Not set parent wnd. use Desktop window as parent wnd.,\n";

class HttpRequestDialogTest : public HttpRawTest
{
protected:
    // The first attempt fails with an error for the dialog; later ones succeed.
    HttpRequestDialogTest() { m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12045)); }

    Texts SecurityFlags() const
    {
        Texts values;
        for (const std::string& text : Select(CALL_NET, "InternetSetOptionW"))
        {
            if (text.find(", 31, ") != std::string::npos)
            {
                values.push_back(text.substr(text.find("0x")));
            }
        }
        return values;
    }
};

TEST_F(HttpRequestDialogTest, AcceptedErrorIsSentAgainWithTheFlagsOfTheRequest)
{
    for (const DWORD dwResult : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_INTERNET_FORCE_RETRY}})
    {
        SCOPED_TRACE(testing::Message() << "result " << dwResult);
        m_pHttpRaw->SetTimeout(1);
        m_winInet.m_dialogs.Always(dwResult);
        m_winInet.m_securityFlags.Then(0).Then(0x100);
        Post();
        EXPECT_EQ(Status(), 9u);
        EXPECT_THAT(
            m_journal.Texts(CALL_NET | CALL_WINDOW),
            ElementsAre("InternetOpenW('Brixo Kestrin Desktop Http Agent', 0, null, null, 0)",
                        "InternetGetConnectedState(2, 0)",
                        "InternetConnectW(session1, '127.0.0.1', 80, null, null, 3, 0, 0)", OpenOf(1, "/p"),
                        "InternetQueryOptionW(request1, 31, 4)", "InternetSetOptionW(request1, 31, 0x80, 4)",
                        "InternetSetOptionW(request1, 2, 1000, 4)",
                        "InternetSetOptionW(request1, 6, 1000, 4)",
                        "InternetSetOptionW(request1, 5, 1000, 4)", SendOf("request1", "'a=1'", 3),
                        "GetDesktopWindow()", "InternetErrorDlg(desktop, request1, 12045, 7, null)",
                        "InternetQueryOptionW(request1, 31, 4)", "InternetSetOptionW(request1, 31, 0x100, 4)",
                        SendOf("request1", "'a=1'", 3), "HttpQueryInfoW(request1, 19, 262, null)",
                        "InternetReadFile(request1, 16384)"));
        EXPECT_THAT(Select(CALL_TRACE, "2| InternetErrorDlg"),
                    ElementsAre("2| InternetErrorDlg closed,dwResult=" + std::to_string(dwResult) + ",\n"));

        // A fresh module for the next row.
        Unload();
        ClearJournal();
        m_winInet.m_handles.ForgetNames();
        m_pModule = Load();
        m_pHttpRaw = m_pModule->CreateHttpRaw();
        m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12045));
    }
}

TEST_F(HttpRequestDialogTest, CancelledDialogMeansNotConnected)
{
    m_winInet.m_dialogs.Always(ERROR_CANCELLED);
    Post();
    EXPECT_EQ(Status(), 3u);
    EXPECT_THAT(Sends(), SizeIs(1));
    EXPECT_THAT(Reads(), IsEmpty());
    EXPECT_THAT(Select(CALL_TRACE, "2| InternetErrorDlg"),
                ElementsAre("2| InternetErrorDlg closed,dwResult=1223,\n"));
    EXPECT_THAT(Select(CALL_NET, "InternetQueryOptionW"), SizeIs(1));
}

TEST_F(HttpRequestDialogTest, AnyOtherResultIsAFailure)
{
    for (const DWORD dwResult : {DWORD{1}, DWORD{5}, DWORD{1222}, DWORD{1224}, DWORD{12031}, DWORD{12033},
                                 DWORD{12045}, DWORD{0xFFFFFFFF}})
    {
        SCOPED_TRACE(testing::Message() << "result " << dwResult);
        ClearJournal();
        m_winInet.m_attempts.Always(CScriptedWinInet::FailingSend(12045));
        m_winInet.m_dialogs.Always(dwResult);
        Post();
        EXPECT_EQ(Status(), 2u);
        EXPECT_THAT(Sends(), SizeIs(1));
        EXPECT_THAT(Reads(), IsEmpty());
        EXPECT_THAT(Select(CALL_NET, "InternetQueryOptionW"), SizeIs(1));
    }
}

// The flags belong to the process, not to a server.
TEST_F(HttpRequestDialogTest, WhatIsAcceptedForOneServerHoldsForAnother)
{
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    m_winInet.m_securityFlags.Then(0).Then(SECURITY_FLAG_IGNORE_UNKNOWN_CA);
    Post(L"https://first.example/p");
    EXPECT_THAT(Dialogs(), SizeIs(1));

    m_winInet.m_securityFlags.Always(0);
    ReleaseComponent();
    ClearJournal();
    m_pHttpRaw = m_pModule->CreateHttpRaw();
    Post(L"https://second.example/p");
    EXPECT_THAT(Connects(), ElementsAre(testing::HasSubstr("'second.example', 443")));
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x180, 4)"));
}

TEST_F(HttpRequestDialogTest, AcceptedFlagsStayForEveryLaterRequestOfTheProcess)
{
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    m_winInet.m_securityFlags.Then(0).Then(0x100);
    Post();
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x80, 4)", "0x100, 4)"));

    ClearJournal();
    Post();
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x180, 4)"));

    ClearJournal();
    ReleaseComponent();
    m_pHttpRaw = m_pModule->CreateHttpRaw();
    m_winInet.m_securityFlags.Always(0x2000);
    Post();
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x2180, 4)"));
}

TEST_F(HttpRequestDialogTest, FlagsOfSeveralDialogsAddUp)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12038));
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    m_winInet.m_securityFlags.Then(0).Then(0x100).Then(0x1000).Then(0);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x80, 4)", "0x100, 4)", "0x1100, 4)"));
    ClearJournal();
    Post();
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x1180, 4)"));
}

TEST_F(HttpRequestDialogTest, FlagsThatCannotBeQueriedAddNothing)
{
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    m_winInet.m_securityFlags.Then(0).Then(std::nullopt).Then(0);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x80, 4)", "0x0, 4)"));
    ClearJournal();
    Post();
    EXPECT_THAT(SecurityFlags(), ElementsAre("0x80, 4)"));
}

TEST_F(HttpRequestDialogTest, ConfirmedRedirectOpensAgainAtItsTarget)
{
    for (const DWORD dwResult : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_INTERNET_FORCE_RETRY}})
    {
        SCOPED_TRACE(testing::Message() << "result " << dwResult);
        ClearJournal();
        m_winInet.m_attempts.Always({});
        m_winInet.m_attempts.Then({12168, std::nullopt, L"https://other.example/q"});
        m_winInet.m_dialogs.Always(dwResult);
        Post();
        EXPECT_EQ(Status(), 9u);
        EXPECT_THAT(Connects(), SizeIs(2));
        EXPECT_THAT(Connects().back(),
                    testing::EndsWith("(session1, 'other.example', 443, null, null, 3, 0, 0)"));
        EXPECT_THAT(Sends(), SizeIs(2));
        EXPECT_THAT(Select(CALL_TRACE, "2| Url redirected!"),
                    ElementsAre("2| Url redirected!,szLocation=https://other.example/q,\n"));
    }
}

TEST_F(HttpRequestDialogTest, ConfirmedRedirectWithoutTargetOpensTheSameUrlAgain)
{
    m_winInet.m_attempts.Always({});
    m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12168));
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Opens(), ElementsAre(OpenOf(1, "/p"), OpenOf(2, "/p")));
}

TEST_F(HttpRequestDialogTest, ConfirmedRedirectsCountAsRedirects)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::FailingSend(12168));
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    Post();
    EXPECT_EQ(Status(), 7u);
    EXPECT_THAT(Opens(), SizeIs(5));
    EXPECT_THAT(Dialogs(), SizeIs(5));
}

TEST_F(HttpRequestDialogTest, RefusedRedirectEndsTheExchange)
{
    m_winInet.m_attempts.Always({12168, std::nullopt, L"https://other.example/q"});
    m_winInet.m_dialogs.Always(ERROR_CANCELLED);
    Post();
    EXPECT_EQ(Status(), 3u);
    EXPECT_THAT(Opens(), SizeIs(1));
    EXPECT_THAT(Select(CALL_TRACE, "2| Url redirected!"), IsEmpty());
}

TEST_F(HttpRequestDialogTest, AppearsOverTheParentWindow)
{
    m_system.m_windows = {4};
    m_pHttpRaw->SetParentWnd(FakeWindow(4));
    Post();
    EXPECT_THAT(m_journal.Texts(CALL_WINDOW), ElementsAre("IsWindow(window4)"));
    EXPECT_THAT(Dialogs(), ElementsAre("InternetErrorDlg(window4, request1, 12045, 7, null)"));
    EXPECT_THAT(Trace(), Not(Contains(kNoParent)));
    EXPECT_THAT(Trace(), Contains("2| CHttpRequest::SetParentWnd,hWndParent=0x0000000000120A04,\n"));
}

TEST_F(HttpRequestDialogTest, AppearsOverTheDesktopWhenTheParentWindowIsGone)
{
    m_pHttpRaw->SetParentWnd(FakeWindow(4));
    Post();
    EXPECT_THAT(m_journal.Texts(CALL_WINDOW), ElementsAre("IsWindow(window4)", "GetDesktopWindow()"));
    EXPECT_THAT(Dialogs(), ElementsAre("InternetErrorDlg(desktop, request1, 12045, 7, null)"));
    EXPECT_THAT(Trace(), Contains(kNoParent));
}

TEST_F(HttpRequestDialogTest, AppearsOverTheDesktopWithoutAParentWindow)
{
    Post();
    EXPECT_THAT(m_journal.Texts(CALL_WINDOW), ElementsAre("GetDesktopWindow()"));
    EXPECT_THAT(Trace(), Contains(kNoParent));
    EXPECT_THAT(Trace(), Contains("2| CHttpRequest::SetParentWnd,hWndParent=0x0000000000000000,\n"));
}

TEST_F(HttpRequestDialogTest, ParentWindowSetWhileItRunsIsForTheNextRequest)
{
    m_system.m_windows = {1, 2};
    m_pHttpRaw->SetParentWnd(FakeWindow(1));
    StartPost();
    EXPECT_EQ(m_pHttpRaw->SetParentWnd(FakeWindow(2)), S_OK);
    Finish();
    m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12045));
    Post();
    EXPECT_THAT(Dialogs(), ElementsAre("InternetErrorDlg(window1, request1, 12045, 7, null)",
                                       "InternetErrorDlg(window2, request2, 12045, 7, null)"));
}

TEST_F(HttpRequestDialogTest, DoesNotAppearForARequestThatIsReleased)
{
    CHold send(m_journal, "HttpSendRequestW");
    PostInto(send);
    m_journal.On("InternetCloseHandle(request1)", 1, [&] { send.LetGo(); });
    ReleaseComponent();
    EXPECT_THAT(Dialogs(), IsEmpty());
    EXPECT_EQ(Statuses().back(), "2");
}

TEST_F(HttpRequestDialogTest, TimeInTheDialogDoesNotCount)
{
    m_pHttpRaw->SetTimeout(5);
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    MoveTickAt("HttpSendRequestW", 1, 4000);
    CHold dialog(m_journal, "InternetErrorDlg");
    CHold resend(m_journal, "HttpSendRequestW", 2);
    PostInto(dialog);
    // The clock stands at four seconds while the dialog is open, and begins anew when it closes.
    EXPECT_EQ(StatusAfter(600000), 5u);
    dialog.LetGo();
    ASSERT_TRUE(resend.Reached());
    EXPECT_EQ(StatusAfter(5000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
    resend.LetGo();
    Finish();
}

TEST_F(HttpRequestDialogTest, TimeBeforeTheDialogCountsWhileItIsOpen)
{
    m_pHttpRaw->SetTimeout(5);
    MoveTickAt("HttpSendRequestW", 1, 5001);
    CHold dialog(m_journal, "InternetErrorDlg");
    PostInto(dialog);
    EXPECT_EQ(Status(), 7u);
    dialog.LetGo();
    Finish();
}

}  // namespace
