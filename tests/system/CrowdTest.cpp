// Many components at once, on many threads: each gets its own answer, and at the end nothing is left.
#include <winsock2.h>

#include <gmock/gmock.h>
#include <process.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"
#include "system/NothingLeft.h"
#include "system/TempFile.h"
#include "system/UnreachableServers.h"

namespace
{

constexpr int kThreads = 8;
constexpr int kPerThread = 8;
constexpr DWORD kReleaseBoundMs = 10000;

struct CrowdThread
{
    const std::function<void(int)>* pWork;
    HANDLE hBegin;
    int number;
};

unsigned __stdcall RunInApartment(void* argument)
{
    const CrowdThread& thread = *static_cast<const CrowdThread*>(argument);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    WaitForSingleObject(thread.hBegin, kPatienceMs);
    (*thread.pWork)(thread.number);
    CoUninitialize();
    return 0;
}

// Does work(0), work(1) and so on, each on a thread and in an apartment of its own, all begun at one moment.
void OnThreads(const std::function<void(int)>& work)
{
    const HANDLE hBegin = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<CrowdThread> threads;
    for (int number = 0; number < kThreads; ++number)
    {
        threads.push_back({&work, hBegin, number});
    }
    std::vector<HANDLE> handles;
    for (CrowdThread& thread : threads)
    {
        handles.push_back(
            reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RunInApartment, &thread, 0, nullptr)));
    }
    SetEvent(hBegin);
    WaitForMultipleObjects(kThreads, handles.data(), TRUE, INFINITE);
    for (const HANDLE hThread : handles)
    {
        CloseHandle(hThread);
    }
    CloseHandle(hBegin);
}

HRESULT CanUnloadNow()
{
    using CanUnloadProc = HRESULT(STDAPICALLTYPE*)();
    const auto canUnload = reinterpret_cast<CanUnloadProc>(
        reinterpret_cast<void*>(GetProcAddress(CHttpRawHost::Module(), "DllCanUnloadNow")));
    return canUnload();
}

// Differs from form to form in every line, and in its length: from one line up to three reads of the module.
std::string AnswerTo(const std::string& form)
{
    const size_t lines = 1 + std::hash<std::string>()(form) % 1500;
    std::string answer;
    for (size_t line = 0; line < lines; ++line)
    {
        answer += form + " line " + std::to_string(line) + "\n";
    }
    return answer;
}

std::string Form(int thread, int component, const char* pszWhat = "crowd")
{
    return std::string(pszWhat) + "=" + std::to_string(thread) + "." + std::to_string(component);
}

std::wstring Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

// The connection ends with the answer: the platform would keep its handles for a while.
std::string MakeLastAnswer(const CLoopbackRequest& request)
{
    return MakeAnswer(200, AnswerTo(request.strBody), "Connection: close\r\n");
}

// One component with its form, which keeps the answer in memory or in a file.
class CMember
{
public:
    CMember(std::string form, bool bFile) : m_form(std::move(form))
    {
        if (bFile)
        {
            m_file = std::make_unique<CTempFile>();
            m_host->SetDownloadFile(m_file->Path());
        }
    }

    CHttpRawHost* operator->() { return &m_host; }
    void Post(const std::wstring& url) { m_host.Post(url, Wide(m_form)); }

    Status CurrentStatus()
    {
        unsigned long status = 0;
        EXPECT_EQ(m_host->GetRequestStatus(&status), S_OK);
        return {status};
    }

    void ExpectItsAnswer()
    {
        EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_DONE}) << m_form;
        const std::string answer = AnswerTo(m_form);
        if (m_file == nullptr)
        {
            EXPECT_TRUE(m_host.TakeAnswer() == Wide(answer)) << m_form << " got another answer";
            return;
        }
        EXPECT_TRUE(m_file->Read() == answer) << m_form << " has another answer in its file";
        EXPECT_EQ(m_host.TakeAnswer(), std::nullopt) << m_form;
    }

private:
    const std::string m_form;
    std::unique_ptr<CTempFile> m_file;
    CHttpRawHost m_host;
};

// The server holds its first answer back until all components of all threads have posted.
void CrowdRound()
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            connection.Stall();
            connection.Send(MakeLastAnswer(request));
        });
    std::atomic<int> cPosted = 0;
    OnThreads(
        [&](int thread)
        {
            std::vector<std::unique_ptr<CMember>> members;
            for (int component = 0; component < kPerThread; ++component)
            {
                members.push_back(std::make_unique<CMember>(Form(thread, component), component % 2 != 0));
                members.back()->Post(server.Url(L"/"));
                if (++cPosted == kThreads * kPerThread)
                {
                    server.Release();
                }
            }
            for (const std::unique_ptr<CMember>& member : members)
            {
                member->ExpectItsAnswer();
            }
        });

    std::vector<std::string> forms;
    for (const CLoopbackRequest& request : server.Requests())
    {
        forms.push_back(request.strBody);
    }
    std::vector<std::string> expected;
    for (int i = 0; i < kThreads * kPerThread; ++i)
    {
        expected.push_back(Form(i / kPerThread, i % kPerThread));
    }
    EXPECT_THAT(forms, testing::UnorderedElementsAreArray(expected)) << "each form is sent once";
    EXPECT_EQ(CanUnloadNow(), S_OK);
}

TEST(CrowdTest, SixtyFourComponentsInEightThreadsGetTheirOwnAnswers)
{
    ExpectNothingLeft(CrowdRound, 1);
}

