// The last release while the platform's dialog is open: it waits for the user, or for what ends the wait,
// and serves the host's messages meanwhile. Started by dialog_run.py.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/SideThread.h"
#include "system/dialog/CertificateHost.h"
#include "system/dialog/DesktopHost.h"
#include "system/HttpRawHost.h"
#include "system/ModuleTrace.h"
#include "system/ModuleWorkers.h"
#include "system/NothingLeft.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr DWORD kKilledOnQuit = 0xFFFFFFFD;
constexpr DWORD kKilledOnTimeout = 0xFFFFFFFE;
constexpr char kQuitRecord[] = "8| quit process, kill the thread!!!,\n";
constexpr char kTimeoutRecord[] = "8| wait the thread time out, kill the thread!!!,\n";
constexpr DWORD kAtOnceMs = 5000;

// Looks at the release from another thread, and ends it by answering the dialog.
struct User
{
    HWND hWindow;
    HWND hDialog;
    WORD wControlId;
    LRESULT answer = 0;
    bool bPainted = false;
    bool bDialogStayed = false;

    // A message that is answered has been taken out of the queue of the thread that releases.
    LRESULT Ask(WPARAM wNumber) const
    {
        DWORD_PTR result = 0;
        SendMessageTimeoutW(hWindow, WM_APP, wNumber, 0, SMTO_NORMAL, kPatienceMs, &result);
        return static_cast<LRESULT>(result);
    }

    void Act(const CDesktopHost& desktop)
    {
        answer = Ask(5);
        for (const UINT message : {UINT{WM_KEYDOWN}, UINT{WM_COMMAND}, UINT{WM_TIMER}})
        {
            PostMessageW(hWindow, message, 0, 0);
        }
        // A window paints when nothing else is left in the queue.
        const int cPaints = desktop.Paints();
        InvalidateRect(hWindow, nullptr, TRUE);
        const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
        while (desktop.Paints() == cPaints && GetTickCount64() < deadline)
        {
            Sleep(5);
        }
        bPainted = desktop.Paints() > cPaints;
        bDialogStayed = IsWindowVisible(hDialog) != FALSE;
        CDesktopHost::Press(hDialog, wControlId);
    }
};

class DialogReleaseTest : public testing::Test
{
protected:
    HWND PostUntilAsked(CHttpRawHost& host)
    {
        host->SetParentWnd(m_desktop.Window());
        host.Post(ServerUrl(kNamedHost));
        const HWND hDialog = CDesktopHost::AwaitDialog(host);
        EXPECT_NE(hDialog, nullptr);
        return hDialog;
    }

    void ExpectWaitsForTheUser(WORD wControlId)
    {
        CHttpRawHost host;
        User user{m_desktop.Window(), PostUntilAsked(host), wControlId};
        const size_t cMessages = m_desktop.Messages().size();
        CSideThread thread([&] { user.Act(m_desktop); });
        EXPECT_LT(host.Release(), kAtOnceMs);
        thread.Join();
        EXPECT_EQ(user.answer, CDesktopHost::kAnswer + 5);
        EXPECT_TRUE(user.bPainted);
        EXPECT_TRUE(user.bDialogStayed);
        EXPECT_EQ(m_desktop.Messages().size(), cMessages + 1) << "input has reached the window";
        EXPECT_FALSE(IsWindow(user.hDialog));
        EXPECT_TRUE(IsWindowEnabled(m_desktop.Window()));
    }

    // Until the worker does nothing but wait for the user. One that is killed while it draws its dialog holds
    // a lock that Wine needs for all windows, and the host hangs.
    bool AwaitStanding(const CModuleWorkers& workers, CHttpRawHost& host) const
    {
        int cIdles = 0;
        do
        {
            cIdles = m_desktop.Idles();
            if (!CDesktopHost::PumpUntil(host, [this](unsigned long) { return m_desktop.Idles() > 0; }) ||
                !workers.AwaitBlocked(0))
            {
                return false;
            }
            CDesktopHost::Turn();
        } while (m_desktop.Idles() != cIdles);
        return true;
    }

    void ExpectKilled(const CModuleWorkers& workers, CHttpRawHost& host, DWORD dwExitCode)
    {
        EXPECT_LT(host.Release(), kAtOnceMs);
        EXPECT_EQ(workers.ExitCode(0), dwExitCode);
        const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
        while (CDesktopHost::FindDialog() != nullptr && GetTickCount64() < deadline)
        {
            CDesktopHost::Turn();
        }
        EXPECT_EQ(CDesktopHost::FindDialog(), nullptr) << "a window of a thread that has ended";
        // No one enables it any more.
        EXPECT_FALSE(IsWindowEnabled(m_desktop.Window()));
    }

