// The last release amid an exchange, stage by stage: meanwhile the host's thread serves its message queue,
// without input, and afterwards nothing is left. What lets each exchange go on is done by a window of the
// host when a message reaches it, so a release that serves no messages does not end.
#include <winsock2.h>

#include <process.h>
#include <wininet.h>

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/HostWindow.h"
#include "system/HttpRawHost.h"
#include "system/ModuleWorkers.h"
#include "system/NothingLeft.h"
#include "system/TempFile.h"
#include "system/UnreachableServers.h"

namespace
{

using testing::ElementsAreArray;

// Much less than the time-out of the exchanges here, which is a minute.
constexpr DWORD kReleaseBoundMs = 10000;
constexpr UINT kLetGo = WM_APP + 1;
constexpr UINT kAnswer = WM_APP + 2;

// The edges of what counts as input, and what a window cannot do without. None is the thread's last message:
// the one that lets the exchange go on comes behind them.
const std::vector<UINT>& DispatchedMessages()
{
    static const std::vector<UINT> messages = {
        WM_PAINT, WM_SIZE,       WM_ERASEBKGND, WM_TIMECHANGE, 0xFF,  // the last before the keyboard
        0x109,                                                        // the first behind it
        0x110,    WM_SYSCOMMAND,                                      // around WM_COMMAND
        0x114,                                                        // behind WM_TIMER
        0x1FF,    0x20B,                                              // around the mouse
        WM_USER,  WM_APP + 100,  0xC000,
    };
    return messages;
}

const std::vector<UINT>& SwallowedMessages()
{
    static const std::vector<UINT> messages = {
        WM_KEYDOWN, WM_KEYUP,     WM_CHAR,        WM_SYSKEYDOWN, WM_SYSKEYUP,    0x108,         WM_COMMAND,
        WM_TIMER,   WM_MOUSEMOVE, WM_LBUTTONDOWN, WM_LBUTTONUP,  WM_RBUTTONDOWN, WM_MOUSEWHEEL,
    };
    return messages;
}

// Mixes both kinds, so that none hides behind its neighbours.
void PostMessages(const CHostWindow& window)
{
    const std::vector<UINT>& dispatched = DispatchedMessages();
    const std::vector<UINT>& swallowed = SwallowedMessages();
    for (size_t i = 0; i < dispatched.size() || i < swallowed.size(); ++i)
    {
        if (i < dispatched.size())
        {
            window.Post(dispatched[i]);
        }
        if (i < swallowed.size())
        {
            window.Post(swallowed[i]);
        }
    }
}

// Posts, releases and looks at what the window got. Windows wakes a blocked worker when its handle is closed,
// so that there the release may be over before the queue is served.
void ReleaseWithMessages(CHttpRawHost& host, CHostWindow& window)
{
    PostMessages(window);
    window.Post(kLetGo);
    EXPECT_LT(host.Release(), kReleaseBoundMs);
    std::vector<UINT> expected = DispatchedMessages();
    expected.push_back(kLetGo);
    if (IsWine() || !window.Seen().empty())
    {
        EXPECT_THAT(window.Seen(), ElementsAreArray(expected));
    }
    window.Clear();
}

struct Stage
{
    const char* label;
    CLoopbackServer::ReadMode mode;
    size_t cchForm;
    std::string sent;  // what the server answers before it stalls
    bool bFile;
    unsigned long status;  // what the host sees then
};

std::ostream& operator<<(std::ostream& stream, const Stage& stage)
{
    return stream << stage.label;
}

class ReleaseStageTest : public testing::TestWithParam<Stage>
{
protected:
    void Answer(CLoopbackConnection& connection) const
    {
        connection.Send(GetParam().sent);
        SetEvent(m_hSent);
        connection.Stall();
        connection.Reset();
    }

