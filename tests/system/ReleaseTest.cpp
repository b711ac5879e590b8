// The last release before, between and after exchanges: it returns in bounded time, and the process holds
// what it held before. ReleaseStageTest has the release amid an exchange.
#include <winsock2.h>

#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"
#include "system/NothingLeft.h"
#include "system/TempFile.h"
#include "system/UnreachableServers.h"

namespace
{

// Wine lets a blocked call of the worker run into its time-out of one second, where Windows wakes it when
// its handle is closed.
constexpr DWORD kReleaseBoundMs = 10000;

TEST(ReleaseTest, WithoutAnyPostNothingIsLeft)
{
    ExpectNothingLeft(
        []
        {
            CHttpRawHost host;
            EXPECT_LT(host.Release(), kReleaseBoundMs);
        });
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

// A connection that is cut off is not among them: whether the platform sees that as a failure or as an empty
// answer is a race, and after an answer it keeps a thread for a minute.
TEST(ReleaseTest, AfterFailedExchangesNothingIsLeft)
{
    const CRefusingPort port;
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(404, "no", "Connection: close\r\n")); });
    ExpectNothingLeft(
        [&]
        {
            CHttpRawHost host;
            EXPECT_EQ(host.PostAndAwaitEnd(port.Url()), Status{REQ_STATUS_FAILED});
            EXPECT_EQ(host.PostAndAwaitEnd(L"no url"), Status{REQ_STATUS_FAILED});
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_HTTP_ERROR});
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, OfAnUnreadAnswerNothingIsLeft)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, MakeBytes(50000), "Connection: close\r\n")); });
    ExpectNothingLeft(
        [&server]
        {
            CHttpRawHost host;
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

TEST(ReleaseTest, OfAFinishedDownloadOnlyTheFileIsLeft)
{
    const std::string body = MakeBytes(50000);
    CLoopbackServer server([&body](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, body, "Connection: close\r\n")); });
    ExpectNothingLeft(
        [&]
        {
            const CTempFile file;
            CHttpRawHost host;
            host->SetDownloadFile(file.Path());
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
            EXPECT_LT(host.Release(), kReleaseBoundMs);
            EXPECT_TRUE(file.Read() == body) << "the file is not the answer any more";
            EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
        });
}

// No message comes, and no answer: what ends the wait is the receive time-out.
TEST(ReleaseTest, OfAStalledExchangeTakesNoLongerThanItsTimeout)
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
        },
        1);
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
        },
        1);
}

}  // namespace
