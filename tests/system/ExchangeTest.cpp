// A form goes to the server, and the answer comes back as text.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"

namespace
{

void AnswerOk(const CLoopbackRequest&, CLoopbackConnection& connection)
{
    connection.Send(MakeAnswer(200, "ok"));
}

void Echo(const CLoopbackRequest& request, CLoopbackConnection& connection)
{
    connection.Send(MakeAnswer(200, request.strBody));
}

// Letters that change along the way, so that a displaced piece shows.
std::string MakeText(size_t length)
{
    std::string text(length, ' ');
    for (size_t index = 0; index < length; ++index)
    {
        text[index] = static_cast<char>('a' + (index + index / 16384) % 26);
    }
    return text;
}

TEST(ExchangeTest, SendsTheFormExactly)
{
    CLoopbackServer server(AnswerOk);
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/form/send.cgi"), L"name=value&other=a+b%20c"),
              Status{REQ_STATUS_DONE});

    const std::vector<CLoopbackRequest> requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    const CLoopbackRequest& request = requests[0];
    EXPECT_EQ(request.strMethod, "POST");
    EXPECT_EQ(request.strTarget, "/form/send.cgi");
    EXPECT_EQ(request.strVersion, "HTTP/1.1");
    EXPECT_EQ(request.strBody, "name=value&other=a+b%20c");
    EXPECT_EQ(request.Header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(request.CountHeaders("Content-Type"), 1u);
    EXPECT_EQ(request.Header("Content-Length"), "24");
    EXPECT_EQ(request.Header("User-Agent"), "Brixo Kestrin Desktop Http Agent");
    EXPECT_EQ(request.Header("Host"), "127.0.0.1:" + std::to_string(server.Port()));
    EXPECT_EQ(request.Header("Pragma"), "no-cache") << "a cache on the way might answer";
    EXPECT_EQ(request.Header("Connection"), "Keep-Alive");
    EXPECT_EQ(request.CountHeaders("Accept"), 0u);
    EXPECT_EQ(request.CountHeaders("Referer"), 0u);
}

TEST(ExchangeTest, SendsPathAndQueryAsTheyStandInTheUrl)
{
    CLoopbackServer server(AnswerOk);
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/a%20b/c?x=%C3%A4&y=1+2"), L"d=1"), Status{REQ_STATUS_DONE});
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].strTarget, "/a%20b/c?x=%C3%A4&y=1+2");
}

TEST(ExchangeTest, PostUrlSendsTheQueryAsTheForm)
{
    CLoopbackServer server(AnswerOk);
    CHttpRawHost host;
    EXPECT_EQ(host->PostUrl(server.Url(L"/p?a=1&b=2").c_str()), S_OK);
    EXPECT_TRUE(server.AwaitRequests(1, kPatienceMs));
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].strTarget, "/p");
    EXPECT_EQ(server.Requests()[0].strBody, "a=1&b=2");
}

TEST(ExchangeTest, PostUrlSendsAnEmptyFormForAnEmptyQuery)
{
    CLoopbackServer server(AnswerOk);
    CHttpRawHost host;
    EXPECT_EQ(host->PostUrl(server.Url(L"/p?").c_str()), S_OK);
    EXPECT_TRUE(server.AwaitRequests(1, kPatienceMs));
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].strMethod, "POST");
    EXPECT_EQ(server.Requests()[0].strTarget, "/p");
    EXPECT_EQ(server.Requests()[0].strBody, "");
    EXPECT_EQ(server.Requests()[0].Header("Content-Length"), "0");
    EXPECT_EQ(server.Requests()[0].Header("Content-Type"), "application/x-www-form-urlencoded");
}

TEST(ExchangeTest, SendsAndReturnsTextAsUtf8)
{
    CLoopbackServer server(Echo);
    CHttpRawHost host;
    const std::wstring text = L"t=\u00E4\u20AC\xD834\xDD1E";
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), text), Status{REQ_STATUS_DONE});
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].strBody, "t=\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E");
    EXPECT_EQ(host.TakeAnswer(), text);
}

TEST(ExchangeTest, AnEmptyAnswerIsDoneButHasNoText)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, "")); });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
}

