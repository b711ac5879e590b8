// The platform's dialog about a certificate over a host's window. Started by dialog_run.py, which runs the
// server and the desktop, and compares what has reached the server.
#include <windows.h>

#include <gmock/gmock.h>
#include <wininet.h>

#include <set>
#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/SideThread.h"
#include "system/dialog/CertificateHost.h"
#include "system/dialog/DesktopHost.h"
#include "system/HttpRawHost.h"
#include "system/ModuleTrace.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Problems = std::vector<std::wstring>;

constexpr char kNoParent[] =
    "2| CHttpRequest::GetParentWnd: Not set parent wnd. use Desktop window as parent wnd.,\n";

// A component that shows its dialogs over a window.
class CParentedHost : public CHttpRawHost
{
public:
    explicit CParentedHost(const CDesktopHost& desktop) { (*this)->SetParentWnd(desktop.Window()); }
};

// As the user's hand does it.
void ClickWithTheMouse(HWND hControl)
{
    RECT rect = {};
    GetWindowRect(hControl, &rect);
    SetCursorPos((rect.left + rect.right) / 2, (rect.top + rect.bottom) / 2);
    INPUT inputs[2] = {};
    inputs[0].type = INPUT_MOUSE;
    inputs[0].mi.dwFlags = MOUSEEVENTF_LEFTDOWN;
    inputs[1].type = INPUT_MOUSE;
    inputs[1].mi.dwFlags = MOUSEEVENTF_LEFTUP;
    EXPECT_EQ(SendInput(2, inputs, sizeof(INPUT)), 2u);
}

bool IsOver(HWND hUpper, HWND hLower)
{
    RECT upper = {};
    RECT lower = {};
    RECT common = {};
    GetWindowRect(hUpper, &upper);
    GetWindowRect(hLower, &lower);
    return IntersectRect(&common, &upper, &lower) != FALSE;
}

class DialogTest : public testing::Test
{
protected:
    // The user accepts each problem that a certificate has, and is not asked again in this process.
    void ExpectAsksOnce(const Problems& problems)
    {
        {
            CParentedHost host(m_desktop);
            EXPECT_EQ(PostAndAnswer(host, ServerUrl(kAddressedHost), IDOK, L"first=1"), problems);
            EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
            EXPECT_EQ(host.TakeAnswer(), L"first=1");
            ExpectServed("200 POST /echo \"first=1\"");

            // The server has closed the connection, so that the certificate is looked at again.
            EXPECT_THAT(PostAndAnswer(host, ServerUrl(kAddressedHost), IDOK, L"second=2"), IsEmpty());
            EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
            EXPECT_EQ(host.TakeAnswer(), L"second=2");
            ExpectServed("200 POST /echo \"second=2\"");
        }
        // Under another name, for which the platform has nothing remembered by itself.
        CParentedHost host(m_desktop);
        EXPECT_THAT(PostAndAnswer(host, ServerUrl(kNamedHost), IDOK, L"third=3"), IsEmpty());
        EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
        EXPECT_EQ(host.TakeAnswer(), L"third=3");
        ExpectServed("200 POST /echo \"third=3\"");
    }

    CDesktopHost m_desktop;
};

TEST_F(DialogTest, OpensOverTheHostsWindow)
{
    CParentedHost host(m_desktop);
    host.Post(ServerUrl(kNamedHost));
    const HWND hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);
    EXPECT_EQ(CDesktopHost::TitleOf(hDialog), L"Security Warning");
    EXPECT_THAT(CDesktopHost::TextsOf(hDialog),
                ElementsAre(L"There is a problem with the certificate for this site.", kUnknownIssuer,
                            L"Do you want to continue anyway?", L"Yes", L"No"));
    EXPECT_EQ(GetWindow(hDialog, GW_OWNER), m_desktop.Window());
    EXPECT_TRUE(IsOver(hDialog, m_desktop.Window()));
    EXPECT_NE(GetWindowThreadProcessId(hDialog, nullptr), GetCurrentThreadId());
    // A modal dialog: the user can do nothing else.
    EXPECT_FALSE(IsWindowEnabled(m_desktop.Window()));

    ClickWithTheMouse(GetDlgItem(hDialog, IDOK));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"a=1");
    ExpectServed("200 POST /echo \"a=1\"");
    EXPECT_FALSE(IsWindow(hDialog));
    EXPECT_TRUE(IsWindowEnabled(m_desktop.Window()));
}

