// Servers that are not there, or break off. The many ways of breaking the protocol are rows of
// hostile/HostileServerTest.cpp.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/HttpRawHost.h"
#include "system/TempFile.h"

namespace
{

TEST(BadServerTest, RefusedConnectionFails)
{
    std::wstring url;
    {
        CLoopbackServer gone([](const CLoopbackRequest&, CLoopbackConnection&) {});
        url = gone.Url(L"/");
    }
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(url), Status{REQ_STATUS_FAILED});
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
}

// A label of 64 letters is no host name at all: no resolver asks the network for it.
TEST(BadServerTest, UnknownHostFails)
{
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(L"http://" + std::wstring(64, L'n') + L".invalid/"),
              Status{REQ_STATUS_FAILED});
}

TEST(BadServerTest, UrlThatCannotBeSplitFails)
{
    for (const wchar_t* pszUrl : {L"no url", L"/path/only", L"?a=1", L"http://", L"http://:80/"})
    {
        CHttpRawHost host;
        EXPECT_EQ(host.PostAndAwaitEnd(pszUrl), Status{REQ_STATUS_FAILED}) << std::wstring(pszUrl).size();
        EXPECT_LT(host.Release(), kPatienceMs);
    }
}

TEST(BadServerTest, ABodyCutShortLeavesWhatHasArrivedInTheFile)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + MakeBytes(30000));
            connection.Close();
        });
    CTempFile file;
    CHttpRawHost host;
    host->SetDownloadFile(file.Path());
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_TRUE(file.Read() == MakeBytes(30000)) << "the file is not what has arrived";
}

TEST(BadServerTest, AServerThatCameBackIsUsedAgain)
{
    int calls = 0;
    CLoopbackServer server(
        [&calls](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            if (++calls == 1)
            {
                connection.Reset();
                return;
            }
            connection.Send(MakeAnswer(200, "back again"));
        });
    CHttpRawHost host;
    // Wine sometimes takes the reset for the end of an answer that has no byte.
    const Status first = host.PostAndAwaitEnd(server.Url(L"/"));
    EXPECT_TRUE(first == Status{REQ_STATUS_FAILED} || (IsWine() && first == Status{REQ_STATUS_DONE}))
        << first;
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"back again");
}

}  // namespace
