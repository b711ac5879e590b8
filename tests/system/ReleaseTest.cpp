// The last release at each stage of an exchange: it returns in bounded time, and the process holds what
// it held before.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/ImportPatch.h"
#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"
#include "system/ProcessResources.h"
#include "system/TempFile.h"

namespace
{

// Wine lets a blocked call of the worker run into its time-out of one second, where Windows wakes it when
// its handle is closed.
constexpr DWORD kReleaseBoundMs = 5000;
constexpr int kRounds = 3;

// Counts threads and handles once a first round has made what the platform keeps for the life of the
// process, and expects that further rounds add nothing.
template <typename Round>
void ExpectNothingLeft(Round round)
{
    round();
    const size_t threads = CountThreads();
    const size_t handles = CountHandles();
    for (int count = 0; count < kRounds; ++count)
    {
        round();
    }
    EXPECT_LE(CountThreads(), threads);
    EXPECT_LE(CountHandles(), handles);
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
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_FAILED});
            EXPECT_EQ(host.PostAndAwaitEnd(L"no url"), Status{REQ_STATUS_FAILED});
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

// No read happens on a server that takes only the head: the body fills the buffers and gets stuck.
TEST(ReleaseTest, WhileSendingNothingIsLeft)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Stall();
            connection.Reset();
        },
        CLoopbackServer::READ_HEAD_ONLY);
    const std::wstring form(16 * 1024 * 1024, L'x');
    CHttpRawHost host;
    host->SetTimeout(1);
    host.Post(server.Url(L"/"), form);
    EXPECT_TRUE(server.AwaitRequests(1, kPatienceMs));
    EXPECT_LT(host.Release(), kReleaseBoundMs);
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
