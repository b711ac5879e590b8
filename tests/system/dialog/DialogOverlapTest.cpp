// The user answers the platform's dialog when its exchange has ended early: the form does not go through the
// next exchange, whose request has got the number of the closed handle, and what that one may do is not
// taken for accepted. Started by dialog_run.py.
#include <winsock2.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/Hold.h"
#include "support/loopback/LoopbackServer.h"
#include "system/dialog/CertificateHost.h"
#include "system/dialog/DesktopHost.h"
#include "system/HostWindow.h"
#include "system/HttpRawHost.h"
#include "system/ModuleWorkers.h"
#include "system/overlap/WorkerWatch.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UINT kGoOn = WM_APP + 1;
constexpr char kDialogClosed[] = "1: InternetErrorDlg";

class DialogOverlapTest : public testing::Test
{
protected:
    void PostUntilAsked()
    {
        m_host->SetParentWnd(m_desktop.Window());
        m_host.Post(ServerUrl(kNamedHost), L"ended=1");
        m_hDialog = CDesktopHost::AwaitDialog(m_host);
        ASSERT_NE(m_hDialog, nullptr);
    }

    // Accepts; the worker stays where the dialog has closed. The dialog needs the host's thread for that.
    void Accept()
    {
        CDesktopHost::Press(m_hDialog, IDOK);
        const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
        while (m_watch.Calls().Count(kDialogClosed) == 0 && GetTickCount64() < deadline)
        {
            CDesktopHost::Turn();
        }
        EXPECT_EQ(m_watch.Calls().Count(kDialogClosed), 1u);
    }

    // Lets the worker run to its end while the next exchange is about to be sent.
    void RunBesideTheNext()
    {
        EXPECT_TRUE(m_opened.Reached());
        // What a user has accepted for the next exchange only.
        DWORD dwFlags = SECURITY_FLAG_IGNORE_REVOCATION | SECURITY_FLAG_IGNORE_UNKNOWN_CA;
        InternetSetOptionW(m_watch.RequestOf(2), INTERNET_OPTION_SECURITY_FLAGS, &dwFlags, sizeof(dwFlags));
        m_closed.LetGo();
        EXPECT_EQ(m_workers.ExitCode(0), 0u);
    }

    void ExpectHarmless(CHttpRawHost& next)
    {
        m_opened.LetGo();
        EXPECT_EQ(next.AwaitEnd(), Status{REQ_STATUS_DONE});
        EXPECT_EQ(next.TakeAnswer(), L"later=2");
        EXPECT_THAT(m_watch.Faults(), IsEmpty());
        EXPECT_THAT(m_server.BodiesFor("/"), ElementsAre("later=2"));

        CHttpRawHost later;
        later->SetParentWnd(m_desktop.Window());
        EXPECT_THAT(PostAndAnswer(later, ServerUrl(kNamedHost), IDCANCEL), ElementsAre(kUnknownIssuer));
        EXPECT_EQ(later.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
    }

    CLoopbackServer m_server{[](const CLoopbackRequest& request, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(200, request.strBody, "Connection: close\r\n")); }};
    CWorkerWatch m_watch;
    CModuleWorkers m_workers;
    CDesktopHost m_desktop;
    CHold m_closed{m_watch.Calls(), kDialogClosed};
    CHold m_opened{m_watch.Calls(), "2: InternetSetOptionW 5"};
    CHttpRawHost m_host;
    HWND m_hDialog = nullptr;
};

TEST_F(DialogOverlapTest, AnswerAfterTheReleaseLeadsToNothing)
{
    CHttpRawHost other;
    CHostWindow window;
    PostUntilAsked();
    window.On(kGoOn,
              [&]
              {
                  Accept();
                  m_watch.HandOn(m_watch.RequestOf(1), 2,
                                 [&] { other.Post(m_server.Url(L"/"), L"later=2"); });
                  RunBesideTheNext();
              });
    window.Post(kGoOn);
    m_host.Release();
    ExpectHarmless(other);
}

TEST_F(DialogOverlapTest, AnswerAfterANewPostLeadsToNothing)
{
    PostUntilAsked();
    m_watch.HandOn(m_watch.RequestOf(1), 2,
                   [this]
                   {
                       m_host.Post(m_server.Url(L"/"), L"later=2");
                       Accept();
                   });
    RunBesideTheNext();
    ExpectHarmless(m_host);
}

}  // namespace
