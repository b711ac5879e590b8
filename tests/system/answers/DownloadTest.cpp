// The answer goes to a file, and which one.
#include <gtest/gtest.h>

#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"

namespace
{

class DownloadTest : public testing::Test
{
protected:
    void NameFile() { m_host->SetDownloadFile((m_folder.Path() + L"file").c_str()); }
    void Exchange(const std::string& body, int code = 200, Status expected = {REQ_STATUS_DONE})
    {
        m_code = code;
        m_body = body;
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), expected);
    }
    void ExpectFile(const std::string& bytes) const
    {
        EXPECT_EQ(m_folder.Files(), (FileContents{{L"file", bytes}}));
    }

    int m_code = 200;
    std::string m_body;
    CTargetFolder m_folder;
    CLoopbackServer m_server{[this](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(m_code, m_body)); }};
    CHttpRawHost m_host;
};

TEST_F(DownloadTest, TheFileIsCompleteAndClosedOnceTheStatusSaysSo)
{
    NameFile();
    Exchange("the answer");
    ExpectFile("the answer");
    EXPECT_TRUE(DeleteFileW((m_folder.Path() + L"file").c_str())) << "error " << GetLastError();
}

TEST_F(DownloadTest, TheFileIsAnOrdinaryOne)
{
    NameFile();
    Exchange("the answer");
    EXPECT_EQ(GetFileAttributesW((m_folder.Path() + L"file").c_str()), DWORD{FILE_ATTRIBUTE_ARCHIVE});
}

TEST_F(DownloadTest, AskingForTheAnswerSendsTheNextOneToMemory)
{
    NameFile();
    Exchange("in the file");
    EXPECT_EQ(m_host.TakeAnswer(), std::nullopt) << "an answer in a file is not in memory";
    Exchange("the next one");
    ExpectFile("in the file");
    EXPECT_EQ(m_host.TakeAnswer(), L"the next one");
}

TEST_F(DownloadTest, WithoutAskingTheNextAnswerGoesToTheSameFile)
{
    NameFile();
    Exchange("the first one");
    Exchange("another");
    ExpectFile("another");
}

TEST_F(DownloadTest, AnAnswerInMemoryIsGoneWhenTheNextGoesToAFile)
{
    Exchange("in memory");
    NameFile();
    Exchange("in the file");
    ExpectFile("in the file");
    EXPECT_EQ(m_host.TakeAnswer(), std::nullopt);
}

TEST_F(DownloadTest, AnErrorThatIsNoAnswerLeavesTheOldFileAlone)
{
    m_folder.Write(L"file", "old");
    NameFile();
    Exchange("no such page", 404, {REQ_STATUS_HTTP_ERROR});
    ExpectFile("old");
}

TEST_F(DownloadTest, AnErrorThatIsNoAnswerMakesNoFile)
{
    NameFile();
    Exchange("no such page", 404, {REQ_STATUS_HTTP_ERROR});
    EXPECT_EQ(m_folder.Files(), FileContents{});
}

TEST_F(DownloadTest, AnErrorThatIsAnAnswerIsInTheFile)
{
    NameFile();
    Exchange("the server's page about its fault", 500);
    ExpectFile("the server's page about its fault");
}

}  // namespace
