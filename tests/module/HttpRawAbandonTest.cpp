// An exchange that is abandoned, by a release or by a send that overtakes it, while its worker is at any
// point of its way. From then on the worker asks nothing of its request any more, sends nothing, shows no
// dialog, makes no file, and leaves the exchange after it alone. The scripted handles tell a call with a
// number that is not the worker's own any more.
#include <ostream>

#include "module/HttpRawTest.h"

using testing::ElementsAreArray;

namespace
{

// What the worker's exchange would do.
enum Course
{
    READS_INTO_MEMORY,
    READS_INTO_FILE,
    ASKS_THE_USER,
    USER_ACCEPTED,
    SENDS_AGAIN,
    IS_REDIRECTED,
};

struct Moment
{
    const char* label;
    Course course;
    const char* entry;  // of the journal, in which the worker is held
    int nth = 1;
};

std::ostream& operator<<(std::ostream& stream, const Moment& moment)
{
    return stream << moment.label;
}

// Within the platform's calls, and between them, within the trace library.
constexpr Moment kMoments[] = {
    {"Connected", READS_INTO_MEMORY, "InternetGetConnectedState"},
    {"BeforeConnecting", READS_INTO_MEMORY, "2|--> CHttpRequest::OpenRequest"},
    {"Connecting", READS_INTO_MEMORY, "InternetConnectW"},
    {"Opening", READS_INTO_MEMORY, "HttpOpenRequestW"},
    {"FlagsAtOpening", READS_INTO_MEMORY, "InternetQueryOptionW"},
    {"FirstOption", READS_INTO_MEMORY, "InternetSetOptionW"},
    {"SecondOption", READS_INTO_MEMORY, "InternetSetOptionW", 2},
    {"ThirdOption", READS_INTO_MEMORY, "InternetSetOptionW", 3},
    {"LastOption", READS_INTO_MEMORY, "InternetSetOptionW", 4},
    {"Opened", READS_INTO_MEMORY, "2|<-- CHttpRequest::OpenRequest"},
    {"BeforeSending", READS_INTO_MEMORY, "2|--> CHttpRequest::SendRequest"},
    {"Sending", READS_INTO_MEMORY, "HttpSendRequestW"},
    {"Sent", READS_INTO_MEMORY, "2| Http request sent out here."},
    {"StatusCode", READS_INTO_MEMORY, "HttpQueryInfoW"},
    {"StatusCodeKnown", READS_INTO_MEMORY, "2| http status code"},
    {"Judged", READS_INTO_MEMORY, "2|<-- CHttpRequest::SendRequest"},
    {"BeforeReading", READS_INTO_MEMORY, "2|--> CHttpRequest::ReadInternetDataToBuffer"},
    {"Receiving", READS_INTO_MEMORY, "2| emStatus=6"},
    {"FirstRead", READS_INTO_MEMORY, "InternetReadFile"},
    {"SecondRead", READS_INTO_MEMORY, "InternetReadFile", 2},
    {"LastRead", READS_INTO_MEMORY, "InternetReadFile", 3},
    {"BeforeFile", READS_INTO_FILE, "2|--> CHttpRequest::ReadInternetDataToFile"},
    {"ReceivingFile", READS_INTO_FILE, "2| emStatus=6"},
    {"MakingFile", READS_INTO_FILE, "CreateFileW"},
    {"FirstReadForFile", READS_INTO_FILE, "InternetReadFile"},
    {"Writing", READS_INTO_FILE, "WriteFile"},
    {"LastReadForFile", READS_INTO_FILE, "InternetReadFile", 3},
    {"SendFailed", ASKS_THE_USER, "8| GetLastError"},
    {"BeforeDialog", ASKS_THE_USER, "2|--> CHttpRequest::PopIEErrorDlg"},
    {"ParentWindow", ASKS_THE_USER, "2| CHttpRequest::GetParentWnd"},
    {"Desktop", ASKS_THE_USER, "GetDesktopWindow"},
    {"Dialog", ASKS_THE_USER, "InternetErrorDlg"},
    {"DialogClosed", ASKS_THE_USER, "2| InternetErrorDlg closed"},
    {"AcceptedFlags", ASKS_THE_USER, "InternetQueryOptionW", 2},
    {"AcceptedOption", USER_ACCEPTED, "InternetSetOptionW", 5},
    {"Accepted", USER_ACCEPTED, "2|<-- CHttpRequest::PopIEErrorDlg"},
    {"BeforeResend", SENDS_AGAIN, "2|<-- CHttpRequest::HandleLastError"},
    {"Resending", SENDS_AGAIN, "HttpSendRequestW", 2},
    {"Location", IS_REDIRECTED, "HttpQueryInfoW", 2},
    {"LocationKnown", IS_REDIRECTED, "2| Url redirected!"},
    {"BeforeReopening", IS_REDIRECTED, "2|--> CHttpRequest::OpenRequest", 2},
    {"ConnectingAgain", IS_REDIRECTED, "InternetConnectW", 2},
    {"OpeningAgain", IS_REDIRECTED, "HttpOpenRequestW", 2},
};

class HttpRawAbandonTest : public HttpRawTest, public testing::WithParamInterface<Moment>
{
protected:
    // What only a worker does whose exchange goes on.
    Texts Effects() const
    {
        Texts effects;
        for (const char* function : {"HttpSendRequestW", "HttpQueryInfoW", "InternetReadFile", "CreateFileW",
                                     "InternetErrorDlg", "InternetQueryOptionW", "InternetSetOptionW"})
        {
            const Texts calls = Select(CALL_NET | CALL_FILE, function);
            effects.insert(effects.end(), calls.begin(), calls.end());
        }
        return effects;
    }

