// A proxy that wants a password: the platform asks the user for it over the host's window, and the form goes
// through, or not. Started by squid_run.py, which runs the proxy and the desktop, and looks into the proxy's
// log.
#include <windows.h>
#include <wininet.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/dialog/DesktopHost.h"
#include "system/dialog/PasswordDialog.h"
#include "system/HttpRawHost.h"
#include "system/proxy/ProxyUser.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kMostDialogs = 10;
// So that a product without that limit fails the test in bounded time.
constexpr int kDialogPatience = kMostDialogs + 3;

std::string Setting(const char* pszName)
{
    const char* const value = std::getenv(pszName);
    if (value == nullptr)
    {
        std::printf("PasswordTest: %s is not set; squid_run.py starts this program\n", pszName);
        std::fflush(stdout);
        std::_Exit(3);
    }
    return value;
}

unsigned short ProxyPort()
{
    return static_cast<unsigned short>(std::atoi(Setting("KVHTTP_PROXY_PORT").c_str()));
}

// Of the one user whom the proxy knows.
Credentials RightOnes()
{
    const std::string user = Setting("KVHTTP_PROXY_USER");
    const std::string password = Setting("KVHTTP_PROXY_PASSWORD");
    return {{user.begin(), user.end()}, {password.begin(), password.end()}};
}

Credentials WrongOnes()
{
    return {RightOnes().user, L"wrong"};
}

class PasswordTest : public testing::Test
{
protected:
    PasswordTest() { m_user.SetSystemProxy(m_port); }

    void Post(CHttpRawHost& host)
    {
        host->SetParentWnd(m_desktop.Window());
        host.Post(m_server.Url(L"/form"), L"name=value");
    }

    // Each dialog is told whether to go on and with what. Returns how many there were.
    static int Answer(CHttpRawHost& host, void (*pfnAnswer)(const CPasswordDialog&))
    {
        int dialogs = 0;
        HWND hDialog = nullptr;
        while (dialogs < kDialogPatience && (hDialog = CDesktopHost::AwaitDialog(host, hDialog)) != nullptr)
        {
            ++dialogs;
            pfnAnswer(CPasswordDialog(hDialog));
        }
        return dialogs;
    }

    static void EnterRightOnes(const CPasswordDialog& dialog) { dialog.Enter(RightOnes()); }
    static void Cancel(const CPasswordDialog& dialog) { dialog.Cancel(); }

    static void ExpectDone(CHttpRawHost& host)
    {
        EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
        EXPECT_EQ(host.TakeAnswer(), L"answer");
    }

    // It came by the proxy, once for each exchange that ended well, and without what is for the proxy alone.
    void ExpectOriginHasForms(size_t count)
    {
        const std::vector<CLoopbackRequest> requests = m_server.Requests();
        ASSERT_EQ(requests.size(), count);
        for (const CLoopbackRequest& request : requests)
        {
            EXPECT_EQ(request.strMethod, "POST");
            EXPECT_EQ(request.strTarget, "/form");
            EXPECT_EQ(request.strBody, "name=value");
            EXPECT_THAT(request.Header("Via"), testing::HasSubstr("kvhttpproxy"));
            EXPECT_EQ(request.CountHeaders("Proxy-Authorization"), 0u);
        }
    }

    const unsigned short m_port = ProxyPort();
    CProxyUser m_user;
    CLoopbackServer m_server{[](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(200, "answer")); }};
    CDesktopHost m_desktop;
};