    // The host's own loop; the quit message's code.
    static int RunMessageLoop()
    {
        const UINT_PTR timer = SetTimer(nullptr, 0, kPatienceMs, nullptr);
        MSG msg = {};
        while (GetMessageW(&msg, nullptr, 0, 0) > 0 && msg.message != WM_TIMER)
        {
            DispatchMessageW(&msg);
        }
        KillTimer(nullptr, timer);
        EXPECT_EQ(msg.message, UINT{WM_QUIT});
        return static_cast<int>(msg.wParam);
    }

    // The user is asked as if nothing had been.
    void ExpectAsksAgain()
    {
        CHttpRawHost host;
        host->SetParentWnd(m_desktop.Window());
        EXPECT_THAT(PostAndAnswer(host, ServerUrl(kNamedHost), IDCANCEL), ElementsAre(kUnknownIssuer));
        EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
    }

    CDesktopHost m_desktop;
};

// Closing the request does not close its dialog. What the user answers then leads to nothing.
TEST_F(DialogReleaseTest, WaitsForTheUserAndServesTheQueue)
{
    const CModuleTrace trace;
    const CModuleWorkers workers;
    ExpectWaitsForTheUser(IDCANCEL);
    EXPECT_THAT(trace.OfWorkers(), Contains("2| InternetErrorDlg closed,dwResult=1223,\n"));
    EXPECT_THAT(trace.OfThisThread(), Not(Contains(kQuitRecord)));
    EXPECT_EQ(workers.ExitCode(0), 0u);
    ExpectWaitsForTheUser(IDOK);
    EXPECT_THAT(trace.OfWorkers(), Contains("2| InternetErrorDlg closed,dwResult=0,\n"));
    EXPECT_THAT(trace.OfWorkers(), Not(Contains("2| Http request sent out here.,\n")));
    ExpectAsksAgain();
}

TEST_F(DialogReleaseTest, LeavesNothingBehind)
{
    for (const WORD wControlId : {WORD{IDOK}, WORD{IDCANCEL}})
    {
        SCOPED_TRACE(wControlId);
        ExpectNothingLeft(
            [this, wControlId]
            {
                CHttpRawHost host;
                const User user{m_desktop.Window(), PostUntilAsked(host), wControlId};
                CSideThread thread(
                    [&user]
                    {
                        user.Ask(0);
                        CDesktopHost::Press(user.hDialog, user.wControlId);
                    });
                EXPECT_LT(host.Release(), kAtOnceMs);
                thread.Join();
            });
    }
}

TEST_F(DialogReleaseTest, IsEndedByAQuitMessage)
{
    const CModuleTrace trace;
    const CModuleWorkers workers;
    CHttpRawHost host;
    PostUntilAsked(host);
    ASSERT_TRUE(AwaitStanding(workers, host));
    PostQuitMessage(7);
    ExpectKilled(workers, host, kKilledOnQuit);
    EXPECT_THAT(trace.OfThisThread(), Contains(kQuitRecord).Times(1));
    EXPECT_EQ(RunMessageLoop(), 0)
        << "the quit message that the module posts again has no code of the host's";
    ExpectAsksAgain();
}

DWORD g_dwPassed = 0;

DWORD WINAPI TickCountLater()
{
    return GetTickCount() + g_dwPassed;
}

// A user who takes more than a minute, and whatever message comes next. The module's clock is put forward.
TEST_F(DialogReleaseTest, IsEndedByAMessageAfterAMinute)
{
    const CModuleTrace trace;
    const CModuleWorkers workers;
    const CImportPatch clock(CHttpRawHost::Module(), "GetTickCount", TickCountLater);
    CHttpRawHost host;
    PostUntilAsked(host);
    ASSERT_TRUE(AwaitStanding(workers, host));
    CSideThread later(
        [this]
        {
            SendMessageW(m_desktop.Window(), WM_APP, 0, 0);  // the release waits
            g_dwPassed = 60001;
            PostMessageW(m_desktop.Window(), WM_TIMER, 0, 0);
        });
    ExpectKilled(workers, host, kKilledOnTimeout);
    later.Join();
    EXPECT_THAT(trace.OfThisThread(), Contains(kTimeoutRecord).Times(1));
    ExpectAsksAgain();
}

}  // namespace