    void Round(const std::wstring& form)
    {
        CLoopbackServer server([this](const CLoopbackRequest&, CLoopbackConnection& connection)
                               { Answer(connection); }, GetParam().mode);
        m_window.On(kLetGo, [&server] { server.Release(); });
        const CModuleWorkers workers;
        const CTempFile file;
        CHttpRawHost host;
        if (GetParam().bFile)
        {
            host->SetDownloadFile(file.Path());
        }
        host.Post(server.Url(L"/"), form);
        EXPECT_EQ(WaitForSingleObject(m_hSent, kPatienceMs), WAIT_OBJECT_0);
        EXPECT_TRUE(host.AwaitStatus(static_cast<HttpRequestStatus>(GetParam().status)));
        EXPECT_TRUE(workers.AwaitBlocked(0));
        m_window.Clear();
        ReleaseWithMessages(host, m_window);
        EXPECT_EQ(file.Exists(), !GetParam().bFile) << "the target file is the only one to delete";
        EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
    }

    CHostWindow m_window;
    HANDLE m_hSent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

TEST_P(ReleaseStageTest, ServesTheQueueAndLeavesNothing)
{
    const std::wstring form(GetParam().cchForm, L'x');
    ExpectNothingLeft([&] { Round(form); });
    CloseHandle(m_hSent);
}

INSTANTIATE_TEST_SUITE_P(
    Stages, ReleaseStageTest,
    testing::Values(
        // The server takes only the head: the form fills the buffers and gets stuck.
        Stage{"Sending", CLoopbackServer::READ_HEAD_ONLY, 16 * 1024 * 1024, "", false, REQ_STATUS_SENDING},
        Stage{"BeforeTheHead", CLoopbackServer::READ_WHOLE, 3, "", false, REQ_STATUS_SENDING},
        Stage{"InTheStatusLine", CLoopbackServer::READ_WHOLE, 3, "HTTP/1.1 20", false, REQ_STATUS_SENDING},
        Stage{"InTheHead", CLoopbackServer::READ_WHOLE, 3, "HTTP/1.1 200 OK\r\nContent-Le", false,
              REQ_STATUS_SENDING},
        Stage{"BeforeTheBody", CLoopbackServer::READ_WHOLE, 3,
              "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n", false, REQ_STATUS_RECEIVING},
        Stage{"InTheBody", CLoopbackServer::READ_WHOLE, 3,
              "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + MakeBytes(40000), false,
              REQ_STATUS_RECEIVING},
        Stage{"InAChunk", CLoopbackServer::READ_WHOLE, 3,
              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\nonly", false, REQ_STATUS_RECEIVING},
        Stage{"BeforeTheFilesFirstByte", CLoopbackServer::READ_WHOLE, 3,
              "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n", true, REQ_STATUS_RECEIVING},
        Stage{"InTheFile", CLoopbackServer::READ_WHOLE, 3,
              "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + MakeBytes(300000), true,
              REQ_STATUS_RECEIVING}),
    [](const testing::TestParamInfo<Stage>& stage) { return std::string(stage.param.label); });

void AnswerAtOnce(const CLoopbackRequest&, CLoopbackConnection& connection)
{
    connection.Send(MakeAnswer(200, "ok", "Connection: close\r\n"));
}

// Makes what the platform keeps after its first exchange.
void ExchangeOnce(const CLoopbackServer& server)
{
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
}

// The worker has hardly begun, or not at all; whatever it has reached by then, it ends.
TEST(ReleaseBeginTest, RightAfterThePostNothingIsLeft)
{
    CLoopbackServer server(AnswerAtOnce);
    ExchangeOnce(server);
    ExpectNothingLeft(
        [&server]
        {
            const CTempFile file;
            CHttpRawHost host;
            host->SetDownloadFile(file.Path());
            host.Post(server.Url(L"/"));
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        },
        20);
}

decltype(&InternetConnectW) g_pfnConnect = nullptr;
HANDLE g_hConnecting = nullptr;
HANDLE g_hGoOn = nullptr;

HINTERNET WINAPI HoldBeforeConnecting(HINTERNET hSession, LPCWSTR pszHost, INTERNET_PORT port,
                                      LPCWSTR pszUser, LPCWSTR pszPassword, DWORD dwService, DWORD dwFlags,
                                      DWORD_PTR context)
{
    SetEvent(g_hConnecting);
    WaitForSingleObject(g_hGoOn, kPatienceMs);
    return g_pfnConnect(hSession, pszHost, port, pszUser, pszPassword, dwService, dwFlags, context);
}

// There is no handle yet that the release could close: the worker finds out by itself, and sends nothing.
TEST(ReleaseBeginTest, BeforeTheFirstByteNothingIsSent)
{
    CLoopbackServer server(AnswerAtOnce);
    ExchangeOnce(server);
    const CImportPatch hold(CHttpRawHost::Module(), "InternetConnectW", HoldBeforeConnecting);
    g_pfnConnect = hold.Original<decltype(InternetConnectW)>();
    g_hConnecting = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_hGoOn = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CHostWindow window;
    window.On(kLetGo, [] { SetEvent(g_hGoOn); });
    ExpectNothingLeft(
        [&]
        {
            CHttpRawHost host;
            host.Post(server.Url(L"/"));
            EXPECT_EQ(WaitForSingleObject(g_hConnecting, kPatienceMs), WAIT_OBJECT_0);
            ReleaseWithMessages(host, window);
        });
    EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
    EXPECT_EQ(server.Requests().size(), 1u) << "a released request was sent";
    CloseHandle(g_hConnecting);
    CloseHandle(g_hGoOn);
}

// Wine leaves a connection that hangs to the system, whatever the time-out, and closing the request does not
// wake it. Here the window's answer to the message is to end the server, and the next try is refused.
TEST(ReleaseBeginTest, WhileConnectingServesTheQueueAndLeavesNothing)
{
    ExpectNothingLeft(
        []
        {
            const CModuleWorkers workers;
            CFullServer server;
            CHostWindow window;
            window.On(kLetGo, [&server] { server.Close(); });
            CHttpRawHost host;
            host.Post(server.Url());
            EXPECT_TRUE(workers.AwaitBlocked(0));
            ReleaseWithMessages(host, window);
        },
        1);
}

// A message that another thread sends has its answer at once: the host is not frozen.
struct Sender
{
    HWND hWnd;
    DWORD_PTR answers[2];
};

unsigned __stdcall SendMessages(void* sender)
{
    Sender& to = *static_cast<Sender*>(sender);
    // Sent, not posted: the wait hands on what is input, too.
    SendMessageTimeoutW(to.hWnd, WM_COMMAND, 0, 0, SMTO_NORMAL, kReleaseBoundMs, &to.answers[0]);
    SendMessageTimeoutW(to.hWnd, kAnswer, 0, 0, SMTO_NORMAL, kReleaseBoundMs, &to.answers[1]);
    PostMessageW(to.hWnd, kLetGo, 0, 0);
    return 0;
}

int g_cTimerCalls = 0;

void CALLBACK CountTimerCall(HWND, UINT, UINT_PTR, DWORD)
{
    ++g_cTimerCalls;
}

TEST(ReleaseWaitTest, AnswersSentMessagesAndRunsNoTimers)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Stall();
            connection.Close();
        });
    CHostWindow window;
    window.On(WM_COMMAND, [] {});
    window.On(kAnswer, [] { Sleep(100); });  // long enough for a timer
    window.On(kLetGo, [&server] { server.Release(); });
    CHttpRawHost host;
    host.Post(server.Url(L"/"));
    ASSERT_TRUE(server.AwaitRequests(1, kPatienceMs));
    const UINT_PTR timer = SetTimer(nullptr, 0, 10, CountTimerCall);
    SetTimer(window.Handle(), 1, 10, nullptr);

    Sender sender = {window.Handle(), {}};
    const HANDLE hSender =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, SendMessages, &sender, 0, nullptr));
    EXPECT_LT(host.Release(), kReleaseBoundMs);
    if (IsWine())  // Windows has ended the worker, and the wait, before a message is sent
    {
        EXPECT_EQ(sender.answers[0], 1u);
        EXPECT_EQ(sender.answers[1], 1u);
        EXPECT_THAT(window.Seen(), testing::ElementsAre(UINT{WM_COMMAND}, kAnswer, kLetGo));
        EXPECT_EQ(g_cTimerCalls, 0);
    }
    window.Clear();
    WaitForSingleObject(hSender, kPatienceMs);
    CloseHandle(hSender);
    KillTimer(nullptr, timer);
}

}  // namespace
