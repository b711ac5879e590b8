// Form data as it reaches the server: in UTF-8, and nothing in it is encoded or left out.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"

namespace
{

struct FormRow
{
    const char* pszLabel;
    std::wstring_view form;
    std::string_view bytes;
};

const FormRow kRows[] = {
    {"one character", L"=", "="},
    {"marks of forms", L"a=1&b=+%20%2&;c==#d?e=/\\", "a=1&b=+%20%2&;c==#d?e=/\\"},
    {"spaces and quotes", L" a='b' \"c\" <d> ", " a='b' \"c\" <d> "},
    {"line ends and controls", L"\x01\t\r\n\r\n\x1A\x7F", "\x01\t\r\n\r\n\x1A\x7F"},
    {"two bytes", L"\x0080\x00E4\x041F\x07FF", "\xC2\x80\xC3\xA4\xD0\x9F\xDF\xBF"},
    {"three bytes", L"\x0800\x20AC\x4E2D\xD7FF\xE000\xFFFD",
     "\xE0\xA0\x80\xE2\x82\xAC\xE4\xB8\xAD\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD"},
    {"three bytes, no characters", L"\xFDD0\xFFFE\xFFFF", "\xEF\xB7\x90\xEF\xBF\xBE\xEF\xBF\xBF"},
    {"four bytes", L"\xD800\xDC00\xD83D\xDE00\xDBFF\xDFFF",
     "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"},
    {"mixed", L"a=\x00E4\x20AC\xD83D\xDE00&z", "a=\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80&z"},
    {"a letter and its combining mark", L"e\x0301", "e\xCC\x81"},
    {"a byte order mark", L"\xFEFFz", "\xEF\xBB\xBFz"},
    // Halves of a pair without the other have no UTF-8.
    {"a first half alone", L"\xD83D", "\xEF\xBF\xBD"},
    {"a first half at the end", L"a\xD83D", "a\xEF\xBF\xBD"},
    {"a first half before a letter", L"a\xD83Dz", "a\xEF\xBF\xBDz"},
    {"a second half alone", L"\xDE00", "\xEF\xBF\xBD"},
    {"a second half before a letter", L"a\xDE00z", "a\xEF\xBF\xBDz"},
    {"halves in the wrong order", L"a\xDE00\xD83Dz", "a\xEF\xBF\xBD\xEF\xBF\xBDz"},
    {"a first half before a pair", L"\xD83D\xD83D\xDE00", "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
    {"a second half after a pair", L"\xD83D\xDE00\xDE00", "\xF0\x9F\x98\x80\xEF\xBF\xBD"},
};

class FormTextTest : public testing::Test
{
protected:
    // The last request that has arrived.
    CLoopbackRequest Last() const { return m_server.Requests().back(); }

    CLoopbackServer m_server{[](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(200, "ok")); }};
    CHttpRawHost m_host;
};

TEST_F(FormTextTest, TheServerGetsUtf8)
{
    for (const FormRow& row : kRows)
    {
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/"), std::wstring(row.form)), Status{REQ_STATUS_DONE})
            << row.pszLabel;
        EXPECT_EQ(Last().strBody, row.bytes) << row.pszLabel;
        EXPECT_EQ(Last().Header("Content-Length"), std::to_string(row.bytes.size())) << row.pszLabel;
    }
}

TEST_F(FormTextTest, AQueryIsSentLikeAForm)
{
    size_t count = 0;
    for (const FormRow& row : kRows)
    {
        CHttpRawHost host;
        EXPECT_EQ(host->PostUrl(m_server.Url(L"/p?").append(row.form).c_str()), S_OK);
        ASSERT_TRUE(m_server.AwaitRequests(++count, kPatienceMs)) << row.pszLabel;
        EXPECT_EQ(Last().strTarget, "/p") << row.pszLabel;
        EXPECT_EQ(Last().strBody, row.bytes) << row.pszLabel;
    }
}

TEST_F(FormTextTest, AMegabyteOfPairsArrivesWhole)
{
    std::wstring form;
    std::string bytes;
    for (int index = 0; index < 262144; ++index)
    {
        form += L"\xD800\xDC00";
        bytes += "\xF0\x90\x80\x80";
    }
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/"), form), Status{REQ_STATUS_DONE});
    EXPECT_EQ(Last().strBody.size(), bytes.size());
    EXPECT_TRUE(Last().strBody == bytes) << "the form has changed on its way";
}

}  // namespace
