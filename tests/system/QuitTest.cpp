// The last release while a quit message waits in the host's queue, or while messages come for longer than
// the wait allows: the worker is killed, wherever it is, and the host's own loop ends as it should. In a
// program of its own, for it records the module's trace from the first line on and leaves what killed
// workers have held.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/HostWindow.h"
#include "system/HttpRawHost.h"
#include "system/ModuleTrace.h"
#include "system/ModuleWorkers.h"
#include "system/TempFile.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr DWORD kKilledOnQuit = 0xFFFFFFFD;
constexpr DWORD kKilledOnTimeout = 0xFFFFFFFE;
constexpr char kQuitRecord[] = "8| quit process, kill the thread!!!,\n";
constexpr char kTimeoutRecord[] = "8| wait the thread time out, kill the thread!!!,\n";
// Much less than the time-outs of the exchanges here: what returns by then has not waited for one.
constexpr DWORD kAtOnceMs = 5000;
constexpr int kHostsExitCode = 7;
constexpr UINT kFirst = WM_APP + 1;
constexpr UINT kSecond = WM_APP + 2;
constexpr UINT kThird = WM_APP + 3;

// What the body must have for the worker to write 18 whole pieces of 16 KB and get stuck in the next.
constexpr size_t kSentBytes = 300000;
constexpr ULONGLONG kWrittenBytes = 18 * 16384;

ULONGLONG SizeOnDisk(const CTempFile& file)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    return GetFileAttributesExW(file.Path(), GetFileExInfoStandard, &data)
               ? (ULONGLONG{data.nFileSizeHigh} << 32) + data.nFileSizeLow
               : 0;
}

// Keeps the handle of the file that the module made last, which a killed worker leaves open.
class CModuleFile
{
public:
    CModuleFile() { s_hFile = INVALID_HANDLE_VALUE; }
    void Close() const { EXPECT_TRUE(CloseHandle(s_hFile)) << "the worker's file is not open any more"; }

private:
    static HANDLE WINAPI ScriptedCreate(LPCWSTR pszPath, DWORD dwAccess, DWORD dwShare,
                                        LPSECURITY_ATTRIBUTES pSecurity, DWORD dwHow, DWORD dwFlags,
                                        HANDLE hTemplate)
    {
        s_hFile = CreateFileW(pszPath, dwAccess, dwShare, pSecurity, dwHow, dwFlags, hTemplate);
        return s_hFile;
    }

    static inline HANDLE s_hFile = INVALID_HANDLE_VALUE;
    CImportPatch m_create{CHttpRawHost::Module(), "CreateFileW", ScriptedCreate};
};

class QuitTest : public testing::Test
{
protected:
    // Whether the host's own message loop ends, and with which code; what came before goes to the windows.
    static int RunMessageLoop()
    {
        // A loop without a quit message would wait for ever.
        const UINT_PTR timer = SetTimer(nullptr, 0, kPatienceMs, nullptr);
        MSG msg = {};
        BOOL bMore = FALSE;
        while ((bMore = GetMessageW(&msg, nullptr, 0, 0)) > 0 && msg.message != WM_TIMER)
        {
            DispatchMessageW(&msg);
        }
        KillTimer(nullptr, timer);
        EXPECT_EQ(bMore, 0) << "no quit message came";
        return static_cast<int>(msg.wParam);
    }

    void PostUntilStuck(CHttpRawHost& host, const CLoopbackServer& server, size_t cRequests = 1)
    {
        host.Post(server.Url(L"/"));
        ASSERT_TRUE(server.AwaitRequests(cRequests, kPatienceMs));
        ASSERT_TRUE(m_workers.AwaitBlocked(cRequests - 1));
    }

    // Windows wakes a blocked worker when its handle is closed, just before the wait: it may be faster there.
    void ExpectKilled(size_t worker = 0, DWORD dwExitCode = kKilledOnQuit) const
    {
        const DWORD dwEnded = m_workers.ExitCode(worker);
        EXPECT_TRUE(dwEnded == dwExitCode || (!IsWine() && dwEnded == 0))
            << "worker " << worker << " ended with " << std::hex << dwEnded << ", not " << dwExitCode;
    }

