// Servers that are not there, or that break the protocol: the exchange ends, and with what.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
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

struct BadRow
{
    const char* pszLabel;
    void (*pfnMisbehave)(CLoopbackConnection&);
    unsigned long status;
    std::optional<std::wstring> answer;
    // What Wine makes of it where it differs: its WinINet takes whatever is no head for one that is
    // empty, with status 200, and hands on what came in one piece with the head, whatever the length.
    unsigned long statusUnderWine = status;
    std::optional<std::wstring> answerUnderWine = answer;
};

std::ostream& operator<<(std::ostream& stream, const BadRow& row)
{
    return stream << row.pszLabel;
}

class BadAnswerTest : public testing::TestWithParam<BadRow>
{
};

TEST_P(BadAnswerTest, EndsAsTheTableSays)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            GetParam().pfnMisbehave(connection);
            connection.Close();
        });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")),
              Status{IsWine() ? GetParam().statusUnderWine : GetParam().status});
    EXPECT_TRUE(host.TakeAnswer() == (IsWine() ? GetParam().answerUnderWine : GetParam().answer))
        << "the answer is " << testing::PrintToString(host.TakeAnswer().value_or(L"<none>").substr(0, 100));
    EXPECT_LT(host.Release(), kPatienceMs);
}

const BadRow kBadRows[] = {
    // Under Wine a reset that comes before the platform waits for the head looks like a close.
    {"ResetsBeforeTheHead",
     [](CLoopbackConnection& connection)
     {
         connection.Pause(300);
         connection.Reset();
     },
     REQ_STATUS_FAILED, std::nullopt},
    {"ClosesWithoutAHead", [](CLoopbackConnection& connection) { connection.Close(); }, REQ_STATUS_FAILED,
     std::nullopt, REQ_STATUS_DONE},
    {"ClosesInsideTheHead",
     [](CLoopbackConnection& connection) { connection.Send("HTTP/1.1 200 OK\r\nContent-Le"); },
     REQ_STATUS_FAILED, std::nullopt, REQ_STATUS_DONE},
    {"Garbage", [](CLoopbackConnection& connection) { connection.Send("no head at all\r\n\r\nand no body"); },
     REQ_STATUS_FAILED, std::nullopt, REQ_STATUS_DONE, L"\r\nand no body"},
    {"GarbageWithoutALineEnd",
     [](CLoopbackConnection& connection) { connection.Send(std::string(50000, 'g')); }, REQ_STATUS_FAILED,
     std::nullopt, REQ_STATUS_DONE, std::nullopt},
    {"StatusIsNoNumber",
     [](CLoopbackConnection& connection)
     { connection.Send("HTTP/1.1 abc OK\r\nContent-Length: 2\r\n\r\nok"); },
     REQ_STATUS_DONE, L"ok"},
    {"CutsTheBodyShort",
     [](CLoopbackConnection& connection)
     { connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"); },
     REQ_STATUS_DONE, L"only this"},
    {"SendsMoreThanItsLength",
     [](CLoopbackConnection& connection)
     { connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfour and more"); },
     REQ_STATUS_DONE, L"four", REQ_STATUS_DONE, L"four and more"},
    {"LengthIsNoNumber",
     [](CLoopbackConnection& connection)
     { connection.Send("HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\nbody"); },
     REQ_STATUS_DONE, L"body"},
    {"CutsAChunkedBodyShort",
     [](CLoopbackConnection& connection)
     { connection.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n8\r\nsec"); },
     REQ_STATUS_DONE, L"firstsec"},
    {"ChunkSizeIsNoNumber",
     [](CLoopbackConnection& connection)
     { connection.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\nfirst\r\n"); },
     REQ_STATUS_DONE, std::nullopt},
    // The read that the reset interrupts is lost; the ones before it count.
    {"ResetsInsideTheBody",
     [](CLoopbackConnection& connection)
     {
         connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + std::string(16384 + 100, 'x'));
         connection.Pause(300);
         connection.Reset();
     },
     REQ_STATUS_DONE, std::wstring(16384, L'x')},
    {"BodyIsNoUtf8", [](CLoopbackConnection& connection) { connection.Send(MakeAnswer(200, "a\xFF\xFEz")); },
     REQ_STATUS_DONE, L"a\xFFFD\xFFFDz"},
    {"BodyHoldsAZero",
     [](CLoopbackConnection& connection)
     { connection.Send(MakeAnswer(200, std::string_view("before\0after", 12))); },
     REQ_STATUS_DONE, L"before"},
};

INSTANTIATE_TEST_SUITE_P(Servers, BadAnswerTest, testing::ValuesIn(kBadRows),
                         [](const auto& row) { return std::string(row.param.pszLabel); });

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
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_FAILED});
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"back again");
}

}  // namespace
