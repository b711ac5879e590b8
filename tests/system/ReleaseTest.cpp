// The last release at each stage of an exchange: it returns in bounded time, and the process holds what
// it held before.
#include <windows.h>
#include <winsock2.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "support/ProcessResources.h"
#include "system/HttpRawHost.h"
#include "system/TempFile.h"

namespace
{

// Wine lets a blocked call of the worker run into its time-out of one second, where Windows wakes it when
// its handle is closed.
constexpr DWORD kReleaseBoundMs = 10000;
constexpr ULONGLONG kSettleMs = 10000;

// The count, once it has come down to the limit: a worker that has left its object is still on its way out,
// and the platform's own threads come and go. What has leaked stays above it for as long as this waits.
int CountSettled(int (*count)(), int limit)
{
    const ULONGLONG end = GetTickCount64() + kSettleMs;
    int current = count();
    while (current > limit && GetTickCount64() < end)
    {
        Sleep(20);
        current = count();
    }
    return current;
}

// Counts threads and handles once a first round has made what the platform keeps for the life of the
// process, and expects that further rounds add nothing.
template <typename Round>
void ExpectNothingLeft(Round round, int rounds = 3)
{
    round();
    const int threads = CountThreads();
    const int handles = CountHandles();
    for (int count = 0; count < rounds; ++count)
    {
        round();
    }
    EXPECT_LE(CountSettled(CountThreads, threads), threads);
    EXPECT_LE(CountSettled(CountHandles, handles), handles);
}

TEST(ReleaseTest, AfterACompleteExchangeNothingIsLeft)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, "ok", "Connection: close\r\n")); });
    ExpectNothingLeft(
        [&server]
        {
            CHttpRawHost host;
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
            EXPECT_EQ(host.TakeAnswer(), L"ok");
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, AfterManyExchangesOfOneComponentNothingIsLeft)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, "ok", "Connection: close\r\n")); });
    ExpectNothingLeft(
        [&server]
        {
            CHttpRawHost host;
            for (int count = 0; count < 10; ++count)
            {
                EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
            }
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, AfterFailedExchangesNothingIsLeft)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Reset(); });
    ExpectNothingLeft(
        [&server]
        {
            CHttpRawHost host;
            // Whether the reset comes before or after the platform looks for an answer is a race: it is an
            // error then, or an empty answer.
            EXPECT_THAT(host.PostAndAwaitEnd(server.Url(L"/")),
                        testing::AnyOf(Status{REQ_STATUS_FAILED}, Status{REQ_STATUS_DONE}));
            EXPECT_EQ(host.PostAndAwaitEnd(L"no url"), Status{REQ_STATUS_FAILED});
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

// A server whose queue of arriving connections is full and never emptied: under Linux a further one hangs,
// elsewhere it is refused.
class CFullServer
{
public:
    CFullServer()
    {
        WSADATA data = {};
        WSAStartup(MAKEWORD(2, 2), &data);
        m_sockets.push_back(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof(m_address);
        EXPECT_EQ(bind(m_sockets[0], Address(), length), 0);
        EXPECT_EQ(listen(m_sockets[0], 1), 0);
        EXPECT_EQ(getsockname(m_sockets[0], reinterpret_cast<sockaddr*>(&m_address), &length), 0);
        while (m_sockets.size() < 10 && ConnectAtOnce())
        {
        }
        EXPECT_LT(m_sockets.size(), 10u) << "the queue does not fill";
    }
    ~CFullServer()
    {
        Close();
        WSACleanup();
    }
    CFullServer(const CFullServer&) = delete;
    CFullServer& operator=(const CFullServer&) = delete;

    void Close()
    {
        for (const SOCKET socket : m_sockets)
        {
            closesocket(socket);
        }
        m_sockets.clear();
    }

    std::wstring Url() const
    {
        return L"http://127.0.0.1:" + std::to_wstring(ntohs(m_address.sin_port)) + L"/";
    }

private:
    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&m_address); }

    bool ConnectAtOnce()
    {
        const SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        m_sockets.push_back(client);
        u_long bNonBlocking = 1;
        ioctlsocket(client, static_cast<long>(FIONBIO), &bNonBlocking);
        connect(client, Address(), sizeof(m_address));
        fd_set writable = {};
        writable.fd_count = 1;
        writable.fd_array[0] = client;
        timeval patience = {0, 300000};
        return select(0, nullptr, &writable, nullptr, &patience) == 1;
    }

    sockaddr_in m_address = {};
    std::vector<SOCKET> m_sockets;
};

// Wine leaves a connection that hangs to the system, whatever the time-out, and closing the request does
// not wake it: the release waits for it. Here it ends when the server goes.
TEST(ReleaseTest, WhileConnectingNothingIsLeft)
{
    ExpectNothingLeft(
        []
        {
            CFullServer server;
            CHttpRawHost host;
            host->SetTimeout(1);
            const Status status = host.PostAndAwaitEnd(server.Url());
            EXPECT_TRUE(status == Status{REQ_STATUS_TIMEOUT} ||
                        (!IsWine() && status == Status{REQ_STATUS_FAILED}))
                << status;
            server.Close();
            EXPECT_LT(host.Release(), kReleaseBoundMs);
        },
        1);
}

// The server takes only the head: the body fills the buffers and gets stuck.
TEST(ReleaseTest, WhileSendingNothingIsLeft)
{
    const std::wstring form(16 * 1024 * 1024, L'x');
    ExpectNothingLeft(
        [&form]
        {
            CLoopbackServer server(
                [](const CLoopbackRequest&, CLoopbackConnection& connection)
                {
                    connection.Stall();
                    connection.Reset();
                },
                CLoopbackServer::READ_HEAD_ONLY);
            CHttpRawHost host;
            host->SetTimeout(1);
            host.Post(server.Url(L"/"), form);
            EXPECT_TRUE(server.AwaitRequests(1, kPatienceMs));
            EXPECT_LT(host.Release(), kReleaseBoundMs);
        });
}

TEST(ReleaseTest, WhileWaitingForTheHeadNothingIsLeft)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Stall();
            connection.Close();
        });
    size_t cRequests = 0;
    ExpectNothingLeft(
        [&]
        {
            CHttpRawHost host;
            host->SetTimeout(1);
            host.Post(server.Url(L"/"));
            EXPECT_TRUE(server.AwaitRequests(++cRequests, kPatienceMs));
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, WhileReadingTheBodyNothingIsLeft)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this");
            connection.Stall();
            connection.Close();
        });
    ExpectNothingLeft(
        [&server]
        {
            CHttpRawHost host;
            host->SetTimeout(1);
            host.Post(server.Url(L"/"));
            EXPECT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, WhileWritingTheFileNothingIsLeftNotEvenTheFile)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + MakeBytes(300000));
            connection.Stall();
            connection.Close();
        });
    ExpectNothingLeft(
        [&server]
        {
            CTempFile file;
            CHttpRawHost host;
            host->SetDownloadFile(file.Path());
            host->SetTimeout(1);
            host.Post(server.Url(L"/"));
            EXPECT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_FALSE(file.Exists());
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, WithAnOvertakenExchangeNothingIsLeft)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget == "/stall")
            {
                connection.Stall();
            }
            connection.Send(MakeAnswer(200, "ok", "Connection: close\r\n"));
            connection.Close();
        });
    size_t cRequests = 0;
    ExpectNothingLeft(
        [&]
        {
            CHttpRawHost host;
            host->SetTimeout(1);
            host.Post(server.Url(L"/stall"));
            EXPECT_TRUE(server.AwaitRequests(++cRequests, kPatienceMs));
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
            ++cRequests;
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

}  // namespace
