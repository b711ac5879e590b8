// Exchanges that overlap: the one that was overtaken or released while its worker was busy elsewhere takes
// nothing from the next one, whose request has got the number of its closed handle.
#include <winsock2.h>

#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "support/Hold.h"
#include "support/loopback/LoopbackServer.h"
#include "system/HostWindow.h"
#include "system/HttpRawHost.h"
#include "system/ModuleWorkers.h"
#include "system/overlap/WorkerWatch.h"
#include "system/TempFile.h"

namespace
{

using testing::IsEmpty;

constexpr UINT kGoOn = WM_APP + 1;

// Lines that differ, so that a piece that is missing or displaced shows.
std::string MakeText(size_t size)
{
    std::string text;
    for (int line = 0; text.size() < size; ++line)
    {
        text += std::to_string(line) + "\n";
    }
    text.resize(size);
    return text;
}

constexpr size_t kAnswerSize = 60000;
constexpr char kWhole[] = "the whole answer";

// What has become of the answer, in few words.
template <typename Text>
std::string Judge(const std::optional<Text>& answer)
{
    const std::string expected = MakeText(kAnswerSize);
    return !answer                                             ? "no answer"
           : *answer == Text(expected.begin(), expected.end()) ? kWhole
                                                               : std::to_string(answer->size()) + " others";
}

class OverlapTest : public testing::Test
{
protected:
    ~OverlapTest() override { EXPECT_THAT(m_watch.Faults(), IsEmpty()); }

    static void Answer(const CLoopbackRequest& request, CLoopbackConnection& connection)
    {
        if (request.strTarget == "/slow")
        {
            connection.Stall();
        }
        connection.Send(MakeAnswer(200, MakeText(kAnswerSize), "Connection: close\r\n"));
        connection.Close();
    }

    void PostToFile(CHttpRawHost& host, const std::wstring& target, const CTempFile& file)
    {
        host->SetDownloadFile(file.Path());
        host.Post(m_server.Url(target));
    }
    void PostToMemory(CHttpRawHost& host, const std::wstring& target)
    {
        host->SetDownloadFile(L"");
        host.Post(m_server.Url(target));
    }

    CLoopbackServer m_server{Answer};
    CWorkerWatch m_watch;
    CModuleWorkers m_workers;
    CHostWindow m_window;
    CHttpRawHost m_host;
};

TEST_F(OverlapTest, OvertakenDownloadTakesNothingFromTheOneAfterIt)
{
    const CTempFile first;
    const CTempFile second;
    CHold firstRead(m_watch.Calls(), "1: InternetReadFile");
    PostToFile(m_host, L"/", first);
    ASSERT_TRUE(firstRead.Reached());

    CHold write(m_watch.Calls(), "2: WriteFile");
    PostToFile(m_host, L"/", second);
    ASSERT_TRUE(write.Reached());

    CHold answered(m_watch.Calls(), "3: HttpQueryInfoW");
    m_watch.HandOn(m_watch.RequestOf(2), 3, [&] { PostToMemory(m_host, L"/"); });
    ASSERT_TRUE(answered.Reached());
    write.LetGo();
    EXPECT_EQ(m_workers.ExitCode(1), 0u);
    answered.LetGo();
    EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(Judge(m_host.TakeAnswer()), kWhole);

    firstRead.LetGo();
    EXPECT_EQ(m_workers.ExitCode(0), 0u);
    EXPECT_FALSE(first.Exists());
    EXPECT_FALSE(second.Exists());
}

TEST_F(OverlapTest, ReleasedDownloadTakesNothingFromAnotherComponents)
{
    const CTempFile file;
    CHttpRawHost other;
    CHold write(m_watch.Calls(), "1: WriteFile");
    CHold answered(m_watch.Calls(), "2: HttpQueryInfoW");
    PostToFile(m_host, L"/", file);
    ASSERT_TRUE(write.Reached());
    m_window.On(kGoOn,
                [&]
                {
                    m_watch.HandOn(m_watch.RequestOf(1), 2, [&] { PostToMemory(other, L"/"); });
                    EXPECT_TRUE(answered.Reached());
                    write.LetGo();
                    EXPECT_EQ(m_workers.ExitCode(0), 0u);
                });
    m_window.Post(kGoOn);
    m_host.Release();
    answered.LetGo();
    EXPECT_EQ(other.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(Judge(other.TakeAnswer()), kWhole);
    EXPECT_FALSE(file.Exists());
}

// The overtaken exchange has made no file, and so has none to delete.
TEST_F(OverlapTest, OvertakenExchangeLeavesTheFileOfTheOneAfterIt)
{
    const CTempFile file;
    PostToFile(m_host, L"/slow", file);
    ASSERT_TRUE(m_server.AwaitRequests(1, kPatienceMs));
    PostToFile(m_host, L"/", file);
    EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(Judge(file.Read()), kWhole);
    m_server.Release();
    EXPECT_EQ(m_workers.ExitCode(0), 0u);
    EXPECT_EQ(Judge(file.Read()), kWhole);
}

TEST_F(OverlapTest, ReleaseBeforeTheFirstByteLeavesTheTargetFileAsItWas)
{
    const CTempFile file;
    file.Write("what stood there before");
    PostToFile(m_host, L"/slow", file);
    ASSERT_TRUE(m_server.AwaitRequests(1, kPatienceMs));
    m_window.On(kGoOn, [this] { m_server.Release(); });
    m_window.Post(kGoOn);
    m_host.Release();
    EXPECT_EQ(file.Read(), "what stood there before");
}

}  // namespace
