// An exchange that ends early, by release or by the next post, while its worker is in any of its calls: the
// worker does nothing more with its request, whose number the next exchange has got by then, asks nobody,
// and leaves files alone that it has not made.
#include <winsock2.h>

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

#include "support/Hold.h"
#include "support/loopback/LoopbackServer.h"
#include "system/HostWindow.h"
#include "system/HttpRawHost.h"
#include "system/ModuleWorkers.h"
#include "system/overlap/WorkerWatch.h"
#include "system/TempFile.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr UINT kGoOn = WM_APP + 1;
constexpr char kOldContent[] = "what stood in the file before";

struct Stage
{
    const char* label;
    const char* call;  // the worker is held when the platform has done it
    int nth = 1;
    int code = 200;  // what the server answers
    DWORD dwSendError = 0;
    bool bHandleClosed = true;  // the module knows the handle by then
    bool bFile = true;          // it is a download
    bool bFileMade = false;
};

std::ostream& operator<<(std::ostream& stream, const Stage& stage)
{
    return stream << stage.label;
}

class EarlyEndTest : public testing::TestWithParam<Stage>
{
protected:
    EarlyEndTest()
    {
        m_file.Write(kOldContent);
        m_host->SetDownloadFile(GetParam().bFile ? m_file.Path() : L"");
        if (GetParam().dwSendError != 0)
        {
            m_watch.EndNextSend(1, GetParam().dwSendError);
            m_watch.EndNextDialog(1, ERROR_SUCCESS);
        }
        m_host.Post(m_server.Url(L"/first"), L"first=1");
    }

    static void Answer(const CLoopbackRequest& request, CLoopbackConnection& connection)
    {
        const int code = request.strTarget == "/first" ? GetParam().code : 200;
        connection.Send(MakeAnswer(code, request.strBody, "Connection: close\r\n"));
        connection.Close();
    }

    // Makes the next exchange, and lets the worker of the ended one run to its end before that is sent.
    void RunBeside(CHttpRawHost& next)
    {
        next->SetDownloadFile(L"");
        CHold opened(m_watch.Calls(), "2: InternetSetOptionW 5");
        const auto post = [&] { next.Post(m_server.Url(L"/second"), L"other=2"); };
        if (GetParam().bHandleClosed)
        {
            m_watch.HandOn(m_watch.RequestOf(1), 2, post);
        }
        else
        {
            post();
        }
        EXPECT_TRUE(opened.Reached());
        // What a user has accepted for the next exchange only.
        DWORD dwFlags = SECURITY_FLAG_IGNORE_REVOCATION | SECURITY_FLAG_IGNORE_UNKNOWN_CA;
        InternetSetOptionW(m_watch.RequestOf(2), INTERNET_OPTION_SECURITY_FLAGS, &dwFlags, sizeof(dwFlags));
        m_hold.LetGo();
        EXPECT_EQ(m_workers.ExitCode(0), 0u);
    }

    void ExpectHarmless(CHttpRawHost& next)
    {
        EXPECT_EQ(next.AwaitEnd(), Status{REQ_STATUS_DONE});
        EXPECT_EQ(next.TakeAnswer(), L"other=2");

        std::vector<std::string> calls = m_watch.CallsOf(1);  // since it was held
        // A request that it opens is closed before anything is done with it.
        std::erase(calls, "InternetConnectW");
        std::erase(calls, "HttpOpenRequestW");
        EXPECT_THAT(calls,
                    ElementsAreArray(std::vector<std::string>(GetParam().bFileMade ? 1 : 0, "DeleteFileW")));
        EXPECT_THAT(m_watch.Faults(), IsEmpty());
        EXPECT_EQ(m_file.Read(), GetParam().bFileMade ? std::nullopt : std::optional(kOldContent));

        EXPECT_THAT(m_server.BodiesFor("/second"), ElementsAre("other=2"));

        EXPECT_EQ(next.PostAndAwaitEnd(m_server.Url(L"/third")), Status{REQ_STATUS_DONE});
        EXPECT_THAT(m_watch.CallsOf(3), Contains("InternetSetOptionW 31 0x80"));
    }