// A certificate for a name does not fit the address: two problems, and a dialog for each.
TEST_F(DialogTest, AsksOncePerProcessAboutASelfSignedCertificate)
{
    ExpectAsksOnce({kUnknownIssuer, kWrongName});
}

// Wine finds the date first. The user's flags are remembered one by one.
TEST_F(DialogTest, AsksOncePerProcessAboutAnExpiredCertificate)
{
    ExpectAsksOnce({kWrongDate, kUnknownIssuer, kWrongName});
}

// What has been accepted for one host is not asked about another, and what comes new is.
TEST_F(DialogTest, AsksOnlyForWhatHasNotBeenAccepted)
{
    CParentedHost host(m_desktop);
    EXPECT_THAT(PostAndAnswer(host, ServerUrl(kNamedHost), IDOK), ElementsAre(kUnknownIssuer));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    ExpectServed("200 POST /echo \"a=1\"");
    EXPECT_THAT(PostAndAnswer(host, ServerUrl(kAddressedHost), IDOK), ElementsAre(kWrongName));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    ExpectServed("200 POST /echo \"a=1\"");
}

// Two dialogs at once: what is accepted in the second adds to what has been accepted in the first meanwhile.
TEST_F(DialogTest, AnswersOfTwoComponentsAddUp)
{
    CParentedHost slow(m_desktop);
    slow.Post(ServerUrl(kNamedHost), L"slow=1");
    const HWND hSlow = CDesktopHost::AwaitDialog(slow);
    ASSERT_NE(hSlow, nullptr);
    EXPECT_EQ(ProblemOf(hSlow), kWrongDate);

    CDesktopHost other;
    CParentedHost quick(other);
    quick.Post(ServerUrl(kAddressedHost), L"quick=2");
    HWND hDialog = nullptr;
    Problems problems;
    while ((hDialog = CDesktopHost::AwaitDialog(quick, hDialog, other.Window())) != nullptr)
    {
        problems.push_back(ProblemOf(hDialog));
        CDesktopHost::Press(hDialog, IDOK);
    }
    EXPECT_THAT(problems, ElementsAre(kWrongDate, kUnknownIssuer, kWrongName));
    EXPECT_EQ(quick.AwaitEnd(), Status{REQ_STATUS_DONE});
    ExpectServed("200 POST /echo \"quick=2\"");

    // The unknown issuer is not asked about.
    CDesktopHost::Press(hSlow, IDOK);
    EXPECT_EQ(CDesktopHost::AwaitDialog(slow, hSlow), nullptr);
    EXPECT_EQ(slow.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(slow.TakeAnswer(), L"slow=1");
    ExpectServed("200 POST /echo \"slow=1\"");
}

TEST_F(DialogTest, AsksOncePerProcessAboutAWrongName)
{
    ExpectAsksOnce({kUnknownIssuer, kWrongName});
}

TEST_F(DialogTest, CancelledMeansNotConnectedAndNothingSent)
{
    CParentedHost host(m_desktop);
    EXPECT_THAT(PostAndAnswer(host, ServerUrl(kAddressedHost), IDCANCEL), ElementsAre(kUnknownIssuer));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    EXPECT_TRUE(IsWindowEnabled(m_desktop.Window()));

    // Nothing has been accepted. To close the dialog is to cancel it.
    host.Post(ServerUrl(kAddressedHost));
    HWND hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);
    EXPECT_EQ(ProblemOf(hDialog), kUnknownIssuer);
    PostMessageW(hDialog, WM_CLOSE, 0, 0);
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});

    // One of two problems accepted: that one stays accepted.
    host.Post(ServerUrl(kAddressedHost));
    hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);
    CDesktopHost::Press(hDialog, IDOK);
    hDialog = CDesktopHost::AwaitDialog(host, hDialog);
    ASSERT_NE(hDialog, nullptr);
    EXPECT_EQ(ProblemOf(hDialog), kWrongName);
    CDesktopHost::Press(hDialog, IDCANCEL);
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
    EXPECT_THAT(PostAndAnswer(host, ServerUrl(kAddressedHost), IDCANCEL), ElementsAre(kWrongName));
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
}