TEST(ExchangeTest, ReturnsAnswersOfEveryLength)
{
    for (const size_t length :
         {size_t{1}, size_t{16383}, size_t{16384}, size_t{16385}, size_t{49153}, size_t{1024 * 1024}})
    {
        const std::string body = MakeText(length);
        CLoopbackServer server([&body](const CLoopbackRequest&, CLoopbackConnection& connection)
                               { connection.Send(MakeAnswer(200, body)); });
        CHttpRawHost host;
        ASSERT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE}) << length << " bytes";
        const std::optional<std::wstring> answer = host.TakeAnswer();
        ASSERT_TRUE(answer.has_value()) << length << " bytes";
        EXPECT_EQ(answer->size(), length);
        EXPECT_TRUE(*answer == std::wstring(body.begin(), body.end())) << length << " bytes differ";
    }
}

TEST(ExchangeTest, SendsALargeFormWhole)
{
    CLoopbackServer server(AnswerOk);
    CHttpRawHost host;
    const std::string form = MakeText(4 * 1024 * 1024);
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), std::wstring(form.begin(), form.end())),
              Status{REQ_STATUS_DONE});
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].strBody.size(), form.size());
    EXPECT_TRUE(server.Requests()[0].strBody == form) << "the form has changed on its way";
}

TEST(ExchangeTest, PutsAnAnswerInChunksTogether)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeChunkedAnswer(MakeText(40000), 1000)); });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    const std::string text = MakeText(40000);
    const std::optional<std::wstring> answer = host.TakeAnswer();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->size(), text.size());
    EXPECT_TRUE(*answer == std::wstring(text.begin(), text.end())) << "the text differs";
}

TEST(ExchangeTest, PutsAnAnswerThatTricklesInTogether)
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Trickle(MakeAnswer(200, "drop by drop \xC3\xA4"), 1, 1); });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"drop by drop \u00E4");
}

TEST(ExchangeTest, ReadsAnAnswerWithoutALengthToTheEndOfTheConnection)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nuntil the end");
            connection.Close();
        });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"until the end");
}

TEST(ExchangeTest, TheHostSeesSendingThenDone)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Stall();
            connection.Send(MakeAnswer(200, "ok"));
        });
    CHttpRawHost host;
    host.Post(server.Url(L"/"));
    EXPECT_TRUE(host.AwaitStatus(REQ_STATUS_SENDING));
    server.Release();
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.SeenStatuses().front(), static_cast<unsigned long>(REQ_STATUS_SENDING));
    EXPECT_EQ(host.SeenStatuses().back(), static_cast<unsigned long>(REQ_STATUS_DONE));
}

TEST(ExchangeTest, TheHostSeesReceivingWhileTheBodyIsIncomplete)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\nhalf");
            connection.Stall();
            connection.Send("half");
        });
    CHttpRawHost host;
    host.Post(server.Url(L"/"));
    EXPECT_TRUE(host.AwaitStatus(REQ_STATUS_RECEIVING));
    server.Release();
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"halfhalf");
}

TEST(ExchangeTest, AComponentServesOneExchangeAfterAnother)
{
    CLoopbackServer server(Echo);
    CHttpRawHost host;
    for (int round = 0; round < 20; ++round)
    {
        const std::wstring form = L"round=" + std::to_wstring(round);
        ASSERT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), form), Status{REQ_STATUS_DONE}) << "round " << round;
        ASSERT_EQ(host.SeenStatuses().front(), static_cast<unsigned long>(REQ_STATUS_SENDING));
        ASSERT_EQ(host.TakeAnswer(), form);
    }
    EXPECT_EQ(server.Requests().size(), 20u);
}

TEST(ExchangeTest, AReusedComponentKeepsNothingOfAFailedExchange)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            connection.Send(request.strTarget == "/gone" ? MakeAnswer(404, "no such page")
                                                         : MakeAnswer(200, request.strBody));
        });
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), L"first"), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"first");
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/gone"), L"second"), Status{REQ_STATUS_HTTP_ERROR});
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), L"third"), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"third");
}

TEST(ExchangeTest, TwoComponentsDoNotDisturbEachOther)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget == "/slow")
            {
                connection.Stall();
            }
            connection.Send(MakeAnswer(200, request.strBody));
        });
    CHttpRawHost slow;
    CHttpRawHost quick;
    slow.Post(server.Url(L"/slow"), L"of the slow one");
    EXPECT_TRUE(server.AwaitRequests(1, kPatienceMs));
    EXPECT_EQ(quick.PostAndAwaitEnd(server.Url(L"/"), L"of the quick one"), Status{REQ_STATUS_DONE});
    EXPECT_TRUE(slow.AwaitStatus(REQ_STATUS_SENDING));
    EXPECT_EQ(quick.TakeAnswer(), L"of the quick one");
    quick.Release();
    server.Release();
    EXPECT_EQ(slow.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(slow.TakeAnswer(), L"of the slow one");
}

}  // namespace
