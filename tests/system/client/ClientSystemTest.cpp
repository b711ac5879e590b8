// The helper with the module that was built, loaded by its path, over real sockets.
#include <gmock/gmock.h>

#include <functional>
#include <optional>

#include "kvHttp/Client.h"
#include "support/loopback/LoopbackServer.h"
#include "system/HostWindow.h"
#include "system/TempFile.h"

using kvHttp::Answer;
using kvHttp::CClient;
using kvHttp::Outcome;
using kvHttp::Progress;
using namespace std::chrono_literals;

namespace
{

constexpr DWORD kPatienceMs = 20000;
// Much less than the time-outs of the exchanges here: what returns by then has not waited for one.
constexpr ULONGLONG kAtOnceMs = 5000;
constexpr size_t kDownload = 3 * 1024 * 1024 + 1;

bool Await(const std::function<bool()>& condition)
{
    for (const ULONGLONG begin = GetTickCount64(); GetTickCount64() - begin < kPatienceMs;)
    {
        if (condition())
        {
            return true;
        }
        Sleep(5);
    }
    return false;
}

// A worker's own reference may go a moment after the client's.
bool AwaitUnloaded()
{
    return Await([] { return GetModuleHandleW(L"kvHttp.dll") == nullptr; });
}

class ClientSystemTest : public testing::Test
{
protected:
    ClientSystemTest()
    {
        m_client.OnChange([this](const Progress&) { SetEvent(m_hPosted); });
    }
    ~ClientSystemTest() override { m_server.Release(); }

    // An exchange that ends before its post has returned would be set back to sending.
    void Serve(const CLoopbackRequest& request, CLoopbackConnection& connection) const
    {
        WaitForSingleObject(m_hPosted, kPatienceMs);
        if (request.strTarget == "/stall")
        {
            connection.Stall();
            connection.Close();
        }
        else if (request.strTarget == "/half" || request.strTarget == "/late")
        {
            // The platform's time-out for the rest of it begins later than that of the exchange.
            connection.Pause(request.strTarget == "/late" ? 300 : 0);
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + MakeBytes(50000));
            connection.Stall();
            connection.Close();
        }
        else if (request.strTarget == "/large")
        {
            connection.Send(MakeAnswer(200, MakeBytes(kDownload)));
        }
        else if (request.strTarget == "/bytes")
        {
            connection.Send(MakeAnswer(200, std::string_view("a\0\xFF", 3)));
        }
        else
        {
            connection.Send(MakeAnswer(request.strTarget == "/none" ? 404 : 200, "got " + request.strBody));
        }
    }

