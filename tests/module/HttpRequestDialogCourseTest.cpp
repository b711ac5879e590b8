// The error dialog's place in the course of an exchange: which errors lead to what, what is done before it
// and after it, and when the clock stands.
#include "module/HttpRawTest.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr wchar_t kTarget[] = L"http://other.example/q";

struct Row
{
    const char* label;
    CScriptedAttempt attempt;  // the first one; it names a target, too
    DWORD dwError;             // that the user is asked about
};

const Row kRows[] = {
    {"answer 407", {kSucceeds, L"407", kTarget}, 12014},
    {"credentials", {12014, std::nullopt, kTarget}, 12014},
    {"certificate", {12045, std::nullopt, kTarget}, 12045},
    {"another scheme", {12048, std::nullopt, kTarget}, 12048},
    {"confirmation of a redirect", {12168, std::nullopt, kTarget}, 12168},
};

class HttpRequestDialogCourseTest : public HttpRawTest
{
protected:
    // A module without accepted flags, whose next exchange begins with that attempt.
    void BeginAnew(const CScriptedAttempt& attempt, DWORD dwDialog)
    {
        Unload();
        m_winInet.m_handles.ForgetNames();
        m_pModule = Load();
        m_pHttpRaw = m_pModule->CreateHttpRaw();
        ClearJournal();
        m_winInet.m_attempts.Then(attempt);
        m_winInet.m_dialogs.Always(dwDialog);
    }

    // The option calls for the security flags.
    Texts FlagCalls() const
    {
        Texts calls = Select(CALL_NET, "Internet");
        std::erase_if(calls,
                      [](const std::string& call) { return call.find(", 31, ") == std::string::npos; });
        return calls;
    }
};

TEST_F(HttpRequestDialogCourseTest, AcceptedFlagsAreTakenForEveryErrorThatIsAskedAbout)
{
    for (const Row& row : kRows)
    {
        SCOPED_TRACE(row.label);
        BeginAnew(row.attempt, ERROR_SUCCESS);
        m_winInet.m_securityFlags.Then(0).Then(0x100).Then(0);
        Post();
        EXPECT_EQ(Status(), 9u);
        ASSERT_THAT(Dialogs(), SizeIs(1));
        EXPECT_EQ(Dialogs()[0],
                  "InternetErrorDlg(desktop, request1, " + std::to_string(row.dwError) + ", 7, null)");
        Texts calls = FlagCalls();
        calls.resize(4);
        EXPECT_THAT(calls, ElementsAre("InternetQueryOptionW(request1, 31, 4)",
                                       "InternetSetOptionW(request1, 31, 0x80, 4)",
                                       "InternetQueryOptionW(request1, 31, 4)",
                                       "InternetSetOptionW(request1, 31, 0x100, 4)"));
        m_winInet.m_securityFlags.Always(0);
        ClearJournal();
        Post();
        EXPECT_EQ(FlagCalls().back().substr(FlagCalls().back().find("31, ")), "31, 0x180, 4)");
    }
}

TEST_F(HttpRequestDialogCourseTest, OnlyAConfirmedRedirectTakesTheTarget)
{
    for (const Row& row : kRows)
    {
        SCOPED_TRACE(row.label);
        BeginAnew(row.attempt, ERROR_SUCCESS);
        Post();
        EXPECT_EQ(Status(), 9u);
        const size_t redirects = row.dwError == 12168 ? 1 : 0;
        EXPECT_EQ(m_journal.Count("HttpQueryInfoW(request1, 33,"), redirects);
        EXPECT_EQ(m_journal.Count("2| Url redirected!"), redirects);
        EXPECT_THAT(Opens(), SizeIs(1 + redirects));
        EXPECT_THAT(Sends(), SizeIs(2));
    }
}

TEST_F(HttpRequestDialogCourseTest, ResultEndsTheExchangeWhateverWasAskedAbout)
{
    for (const Row& row : kRows)
    {
        SCOPED_TRACE(row.label);
        BeginAnew(row.attempt, ERROR_CANCELLED);
        Post();
        EXPECT_EQ(Status(), 3u);
        EXPECT_THAT(Sends(), SizeIs(1));
        for (const DWORD dwResult : {DWORD{1}, DWORD{12014}, DWORD{0xFFFFFFFF}})
        {
            SCOPED_TRACE(testing::Message() << "result " << dwResult);
            BeginAnew(row.attempt, dwResult);
            Post();
            EXPECT_EQ(Status(), 2u);
            EXPECT_THAT(Sends(), SizeIs(1));
            EXPECT_THAT(Reads(), IsEmpty());
        }
    }
}

class HttpRequestDialogClockTest : public HttpRawTest
{
protected:
    HttpRequestDialogClockTest()
    {
        m_pHttpRaw->SetTimeout(5);
        m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(12045));
        m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    }
};

TEST_F(HttpRequestDialogClockTest, StandsBeforeTheParentWindowIsLookedFor)
{
    MoveTickAt("GetDesktopWindow", 1, 600000);
    CHold dialog(m_journal, "InternetErrorDlg");
    PostInto(dialog);
    EXPECT_EQ(Status(), 5u);
    dialog.LetGo();
    Finish();
}

TEST_F(HttpRequestDialogClockTest, RunsAgainBeforeTheResultIsTraced)
{
    CHold closed(m_journal, "2| InternetErrorDlg closed");
    MoveTickAt("InternetErrorDlg", 1, 600000);
    PostInto(closed);
    EXPECT_EQ(StatusAfter(5000), 5u) << "from the closing on";
    EXPECT_EQ(StatusAfter(1), 7u) << "it runs";
    closed.LetGo();
    Finish();
}

// The tick count is 0 in the moment of the pause: the clock takes that for running, and does not begin anew.
TEST_F(HttpRequestDialogClockTest, BeginsAnewOnlyWhenItStood)
{
    m_system.m_dwTick = 0xFFFFFF00;
    MoveTickAt("HttpSendRequestW", 1, 0x100);
    MoveTickAt("InternetErrorDlg", 1, 100);
    CHold resend(m_journal, "HttpSendRequestW", 2);
    PostInto(resend);
    m_system.m_dwTick = 0xFFFFFF00 + 10;
    EXPECT_EQ(Status(), 5u);
    m_system.m_dwTick = 0xFFFFFF00 + 250;
    EXPECT_EQ(Status(), 5u);
    resend.LetGo();
    Finish();
}

}  // namespace
