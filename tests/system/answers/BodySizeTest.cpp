// Bodies of the lengths around the pieces that they are read in, however their end is marked.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"

namespace
{

struct Framing
{
    const char* pszLabel;
    std::string (*pfnMakeAnswer)(const std::string& body);
    bool bClose;
};

const Framing kFramings[] = {
    {"with its length", [](const std::string& body) { return MakeAnswer(200, body); }, false},
    {"in chunks", [](const std::string& body) { return MakeChunkedAnswer(body, 5000); }, false},
    {"in one chunk", [](const std::string& body) { return MakeChunkedAnswer(body, 2'000'000); }, false},
    {"ended by the close",
     [](const std::string& body) { return "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body; }, true},
    {"of HTTP/1.0", [](const std::string& body) { return "HTTP/1.0 200 OK\r\n\r\n" + body; }, true},
};

constexpr size_t kLengths[] = {0, 1, 16383, 16384, 16385, 49153};
constexpr size_t kMegabyte = 1024 * 1024;

class BodySizeTest : public testing::Test
{
protected:
    // Has the body sent and expects the exchange to end well.
    void Exchange(const Framing& framing, const std::string& body, CHttpRawHost& host) const
    {
        CLoopbackServer server(
            [&](const CLoopbackRequest&, CLoopbackConnection& connection)
            {
                connection.Send(framing.pfnMakeAnswer(body));
                if (framing.bClose)
                {
                    connection.Close();
                }
            });
        EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    }

    void ExpectInMemory(const Framing& framing, size_t length) const
    {
        SCOPED_TRACE(testing::Message() << length << " bytes " << framing.pszLabel);
        const std::string body = MakeText(length);
        CHttpRawHost host;
        Exchange(framing, body, host);
        const std::optional<std::wstring> answer = host.TakeAnswer();
        ASSERT_EQ(answer.has_value(), length != 0);
        EXPECT_EQ(answer.value_or(L"").size(), length);
        EXPECT_TRUE(answer.value_or(L"") == std::wstring(body.begin(), body.end())) << "the text differs";
    }

    void ExpectInFile(const Framing& framing, size_t length) const
    {
        SCOPED_TRACE(testing::Message() << length << " bytes " << framing.pszLabel);
        const std::string body = MakeBytes(length);
        CTargetFolder folder;
        folder.Write(L"file", std::string(kLengths[5] + 100, 'o'));
        CHttpRawHost host;
        host->SetDownloadFile((folder.Path() + L"file").c_str());
        Exchange(framing, body, host);
        EXPECT_EQ(host.TakeAnswer(), std::nullopt);
        const FileContents files = folder.Files();
        ASSERT_EQ(files.size(), 1u);
        EXPECT_EQ(files.begin()->second.size(), length);
        EXPECT_TRUE(files.begin()->second == body) << "the bytes differ";
    }

private:
    // Letters without a pattern, so that a lost or displaced piece shows.
    static std::string MakeText(size_t length)
    {
        std::string text = MakeBytes(length);
        for (char& character : text)
        {
            character = static_cast<char>('a' + static_cast<unsigned char>(character) % 26);
        }
        return text;
    }
};

TEST_F(BodySizeTest, EveryLengthArrivesInMemory)
{
    for (const Framing& framing : kFramings)
    {
        for (const size_t length : kLengths)
        {
            ExpectInMemory(framing, length);
        }
        ExpectInMemory(framing, kMegabyte);
    }
}

TEST_F(BodySizeTest, EveryLengthReplacesWhatTheFileHeld)
{
    for (const Framing& framing : kFramings)
    {
        for (const size_t length : kLengths)
        {
            ExpectInFile(framing, length);
        }
        ExpectInFile(framing, kMegabyte);
    }
}

}  // namespace