// The server answers the second component first, and the first one only when the host has seen that.
void InterleavedPair(int thread, int round)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget == "/late")
            {
                connection.Stall();
            }
            connection.Send(MakeLastAnswer(request));
        });
    CMember late(Form(thread, round, "late"), round % 2 == 0);
    CMember early(Form(thread, round, "early"), (round / 2) % 2 == 0);
    late.Post(server.Url(L"/late"));
    early.Post(server.Url(L"/early"));
    early.ExpectItsAnswer();
    EXPECT_EQ(late.CurrentStatus(), Status{REQ_STATUS_SENDING});
    EXPECT_EQ(late->TakeAnswer(), std::nullopt);
    server.Release();
    late.ExpectItsAnswer();
    EXPECT_EQ(early.CurrentStatus(), Status{REQ_STATUS_DONE}) << "the other exchange has changed it";
}

TEST(CrowdTest, TwoInterleavedComponentsInEachThreadGetTheirOwnAnswers)
{
    ExpectNothingLeft(
        []
        {
            OnThreads(
                [](int thread)
                {
                    for (int round = 0; round < 4; ++round)
                    {
                        InterleavedPair(thread, round);
                    }
                });
        },
        1);
}

// One server's worth of misuse: what a target does to its exchange.
void AnswerByTarget(const CLoopbackRequest& request, CLoopbackConnection& connection)
{
    const std::string answer = MakeLastAnswer(request);
    if (request.strTarget == "/slow")
    {
        connection.Pause(10);
    }
    if (request.strTarget == "/halves")
    {
        connection.Send(std::string_view(answer).substr(0, answer.size() / 2));
        connection.Pause(10);
        connection.Send(std::string_view(answer).substr(answer.size() / 2));
        return;
    }
    connection.Send(answer);
}

constexpr char kOldContent[] = "as it was";

// A whole answer, none, or what was there before the exchange had come to its answer: nothing in between may
// stay on disk.
void ExpectWholeOrNone(const CTempFile& file, const std::string& form)
{
    const std::optional<std::string> bytes = file.Read();
    EXPECT_TRUE(!bytes || *bytes == kOldContent || *bytes == AnswerTo(form))
        << form << " left a part of its answer: " << *bytes;
}

// One component's life, which ends at the stage that the number says.
void LiveAndRelease(CLoopbackServer& server, int stage, const std::string& form, size_t cRequests)
{
    const std::wstring data = Wide(form);
    const CTempFile file;
    CHttpRawHost host;
    switch (stage)
    {
        case 0:  // the answer read
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), data), Status{REQ_STATUS_DONE});
            EXPECT_TRUE(host.TakeAnswer() == Wide(AnswerTo(form))) << form;
            break;
        case 1:  // the answer unread
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/halves"), data), Status{REQ_STATUS_DONE});
            break;
        case 2:  // just posted
            host.Post(server.Url(L"/"), data);
            break;
        case 3:  // waiting for the head
            host.Post(server.Url(L"/slow"), data);
            EXPECT_TRUE(server.AwaitRequests(cRequests + 1, kPatienceMs));
            break;
        case 4:  // amid the body, as often as the worker is slow enough
            host.Post(server.Url(L"/halves"), data);
            EXPECT_TRUE(server.AwaitRequests(cRequests + 1, kPatienceMs));
            break;
        case 5:  // amid the file
            file.Write(kOldContent);
            host->SetDownloadFile(file.Path());
            host.Post(server.Url(L"/halves"), data);
            EXPECT_TRUE(server.AwaitRequests(cRequests + 1, kPatienceMs));
            break;
        case 6:  // overtaken twice
            host.Post(server.Url(L"/slow"), data);
            host.Post(server.Url(L"/slow"), data);
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), data), Status{REQ_STATUS_DONE});
            EXPECT_TRUE(host.TakeAnswer() == Wide(AnswerTo(form))) << form;
            break;
        default:  // failed
            EXPECT_EQ(host.PostAndAwaitEnd(L"no url", data), Status{REQ_STATUS_FAILED});
            EXPECT_EQ(host.PostAndAwaitEnd(CRefusingPort().Url(), data), Status{REQ_STATUS_FAILED});
            break;
    }
    EXPECT_LT(host.Release(), kReleaseBoundMs);
    if (stage == 5)
    {
        ExpectWholeOrNone(file, form);
    }
}

void LiveManyLives(int thread, int lives)
{
    constexpr int kStages = 8;
    CLoopbackServer server(AnswerByTarget);
    for (int life = 0; life < lives; ++life)
    {
        LiveAndRelease(server, (thread + life * 5) % kStages, Form(thread, life), server.Requests().size());
    }
    EXPECT_TRUE(server.AwaitIdle(kPatienceMs));
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/"), L"last=1"), Status{REQ_STATUS_DONE});
    EXPECT_TRUE(host.TakeAnswer() == Wide(AnswerTo("last=1")));
}

// 208 components with 280 posts, each thread at another stage.
TEST(CrowdTest, ComponentsThatComeAndGoOnManyThreadsLeaveAHealthyProcess)
{
    int lives = 0;
    ExpectNothingLeft(
        [&lives]
        {
            lives += 8;
            OnThreads([&lives](int thread) { LiveManyLives(thread, lives); });
            EXPECT_EQ(CanUnloadNow(), S_OK);
        },
        1);
}

}  // namespace