    const CTempFile m_file;
    CLoopbackServer m_server{Answer};
    CWorkerWatch m_watch;
    CModuleWorkers m_workers;
    CHold m_hold{m_watch.Calls(), std::string("1: ") + GetParam().call, GetParam().nth};
    CHttpRawHost m_host;
};

TEST_P(EarlyEndTest, OvertakenExchangeDoesNothingMore)
{
    ASSERT_TRUE(m_hold.Reached());
    m_watch.Calls().Clear();
    RunBeside(m_host);
    ExpectHarmless(m_host);
}

TEST_P(EarlyEndTest, ReleasedExchangeDoesNothingMore)
{
    CHttpRawHost other;
    CHostWindow window;
    ASSERT_TRUE(m_hold.Reached());
    m_watch.Calls().Clear();
    window.On(kGoOn, [&] { RunBeside(other); });
    window.Post(kGoOn);
    m_host.Release();
    ExpectHarmless(other);
}

INSTANTIATE_TEST_SUITE_P(
    Stages, EarlyEndTest,
    testing::Values(
        Stage{.label = "Connected", .call = "InternetConnectW", .bHandleClosed = false},
        Stage{.label = "Opened", .call = "HttpOpenRequestW", .bHandleClosed = false},
        Stage{.label = "FlagsQueried", .call = "InternetQueryOptionW 31"},
        Stage{.label = "FlagsSet", .call = "InternetSetOptionW 31"},
        Stage{.label = "FirstTimeoutSet", .call = "InternetSetOptionW 2"},
        Stage{.label = "SecondTimeoutSet", .call = "InternetSetOptionW 6"},
        Stage{.label = "LastTimeoutSet", .call = "InternetSetOptionW 5"},
        Stage{.label = "Sent", .call = "HttpSendRequestW"},
        Stage{.label = "ToSendAgain", .call = "HttpSendRequestW", .dwSendError = ERROR_INTERNET_FORCE_RETRY},
        Stage{.label = "ToAskTheUser", .call = "HttpSendRequestW", .dwSendError = ERROR_INTERNET_INVALID_CA},
        Stage{.label = "UserAsked", .call = "InternetErrorDlg", .dwSendError = ERROR_INTERNET_INVALID_CA},
        Stage{.label = "AcceptedFlagsQueried",
              .call = "InternetQueryOptionW 31",
              .nth = 2,
              .dwSendError = ERROR_INTERNET_INVALID_CA},
        Stage{.label = "AcceptedFlagsSet",
              .call = "InternetSetOptionW 31",
              .nth = 2,
              .dwSendError = ERROR_INTERNET_INVALID_CA},
        Stage{.label = "UserAskedAboutARedirect",
              .call = "InternetErrorDlg",
              .dwSendError = ERROR_HTTP_REDIRECT_NEEDS_CONFIRMATION},
        Stage{.label = "AnswerWithABody", .call = "HttpQueryInfoW 19"},
        Stage{.label = "AnswerForMemory", .call = "HttpQueryInfoW 19", .bFile = false},
        Stage{.label = "AnswerThatRedirects", .call = "HttpQueryInfoW 19", .code = 302},
        Stage{.label = "AnswerThatWantsAPassword", .call = "HttpQueryInfoW 19", .code = 407},
        Stage{.label = "LocationQueried", .call = "HttpQueryInfoW 33", .code = 302},
        Stage{.label = "ReadToMemory", .call = "InternetReadFile", .bFile = false},
        Stage{.label = "FileMade", .call = "CreateFileW", .bFileMade = true},
        Stage{.label = "ReadToTheFile", .call = "InternetReadFile", .bFileMade = true},
        Stage{.label = "Written", .call = "WriteFile", .bFileMade = true}),
    [](const testing::TestParamInfo<Stage>& stage) { return std::string(stage.param.label); });

}  // namespace