    void PostHeld(CHold& hold)
    {
        m_winInet.m_dialogs.Always(ERROR_SUCCESS);
        m_winInet.m_securityFlags.Always(0x2000);
        m_winInet.m_reads.Then({"fir"}).Then({"st"}).Then({});
        switch (GetParam().course)
        {
            case READS_INTO_MEMORY:
                break;
            case READS_INTO_FILE:
                m_pHttpRaw->SetDownloadFile(L"C:\\first");
                break;
            case ASKS_THE_USER:
            case USER_ACCEPTED:
                m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_INVALID_CA));
                break;
            case SENDS_AGAIN:
                m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_FORCE_RETRY));
                break;
            case IS_REDIRECTED:
                m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", L"http://127.0.0.2/q"));
                break;
        }
        PostInto(hold);
    }

    // A file that the worker had made is closed and deleted, and no other.
    void ExpectNoFileLeft() const
    {
        const bool bMade = m_journal.Count("CreateFileW") != 0;
        EXPECT_THAT(Select(CALL_FILE, "CloseHandle"), testing::SizeIs(bMade ? 1 : 0));
        EXPECT_EQ(Select(CALL_FILE, "DeleteFileW"), bMade ? Texts{"DeleteFileW('C:\\first')"} : Texts{});
    }
};

TEST_P(HttpRawAbandonTest, OvertakenExchangeLeavesTheNextOneAlone)
{
    CHold hold(m_journal, GetParam().entry, GetParam().nth);
    PostHeld(hold);
    m_pHttpRaw->SetDownloadFile(L"");
    m_winInet.m_attempts.Always({});
    m_winInet.m_reads.Always({});
    m_winInet.m_reads.Then({"second"});
    EXPECT_EQ(StartPost(), S_OK);
    m_system.LetGo();
    ASSERT_EQ(m_system.ExitCode(1), 0u);
    EXPECT_EQ(Status(), 9u);
    const Texts before = Effects();

    hold.LetGo();
    Finish();
    EXPECT_THAT(Effects(), ElementsAreArray(before));
    ExpectNoFileLeft();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(Response(), L"second");

    // What a user accepts counts only for an exchange that is not gone by then.
    m_winInet.m_securityFlags.Always(0);
    ClearJournal();
    Post();
    const std::string flags = GetParam().course == USER_ACCEPTED ? "0x2080" : "0x80";
    EXPECT_THAT(Select(CALL_NET, "InternetSetOptionW").front(),
                testing::HasSubstr(", 31, " + flags + ", 4)"));
}

TEST_P(HttpRawAbandonTest, ReleasedExchangeHasNoMoreEffect)
{
    CHold hold(m_journal, GetParam().entry, GetParam().nth);
    PostHeld(hold);
    const Texts before = Effects();
    ReleaseComponent([&] { hold.LetGo(); });
    EXPECT_THAT(Effects(), ElementsAreArray(before));
    ExpectNoFileLeft();
}

INSTANTIATE_TEST_SUITE_P(Moments, HttpRawAbandonTest, testing::ValuesIn(kMoments),
                         [](const testing::TestParamInfo<Moment>& moment)
                         { return std::string(moment.param.label); });

}  // namespace
