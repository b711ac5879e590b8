// The answer goes to a file.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"
#include "system/TempFile.h"

namespace
{

class DownloadTest : public testing::Test
{
protected:
    void ExpectFile(const std::string& expected) const
    {
        const std::optional<std::string> bytes = m_file.Read();
        ASSERT_TRUE(bytes.has_value()) << "the file is missing";
        EXPECT_EQ(bytes->size(), expected.size());
        EXPECT_TRUE(*bytes == expected) << "the bytes differ";
    }

    std::string m_body = "the new one";
    CTempFile m_file;
    CLoopbackServer m_server{[this](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(200, m_body)); }};
    CHttpRawHost m_host;
};

TEST_F(DownloadTest, SomeMegabytesArriveByteForByte)
{
    m_body = MakeBytes(5 * 1024 * 1024 + 1);
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    ExpectFile(m_body);
}

TEST_F(DownloadTest, TheFileIsCompleteAndClosedOnceTheStatusSaysSo)
{
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_TRUE(DeleteFileW(m_file.Path())) << "error " << GetLastError();
}

TEST_F(DownloadTest, ReplacesALongerFileAnew)
{
    m_file.Write(std::string(100000, 'x'));
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    ExpectFile("the new one");
}

TEST_F(DownloadTest, AnEmptyAnswerMakesAnEmptyFile)
{
    m_body.clear();
    m_file.Write("old");
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    ExpectFile("");
}

TEST_F(DownloadTest, AnAnswerInAFileIsNotInMemory)
{
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), std::nullopt);
}

TEST_F(DownloadTest, AskingForTheAnswerSendsTheNextOneToMemory)
{
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(m_host.TakeAnswer(), std::nullopt);
    m_body = "the next one";
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    ExpectFile("the new one");
    EXPECT_EQ(m_host.TakeAnswer(), L"the next one");
}

TEST_F(DownloadTest, WithoutAskingTheNextAnswerGoesToTheSameFile)
{
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    m_body = "another";
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
    ExpectFile("another");
}

TEST_F(DownloadTest, AnErrorAnswerLeavesTheOldFileAlone)
{
    CLoopbackServer refusing([](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(404, "no such page")); });
    m_file.Write("old");
    m_host->SetDownloadFile(m_file.Path());
    EXPECT_EQ(m_host.PostAndAwaitEnd(refusing.Url(L"/")), Status{REQ_STATUS_HTTP_ERROR});
    ExpectFile("old");
}

TEST_F(DownloadTest, AFileThatCannotBeMadeStaysReceivingUntilThePollTimesOut)
{
    m_host->SetDownloadFile((std::wstring(m_file.Path()) + L"\\no\\such\\folder").c_str());
    m_host->SetTimeout(1);
    m_host.Post(m_server.Url(L"/"));
    EXPECT_TRUE(m_host.AwaitStatus(REQ_STATUS_RECEIVING));
    EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT});
}

TEST_F(DownloadTest, AnotherHolderOfTheFileKeepsItFromBeingReplaced)
{
    m_file.Write("old");
    const HANDLE hHolder =
        CreateFileW(m_file.Path(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(hHolder, INVALID_HANDLE_VALUE);
    m_host->SetDownloadFile(m_file.Path());
    m_host->SetTimeout(1);
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_TIMEOUT});
    CloseHandle(hHolder);
    ExpectFile("old");
}

}  // namespace