    // The process goes on: another component exchanges with a server of its own, and with the one that the
    // killed worker was connected to.
    void ExpectAnotherComponentWorks(CLoopbackServer& server)
    {
        CLoopbackServer other([](const CLoopbackRequest& request, CLoopbackConnection& connection)
                              { connection.Send(MakeAnswer(200, "to " + request.strBody)); });
        server.Release();
        CHttpRawHost host;
        EXPECT_EQ(host.PostAndAwaitEnd(other.Url(L"/"), L"b=2"), Status{REQ_STATUS_DONE});
        EXPECT_EQ(host.TakeAnswer(), L"to b=2");
        EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/good"), L"c=3"), Status{REQ_STATUS_DONE});
        EXPECT_EQ(host.TakeAnswer(), L"good");
    }

    static CLoopbackServer::Script StallAfter(const std::string& bytes)
    {
        return [bytes](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget == "/good")
            {
                connection.Send(MakeAnswer(200, "good"));
                return;
            }
            connection.Send(bytes);
            connection.Stall();
            connection.Close();
        };
    }

    CModuleTrace m_trace;
    CModuleWorkers m_workers;
    CHostWindow m_window;
};

TEST_F(QuitTest, KillsTheWorkerThatWaitsForTheHead)
{
    CLoopbackServer server(StallAfter(""));
    CHttpRawHost host;
    PostUntilStuck(host, server);
    PostQuitMessage(kHostsExitCode);
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled();
    EXPECT_THAT(m_trace.OfThisThread(), Contains(kQuitRecord).Times(1));
    // The message that the module posts again carries no code of the host's.
    EXPECT_EQ(RunMessageLoop(), 0);
    // Wine keeps what the killed worker used, and so its connection, until the process ends.
    EXPECT_EQ(server.AwaitIdle(200), !IsWine());
    ExpectAnotherComponentWorks(server);
}

TEST_F(QuitTest, KillsTheWorkerInsideTheHead)
{
    CLoopbackServer server(StallAfter("HTTP/1.1 200 OK\r\nContent-Len"));
    CHttpRawHost host;
    PostUntilStuck(host, server);
    PostQuitMessage(kHostsExitCode);
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled();
    EXPECT_THAT(m_trace.OfThisThread(), Contains(kQuitRecord).Times(1));
    EXPECT_EQ(RunMessageLoop(), 0);
    ExpectAnotherComponentWorks(server);
}

TEST_F(QuitTest, KillsTheWorkerThatReadsTheBody)
{
    CLoopbackServer server(StallAfter("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"));
    CHttpRawHost host;
    PostUntilStuck(host, server);
    ASSERT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
    ASSERT_TRUE(m_workers.AwaitBlocked(0));
    PostQuitMessage(kHostsExitCode);
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled();
    EXPECT_THAT(m_trace.OfThisThread(), Contains(kQuitRecord).Times(1));
    EXPECT_EQ(RunMessageLoop(), 0);
    ExpectAnotherComponentWorks(server);
}