TEST_F(DialogTest, WithoutAParentItOpensOverTheDesktop)
{
    const struct
    {
        const char* label;
        bool bSet;
        bool bDestroyed;
        bool bTraced;
    } rows[] = {{"a window", true, false, false},
                {"never set", false, false, true},
                {"destroyed before the send", true, true, true}};
    const CModuleTrace trace;
    size_t cRecords = 0;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.label);
        CDesktopHost desktop;
        CHttpRawHost host;
        if (row.bSet)
        {
            host->SetParentWnd(desktop.Window());
        }
        if (row.bDestroyed)
        {
            desktop.CloseWindow();
        }
        host.Post(ServerUrl(kNamedHost));
        const HWND hDialog = CDesktopHost::AwaitDialog(host);
        ASSERT_NE(hDialog, nullptr);
        EXPECT_EQ(GetWindow(hDialog, GW_OWNER), row.bTraced ? nullptr : desktop.Window());
        // A modal dialog disables its owner; the desktop must stay as it is.
        EXPECT_TRUE(IsWindowEnabled(GetDesktopWindow()));
        EXPECT_EQ(IsWindowEnabled(desktop.Window()) != FALSE, row.bTraced && !row.bDestroyed);
        std::vector<std::string> records = trace.OfWorkers();
        records.erase(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(cRecords));
        cRecords += records.size();
        if (row.bTraced)
        {
            EXPECT_THAT(records, Contains(kNoParent).Times(1));
        }
        else
        {
            EXPECT_THAT(records, Not(Contains(kNoParent)));
        }
        CDesktopHost::Press(hDialog, IDCANCEL);
        EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_NOT_CONNECTED});
        cRecords = trace.OfWorkers().size();
    }
}

// Windows destroys a window's owned ones with it. Wine leaves those of other threads, without an owner.
TEST_F(DialogTest, StaysOpenUnderWineWhenTheWindowGoes)
{
    CParentedHost host(m_desktop);
    host.Post(ServerUrl(kNamedHost));
    const HWND hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);
    m_desktop.CloseWindow();
    EXPECT_TRUE(CDesktopHost::PumpUntil(
        host, [&](unsigned long status)
        { return status != REQ_STATUS_SENDING || GetWindow(hDialog, GW_OWNER) == nullptr; }));
    EXPECT_TRUE(IsWindowVisible(hDialog));
    CDesktopHost::Press(hDialog, IDOK);
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"a=1");
    ExpectServed("200 POST /echo \"a=1\"");
}

// A second post while the dialog is open puts the first aside, whose dialog stays and leads to nothing.
TEST_F(DialogTest, OpensAgainForASecondPostWhileOneIsOpen)
{
    CParentedHost host(m_desktop);
    host.Post(ServerUrl(kNamedHost), L"first=1");
    const HWND hFirst = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hFirst, nullptr);
    host.Post(ServerUrl(kNamedHost), L"second=2");
    const HWND hSecond = CDesktopHost::AwaitDialog(host, hFirst);
    ASSERT_NE(hSecond, nullptr);
    EXPECT_TRUE(IsWindowVisible(hFirst));
    CDesktopHost::Press(hSecond, IDOK);
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"second=2");
    ExpectServed("200 POST /echo \"second=2\"");
    EXPECT_TRUE(IsWindowVisible(hFirst));
    // The dialog that has closed has enabled the window under the one that is still open.
    EXPECT_TRUE(IsWindowEnabled(m_desktop.Window()));
    CDesktopHost::Press(hFirst, IDOK);
    EXPECT_LT(host.Release(), 5000u);
    EXPECT_FALSE(IsWindow(hFirst));
}