    // What is left of the queue; the code of a quit message.
    static std::optional<WPARAM> TakeQuit()
    {
        for (MSG msg = {}; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
        {
            if (msg.message == WM_QUIT)
            {
                return msg.wParam;
            }
        }
        return std::nullopt;
    }

    const HANDLE m_hPosted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CLoopbackServer m_server{[this](const CLoopbackRequest& request, CLoopbackConnection& connection)
                             { Serve(request, connection); }};
    CClient m_client{L"kvHttp.dll"};
};

TEST_F(ClientSystemTest, PostsAndGivesTheText)
{
    const Answer answer = m_client.Post(m_server.Url(L"/form"), L"city=Z\u00FCrich");
    EXPECT_EQ(answer.outcome, Outcome::Done) << Describe(answer.outcome);
    EXPECT_EQ(answer.strText, L"got city=Z\u00FCrich");
}

TEST_F(ClientSystemTest, GivesBytesThatAreNoText)
{
    EXPECT_EQ(m_client.PostForBytes(m_server.Url(L"/bytes"), L"a=1").strBytes, std::string("a\0\xFF", 3));
}

TEST_F(ClientSystemTest, TakesAnAnswerIntoAFile)
{
    const CTempFile file;
    const Answer answer = m_client.PostToFile(m_server.Url(L"/large"), L"a=1", file.Path());
    EXPECT_EQ(answer.outcome, Outcome::Done);
    EXPECT_EQ(answer.nFileBytes, kDownload);
    EXPECT_TRUE(file.Read() == MakeBytes(kDownload)) << "the file is not the body";
}

TEST_F(ClientSystemTest, SaysHowAnExchangeHasFailed)
{
    EXPECT_EQ(m_client.Post(m_server.Url(L"/none"), L"a=1").outcome, Outcome::Refused);
    EXPECT_EQ(m_client.Post(L"http://127.0.0.1:1/", L"a=1").outcome, Outcome::Failed);
}

TEST_F(ClientSystemTest, TheDeadlineBoundsAnExchangeThatStallsAndTheNextOneWorks)
{
    m_client.SetDeadline(300ms);
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(m_client.Post(m_server.Url(L"/stall"), L"a=1").outcome, Outcome::DeadlinePassed);
    EXPECT_LT(GetTickCount64() - begin, kAtOnceMs);
    m_client.SetDeadline(0ms);
    EXPECT_EQ(m_client.Post(m_server.Url(L"/form"), L"b=2").strText, L"got b=2");
    EXPECT_LT(GetTickCount64() - begin, kAtOnceMs) << "the stalled one was waited for";
}

TEST_F(ClientSystemTest, ATimeOutEndsAnExchangeThatStalls)
{
    m_client.SetTimeout(1s);
    EXPECT_EQ(m_client.Post(m_server.Url(L"/late"), L"a=1").outcome, Outcome::TimedOut);
}

TEST_F(ClientSystemTest, ACancelledDownloadLeavesNoFile)
{
    const CTempFile file;
    m_client.OnChange(
        [this](const Progress& progress)
        {
            SetEvent(m_hPosted);
            if (progress.nFileBytes > 0)
            {
                m_client.Cancel();
            }
        });
    const Answer answer = m_client.PostToFile(m_server.Url(L"/half"), L"a=1", file.Path());
    EXPECT_EQ(answer.outcome, Outcome::Cancelled);
    m_server.Release();  // Wine's worker reads on until then
    EXPECT_TRUE(Await([&] { return !file.Exists(); }));
}

TEST_F(ClientSystemTest, TheNextDownloadWaitsForTheStoppedOne)
{
    const CTempFile file;
    m_client.SetTimeout(2s);  // bounds the blocked read under Wine
    m_client.Start({m_server.Url(L"/half"), L"a=1", file.Path()});
    ASSERT_TRUE(
        Await([&] { return m_client.Poll() != Outcome::Running || m_client.State().nFileBytes > 0; }));
    m_client.Cancel();
    const Answer answer = m_client.PostToFile(m_server.Url(L"/large"), L"a=1", file.Path());
    EXPECT_EQ(answer.outcome, Outcome::Done) << Describe(answer.outcome);
    EXPECT_TRUE(file.Read() == MakeBytes(kDownload)) << "the file is not the body";
}

TEST_F(ClientSystemTest, AQuitMessageEndsTheWaitAndKillsNoWorker)
{
    CHostWindow window;
    window.On(WM_APP, [] { PostQuitMessage(7); });
    window.Post(WM_APP);
    EXPECT_EQ(m_client.Post(m_server.Url(L"/stall"), L"a=1").outcome, Outcome::QuitAsked);
    m_server.Release();
    m_client.Close();
    EXPECT_EQ(TakeQuit(), WPARAM{7}) << "a worker that is killed leaves a quit message of code 0";
    EXPECT_TRUE(AwaitUnloaded()) << "a worker that is killed keeps the module";
}

TEST_F(ClientSystemTest, FreesTheModuleWithTheLastComponent)
{
    EXPECT_TRUE(m_client.Post(m_server.Url(L"/form"), L"a=1"));
    EXPECT_NE(GetModuleHandleW(L"kvHttp.dll"), nullptr);
    m_client.Close();
    EXPECT_TRUE(AwaitUnloaded());
    EXPECT_TRUE(m_client.Post(m_server.Url(L"/form"), L"a=1")) << "with the module loaded again";
}

// Its worker is blocked in the platform when the client goes; it keeps the module until it has left.
TEST_F(ClientSystemTest, CanGoWhileAnExchangeRuns)
{
    {
        CClient client(L"kvHttp.dll");
        client.SetTimeout(1s);  // bounds the blocked read under Wine
        client.OnChange([this](const Progress&) { SetEvent(m_hPosted); });
        EXPECT_EQ(client.Start({m_server.Url(L"/stall"), L"a=1", L""}), Outcome::Running);
        EXPECT_TRUE(m_server.AwaitRequests(1, kPatienceMs));
    }
    EXPECT_TRUE(AwaitUnloaded());
}

}  // namespace