// No one deletes the partial file: it stays, open in the killed worker's name, until the process ends.
TEST_F(QuitTest, KillsTheWorkerThatWritesAFileAndLeavesThePartOfIt)
{
    const std::string bytes = MakeBytes(kSentBytes);
    CLoopbackServer server(StallAfter("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + bytes));
    const CTempFile file;
    const CModuleFile moduleFile;
    CHttpRawHost host;
    host->SetDownloadFile(file.Path());
    PostUntilStuck(host, server);
    ASSERT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
    while (SizeOnDisk(file) < kWrittenBytes)
    {
        Sleep(5);
    }
    ASSERT_TRUE(m_workers.AwaitBlocked(0));
    PostQuitMessage(kHostsExitCode);
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled();
    EXPECT_THAT(m_trace.OfThisThread(), Contains(kQuitRecord).Times(1));
    EXPECT_EQ(RunMessageLoop(), 0);

    EXPECT_EQ(SizeOnDisk(file), kWrittenBytes);
    EXPECT_FALSE(DeleteFileW(file.Path()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    moduleFile.Close();
    EXPECT_TRUE(file.Read() == bytes.substr(0, kWrittenBytes)) << "not what has arrived";
    ExpectAnotherComponentWorks(server);
}

// The user closes the host's window while the release waits: the message is dispatched, the window goes,
// and the quit message that it posts ends the wait.
TEST_F(QuitTest, KillsTheWorkerWhenTheWindowIsClosedDuringTheWait)
{
    CLoopbackServer server(StallAfter(""));
    CHttpRawHost host;
    PostUntilStuck(host, server);
    m_window.On(WM_CLOSE, [] { PostQuitMessage(kHostsExitCode); });
    m_window.Post({kFirst, WM_CLOSE, kSecond});
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled();
    EXPECT_EQ(RunMessageLoop(), 0);
    EXPECT_THAT(m_window.Seen(), ElementsAre(kFirst, WM_CLOSE, kSecond))
        << "a quit message comes after all that has been posted";
}

// A message of the host's own that was posted before the quit message goes to its window, input does not.
TEST_F(QuitTest, ServesTheQueueBeforeTheQuitMessage)
{
    CLoopbackServer server(StallAfter(""));
    CHttpRawHost host;
    PostUntilStuck(host, server);
    m_window.Post({kFirst, WM_KEYDOWN, WM_COMMAND});
    PostQuitMessage(kHostsExitCode);
    m_window.Post(kSecond);
    EXPECT_LT(host.Release(), kAtOnceMs);
    EXPECT_THAT(m_window.Seen(), ElementsAre(kFirst, kSecond));
    m_window.Post(kThird);
    EXPECT_EQ(RunMessageLoop(), 0);
    EXPECT_THAT(m_window.Seen(), ElementsAre(kFirst, kSecond, kThird));
    ExpectKilled();
}

// The quit message that is posted again meets the wait for the next worker.
TEST_F(QuitTest, KillsEveryWorkerOfTheComponent)
{
    CLoopbackServer server(StallAfter(""));
    CHttpRawHost host;
    PostUntilStuck(host, server, 1);
    PostUntilStuck(host, server, 2);
    PostQuitMessage(kHostsExitCode);
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled(0);
    ExpectKilled(1);
    EXPECT_THAT(m_trace.OfThisThread(), Contains(kQuitRecord).Times(2));
    EXPECT_EQ(RunMessageLoop(), 0);
}

TEST_F(QuitTest, SparesAWorkerThatHasEndedAndTheHostsExitCode)
{
    CLoopbackServer server(StallAfter(""));
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/good")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_workers.ExitCode(0), 0u);
    PostQuitMessage(kHostsExitCode);
    EXPECT_LT(host.Release(), kAtOnceMs);
    EXPECT_THAT(m_trace.OfThisThread(), Not(Contains(kQuitRecord)));
    EXPECT_EQ(RunMessageLoop(), kHostsExitCode);
}

DWORD g_dwPassed = 0;

DWORD WINAPI TickCountLater()
{
    return GetTickCount() + g_dwPassed;
}

// The clock of the module stands for the minute that nobody wants to wait.
TEST_F(QuitTest, KillsTheWorkerOnAMessageAfterSixtySeconds)
{
    const CImportPatch clock(CHttpRawHost::Module(), "GetTickCount", TickCountLater);
    CLoopbackServer server(StallAfter(""));
    CHttpRawHost host;
    PostUntilStuck(host, server);
    m_window.On(kFirst, [] { g_dwPassed = 55000; });
    m_window.On(kSecond, [] { g_dwPassed = 60001; });
    m_window.Post({kFirst, kSecond, WM_MOUSEMOVE, kThird});
    EXPECT_LT(host.Release(), kAtOnceMs);
    ExpectKilled(0, kKilledOnTimeout);
    EXPECT_THAT(m_window.Seen(), ElementsAre(kFirst, kSecond));
    EXPECT_THAT(m_trace.OfThisThread(), Contains(kTimeoutRecord).Times(1));
    EXPECT_THAT(m_trace.OfThisThread(), Not(Contains(kQuitRecord)));

    MSG msg = {};
    ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) << "what comes after stays in the queue";
    EXPECT_EQ(msg.message, kThird) << "the message that ends the wait is lost";
    EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) << "a quit message that no one has posted";
    ExpectAnotherComponentWorks(server);
}

}  // namespace