TEST_F(PasswordTest, IsAskedForOverTheHostsWindow)
{
    CHttpRawHost host;
    Post(host);
    const HWND hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);
    EXPECT_EQ(GetWindow(hDialog, GW_OWNER), m_desktop.Window());
    EXPECT_FALSE(IsWindowEnabled(m_desktop.Window())) << "the dialog is not modal";
    EXPECT_NE(GetWindowThreadProcessId(hDialog, nullptr), GetCurrentThreadId());
    const CPasswordDialog dialog(hDialog);
    dialog.ExpectAsksForProxy(L"127.0.0.1:" + std::to_wstring(m_port), L"kvHttp test proxy");
    EXPECT_EQ(dialog.Entered(), (Credentials{L"", L""}));
    EXPECT_FALSE(dialog.IsToBeSaved());
    ExpectOriginHasForms(0);

    dialog.Enter(RightOnes());
    ExpectDone(host);
    ExpectOriginHasForms(1);
    EXPECT_TRUE(IsWindowEnabled(m_desktop.Window()));
    EXPECT_EQ(CDesktopHost::FindDialog(), nullptr);
    EXPECT_THAT(host.SeenStatuses(),
                testing::AnyOf(ElementsAre(REQ_STATUS_SENDING, REQ_STATUS_DONE),
                               ElementsAre(REQ_STATUS_SENDING, REQ_STATUS_RECEIVING, REQ_STATUS_DONE)));
}

TEST_F(PasswordTest, ServesTheComponentsNextFormsButNotAnotherComponents)
{
    CHttpRawHost first;
    for (int dialogs : {1, 0, 0})
    {
        Post(first);
        EXPECT_EQ(Answer(first, EnterRightOnes), dialogs);
        ExpectDone(first);
    }
    CHttpRawHost second;
    Post(second);
    // Wine keeps the credentials with the session, which each component has for itself; Windows keeps them
    // for the process.
    EXPECT_EQ(Answer(second, EnterRightOnes), IsWine() ? 1 : 0);
    ExpectDone(second);
    ExpectOriginHasForms(4);
}

// The form is sent ten times at most: what the user enters into the tenth dialog never is.
TEST_F(PasswordTest, IsAskedForTenTimesAtMost)
{
    static int s_dialogs = 0;
    static int s_right = 0;
    const struct
    {
        const char* label;
        int right;
        int dialogs;
        HttpRequestStatus emStatus;
    } rows[] = {{"right in the second dialog", 2, 2, REQ_STATUS_DONE},
                {"right in the ninth", 9, 9, REQ_STATUS_DONE},
                {"right in the tenth", 10, 10, REQ_STATUS_TIMEOUT},
                {"wrong in each", 0, 10, REQ_STATUS_TIMEOUT}};
    size_t forms = 0;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.label);
        s_dialogs = 0;
        s_right = row.right;
        CHttpRawHost host;
        Post(host);
        EXPECT_EQ(Answer(host, [](const CPasswordDialog& dialog)
                         { dialog.Enter(++s_dialogs == s_right ? RightOnes() : WrongOnes()); }),
                  row.dialogs);
        EXPECT_EQ(host.AwaitEnd(), Status{row.emStatus});
        forms += row.emStatus == REQ_STATUS_DONE;
        EXPECT_EQ(host.TakeAnswer().has_value(), row.emStatus == REQ_STATUS_DONE);
        ExpectOriginHasForms(forms);
    }
}

TEST_F(PasswordTest, CancelledIsNotConnected)
{
    CHttpRawHost host;
    Post(host);
    const int dialogs = Answer(host, Cancel);
    const Status status = host.AwaitEnd();
    if (IsWine())
    {
        // Wine's dialog cannot be cancelled: it answers a press of Cancel as if nothing were wrong, and so
        // the form is sent again, and the dialog comes back until there have been ten.
        EXPECT_EQ(dialogs, kMostDialogs);
        EXPECT_EQ(status, Status{REQ_STATUS_TIMEOUT});
    }
    else
    {
        EXPECT_EQ(dialogs, 1);
        EXPECT_EQ(status, Status{REQ_STATUS_NOT_CONNECTED});
    }
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    ExpectOriginHasForms(0);
}

