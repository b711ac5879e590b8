// What the server's status code makes of the exchange, redirects included.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/HttpRawHost.h"

namespace
{

struct CodeRow
{
    int code;
    unsigned long status;
    bool bAnswer;  // the body is read
};

TEST(HttpStatusTest, EachCodeEndsAsTheTableSays)
{
    constexpr CodeRow kRows[] = {
        {200, REQ_STATUS_DONE, true},        {201, REQ_STATUS_DONE, true},
        {400, REQ_STATUS_HTTP_ERROR, false}, {401, REQ_STATUS_HTTP_ERROR, false},
        {402, REQ_STATUS_DONE, true},        {403, REQ_STATUS_DONE, true},
        {404, REQ_STATUS_HTTP_ERROR, false}, {405, REQ_STATUS_HTTP_ERROR, false},
        {406, REQ_STATUS_DONE, true},        {408, REQ_STATUS_TIMEOUT, false},
        {410, REQ_STATUS_DONE, true},        {500, REQ_STATUS_DONE, true},
        {503, REQ_STATUS_DONE, true},        {308, REQ_STATUS_DONE, true},
    };
    int code = 0;
    CLoopbackServer server([&code](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(code, "page of the server")); });
    CHttpRawHost host;
    for (const CodeRow& row : kRows)
    {
        code = row.code;
        EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{row.status}) << row.code;
        const std::optional<std::wstring> answer = host.TakeAnswer();
        EXPECT_EQ(answer.has_value(), row.bAnswer) << row.code;
        EXPECT_EQ(answer.value_or(L"page of the server"), L"page of the server") << row.code;
    }
}

// Answers everything but /target with a redirect to it.
class RedirectTest : public testing::Test
{
protected:
    void Expect(int code, const std::string& location, Status status)
    {
        m_code = code;
        m_location = location;
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/start"), L"a=1"), status);
        m_requests = m_server.Requests();
    }

    int m_code = 0;
    std::string m_location;
    std::vector<CLoopbackRequest> m_requests;
    CLoopbackServer m_server{
        [this](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget.starts_with("/target"))
            {
                connection.Send(MakeAnswer(200, "the target"));
                return;
            }
            const std::string header = "Location: " + m_location + "\r\n";
            connection.Send(MakeAnswer(m_code, "elsewhere", m_location.empty() ? std::string() : header));
        }};
    CHttpRawHost m_host;
};

// The platform follows these by itself, since the module leaves it the choice: the module sees the last
// answer only, and the form does not travel on.
class PlatformRedirectTest : public RedirectTest, public testing::WithParamInterface<int>
{
};

TEST_P(PlatformRedirectTest, IsFollowedAsGetWithoutTheForm)
{
    Expect(GetParam(), "/target?x=1", Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"the target");
    ASSERT_EQ(m_requests.size(), 2u);
    EXPECT_EQ(m_requests[0].strMethod, "POST");
    EXPECT_EQ(m_requests[0].strBody, "a=1");
    EXPECT_EQ(m_requests[1].strMethod, "GET");
    EXPECT_EQ(m_requests[1].strTarget, "/target?x=1");
    EXPECT_EQ(m_requests[1].strBody, "");
}

INSTANTIATE_TEST_SUITE_P(Codes, PlatformRedirectTest, testing::Values(301, 302, 303));

TEST_F(RedirectTest, GoesToAnotherServer)
{
    CLoopbackServer other([](const CLoopbackRequest&, CLoopbackConnection& connection)
                          { connection.Send(MakeAnswer(200, "the other server")); });
    Expect(302, "http://127.0.0.1:" + std::to_string(other.Port()) + "/elsewhere", Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"the other server");
    ASSERT_EQ(other.Requests().size(), 1u);
    EXPECT_EQ(other.Requests()[0].strTarget, "/elsewhere");
    EXPECT_EQ(m_requests.size(), 1u);
}

// 307 keeps the verb. Wine's WinINet does not send the form again; Windows does.
TEST_F(RedirectTest, TemporaryRedirectKeepsThePost)
{
    Expect(307, "/target", Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"the target");
    ASSERT_EQ(m_requests.size(), 2u);
    EXPECT_EQ(m_requests[1].strMethod, "POST");
    EXPECT_EQ(m_requests[1].strTarget, "/target");
    EXPECT_EQ(m_requests[1].strBody, IsWine() ? "" : "a=1");
}

// Neither the platform nor the module follows 308: the page of the redirect itself is the answer.
TEST_F(RedirectTest, PermanentRedirectOfThePostIsAnAnswer)
{
    Expect(308, "/target", Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"elsewhere");
    EXPECT_EQ(m_requests.size(), 1u);
}

// A redirect to nowhere reaches the module, which opens the same URL again, five times in all.
TEST_F(RedirectTest, WithoutATargetEndsAfterFiveOpensInATimeOut)
{
    for (const int code : {301, 302, 303, 307})
    {
        const size_t before = m_requests.size();
        Expect(code, "", Status{REQ_STATUS_TIMEOUT});
        ASSERT_EQ(m_requests.size() - before, 5u) << code;
        for (size_t index = before; index < m_requests.size(); ++index)
        {
            EXPECT_EQ(m_requests[index].strMethod, "POST") << code;
            EXPECT_EQ(m_requests[index].strTarget, "/start") << code;
            EXPECT_EQ(m_requests[index].strBody, "a=1") << code;
        }
        EXPECT_EQ(m_host.TakeAnswer(), std::nullopt) << code;
    }
}

// The page that a redirect carried is not part of the answer.
TEST_F(RedirectTest, ANextExchangeStartsAtItsOwnUrl)
{
    Expect(302, "/target", Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), L"the target");
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/target2"), L"b=2"), Status{REQ_STATUS_DONE});
    const std::vector<CLoopbackRequest> requests = m_server.Requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[2].strMethod, "POST");
    EXPECT_EQ(requests[2].strTarget, "/target2");
    EXPECT_EQ(requests[2].strBody, "b=2");
}

}  // namespace
