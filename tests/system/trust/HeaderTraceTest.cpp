// Of an answer's head the trace gets the status code, and the target of a redirect that the platform hands
// over.
#include <winsock2.h>

#include <gmock/gmock.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"
#include "system/ModuleTrace.h"

namespace
{

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

class HeaderTraceTest : public testing::Test
{
protected:
    // Posts, and expects of the head's text nothing in the trace.
    void ExpectHidden(int code, const std::string& head)
    {
        SCOPED_TRACE(testing::Message() << code << ", " << head.size() << " bytes of headers");
        m_trace.Take();
        m_answer =
            "HTTP/1.1 " + std::to_string(code) + " hidden reason\r\n" + head + "Content-Length: 2\r\n\r\nok";
        CHttpRawHost host;
        host->SetTraceResponse(0);
        host->SetTimeout(5);
        host.PostAndAwaitEnd(m_server.Url(L"/"));
        host.Release();
        EXPECT_THAT(m_trace.m_records, Contains(HasSubstr("http status code,dwHttpStatusCode=")));
        EXPECT_THAT(m_trace.m_records, Each(Not(HasSubstr("hidden"))));
    }

    std::string m_answer;
    CLoopbackServer m_server{[this](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(m_answer); }};
    CModuleTrace m_trace;
};

TEST_F(HeaderTraceTest, HeadersOfAnySizeStayOut)
{
    for (const size_t size : {0U, 1U, 100U, 2047U, 2048U, 8000U, 30000U})
    {
        ExpectHidden(200, "X-Header: hidden" + std::string(size, 'x') + "\r\nSet-Cookie: hidden=hidden\r\n");
    }
    std::string many;
    for (int i = 0; i < 100; ++i)
    {
        many += "X-Hidden-" + std::to_string(i) + ": hidden\r\n";
    }
    ExpectHidden(200, many);
}

TEST_F(HeaderTraceTest, HeadersOfAnyContentStayOut)
{
    for (const char* const pszHeader :
         {"Server: hidden %s%n%x {0} $(hidden)\r\n", "X: \xC3\xA4 hidden \xFF\xFE\r\n",
          "X: hidden\x01\x1B[2J\r\n", "Location: http://hidden/\r\n",
          "WWW-Authenticate: Basic realm=\"hidden\"\r\n", "Content-Type: text/hidden; charset=hidden\r\n"})
    {
        for (const int code : {200, 403, 404, 408, 500, 599, 999})
        {
            SCOPED_TRACE(pszHeader);
            ExpectHidden(code, pszHeader);
        }
    }
}

}  // namespace