// Keeps the platform's own time-out out of the way.
decltype(InternetSetOptionW)* g_pfnSetOption = nullptr;

BOOL WINAPI SetOptionWithALongTimeout(HINTERNET hInternet, DWORD dwOption, LPVOID pBuffer, DWORD dwLength)
{
    DWORD dwLong = 6000;
    return g_pfnSetOption(hInternet, dwOption,
                          dwOption == INTERNET_OPTION_RECEIVE_TIMEOUT ? &dwLong : pBuffer, dwLength);
}

TEST_F(DialogTest, TheUsersTimeDoesNotCountAndTheWindowLives)
{
    // A dialog takes its time to come on a busy machine.
    constexpr unsigned long kTimeoutSeconds = 3;
    constexpr ULONGLONG kOpenMs = 3500;
    const CImportPatch patch(CHttpRawHost::Module(), "InternetSetOptionW", SetOptionWithALongTimeout);
    g_pfnSetOption = patch.Original<decltype(InternetSetOptionW)>();
    CParentedHost host(m_desktop);
    host->SetTimeout(kTimeoutSeconds);
    host.Post(ServerUrl(kNamedHost, L"/stall"));
    const HWND hDialog = CDesktopHost::AwaitDialog(host);
    ASSERT_NE(hDialog, nullptr);

    const ULONGLONG opened = GetTickCount64();
    LRESULT answer = 0;
    CSideThread asking([&] { answer = SendMessageW(m_desktop.Window(), WM_APP, 7, 0); });
    const int cPaints = m_desktop.Paints();
    int cPolls = 0;
    std::set<unsigned long> statuses;
    EXPECT_TRUE(CDesktopHost::PumpUntil(host,
                                        [&](unsigned long status)
                                        {
                                            InvalidateRect(m_desktop.Window(), nullptr, TRUE);
                                            statuses.insert(status);
                                            ++cPolls;
                                            return GetTickCount64() - opened >= kOpenMs;
                                        }));
    asking.Join();
    EXPECT_THAT(statuses, ElementsAre(static_cast<unsigned long>(REQ_STATUS_SENDING)));
    EXPECT_GE(cPolls, 20);
    EXPECT_GE(m_desktop.Paints() - cPaints, 20);
    EXPECT_EQ(answer, CDesktopHost::kAnswer + 7);
    EXPECT_THAT(m_desktop.Messages(), ElementsAre(UINT{WM_APP}));

    // The clock starts afresh.
    const ULONGLONG closed = GetTickCount64();
    CDesktopHost::Press(hDialog, IDOK);
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT});
    const ULONGLONG elapsed = GetTickCount64() - closed;
    EXPECT_GE(elapsed, 3000u);
    EXPECT_LT(elapsed, 5500u);
    ExpectServed("499 POST /stall \"a=1\"");
}

class DialogWithoutDisplayTest : public testing::Test
{
};

TEST_F(DialogWithoutDisplayTest, TheRequestFailsAtOnce)
{
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(ServerUrl(kNamedHost)), Status{REQ_STATUS_FAILED});
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    // And again: nothing has been accepted.
    EXPECT_EQ(host.PostAndAwaitEnd(ServerUrl(kNamedHost)), Status{REQ_STATUS_FAILED});
    EXPECT_LT(host.Release(), 5000u);
}

}  // namespace