// Says what the platform promises where Wine's dialog, once cancelled, says that all is well.
class CHonestDialog
{
public:
    CHonestDialog() { s_pThis = this; }
    ~CHonestDialog() { s_pThis = nullptr; }
    CHonestDialog(const CHonestDialog&) = delete;
    CHonestDialog& operator=(const CHonestDialog&) = delete;

private:
    static DWORD WINAPI Show(HWND hWnd, HINTERNET hRequest, DWORD dwError, DWORD dwFlags, LPVOID* ppData)
    {
        const DWORD dwResult =
            s_pThis->m_show.Original<decltype(InternetErrorDlg)>()(hWnd, hRequest, dwError, dwFlags, ppData);
        return dwResult == ERROR_SUCCESS ? DWORD{ERROR_CANCELLED} : dwResult;
    }

    static inline CHonestDialog* s_pThis = nullptr;

    CImportPatch m_show{CHttpRawHost::Module(), "InternetErrorDlg", Show};
};

TEST_F(PasswordTest, CancelledWhereTheDialogSaysSoIsNotConnected)
{
    const CHonestDialog honest;
    CHttpRawHost host;
    for (const bool bWrongFirst : {false, true})
    {
        SCOPED_TRACE(bWrongFirst ? "after a wrong password" : "at once");
        Post(host);
        HWND hDialog = CDesktopHost::AwaitDialog(host);
        ASSERT_NE(hDialog, nullptr);
        if (bWrongFirst)
        {
            CPasswordDialog(hDialog).Enter(WrongOnes());
            hDialog = CDesktopHost::AwaitDialog(host, hDialog);
            ASSERT_NE(hDialog, nullptr);
        }
        CPasswordDialog(hDialog).Cancel();
        EXPECT_EQ(CDesktopHost::AwaitDialog(host, hDialog), nullptr);
        EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
        EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    }
    ExpectOriginHasForms(0);
    // The component is as good as new: a user who gave up may try again.
    Post(host);
    EXPECT_EQ(Answer(host, EnterRightOnes), 1);
    ExpectDone(host);
    ExpectOriginHasForms(1);
}

TEST_F(PasswordTest, TimeInTheDialogCausesNoTimeout)
{
    CHttpRawHost host;
    host->SetTimeout(2);
    Post(host);
    const HWND hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);
    const ULONGLONG end = GetTickCount64() + 2300;
    EXPECT_TRUE(CDesktopHost::PumpUntil(host, [end](unsigned long status)
                                        { return status != REQ_STATUS_SENDING || GetTickCount64() >= end; }));
    EXPECT_EQ(CDesktopHost::FindDialog(), hDialog);
    CPasswordDialog(hDialog).Enter(RightOnes());
    ExpectDone(host);
    ExpectOriginHasForms(1);
}

TEST_F(PasswordTest, IsAskedForByFirefoxsProxyToo)
{
    m_user.BrowseWithFirefox(
        "user_pref(\"network.proxy.type\", 1);\n"
        "user_pref(\"network.proxy.http\", \"127.0.0.1\");\n"
        "user_pref(\"network.proxy.http_port\", " +
        std::to_string(m_port) + ");\n");
    m_user.SetSystemProxy(1);  // nobody listens there
    CHttpRawHost host;
    Post(host);
    EXPECT_EQ(Answer(host, EnterRightOnes), 1);
    ExpectDone(host);
    ExpectOriginHasForms(1);
}

TEST_F(PasswordTest, SecureFormDoesNotReachItsServerUnderWine)
{
    CHttpRawHost host;
    host->SetParentWnd(m_desktop.Window());
    host.Post(L"https://127.0.0.1:" + std::to_wstring(m_server.Port()) + L"/form", L"name=value");
    EXPECT_EQ(Answer(host, EnterRightOnes), 1);
    // Wine takes the connection to the proxy for the tunnel that the proxy has just refused: it sends the
    // form there, in the clear, which the proxy calls a bad request. Windows asks for the tunnel again, in
    // which this server does not speak TLS.
    EXPECT_EQ(host.AwaitEnd(), (Status{IsWine() ? REQ_STATUS_HTTP_ERROR : REQ_STATUS_FAILED}));
    EXPECT_THAT(m_server.Requests(), IsEmpty());
}

}  // namespace
