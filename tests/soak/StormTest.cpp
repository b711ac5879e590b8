// Threads that create components, post, overtake, poll and release at random moments, beside a server that
// misbehaves. Whatever a component says is done must be the answer to what was asked of it last.
//   KVHTTP_SOAK_SECONDS  for how long
//   KVHTTP_SEED          the seed of each thread's choices; it is printed
#include <winsock2.h>

#include <gtest/gtest.h>
#include <process.h>

#include <atomic>
#include <cstdio>
#include <iterator>
#include <list>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "soak/SoakServer.h"
#include "system/HttpRawHost.h"
#include "system/NothingLeft.h"
#include "system/TempFile.h"

namespace
{

constexpr int kThreads = 16;
constexpr size_t kMostComponents = 3;

struct Target
{
    const wchar_t* pszPath;
    bool bAnswers;  // done means: with this very answer
};

constexpr Target kTargets[] = {{L"/text", true},    {L"/keep", true},     {L"/halves", true},
                               {L"/chunked", true}, {L"/redirect", true}, {L"/slow", true},
                               {L"/500", true},     {L"/short", false},   {L"/404", false},
                               {L"/loop", false},   {L"/reset", false},   {L"/stall", false}};

std::wstring Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

struct Component
{
    CHttpRawHost host;
    std::string form;  // posted last; empty when its end has been seen
    bool bAnswers = false;
    bool bFile = false;
    CTempFile file;
};

struct Storm
{
    CLoopbackServer server{ServeSoak};
    ULONGLONG end = 0;
    unsigned seed = 0;
    std::atomic<int> posts{0};
    std::atomic<int> answers{0};
    std::atomic<int> releases{0};
};

class CStormThread
{
public:
    CStormThread(Storm& storm, int number)
        : m_storm(storm), m_number(number), m_engine(storm.seed + static_cast<unsigned>(number))
    {
    }

    void Run()
    {
        while (GetTickCount64() < m_storm.end && !testing::Test::HasFailure())
        {
            Move();
        }
        m_storm.releases += static_cast<int>(m_components.size());
        m_components.clear();
    }

private:
    int Between(int least, int greatest)
    {
        return std::uniform_int_distribution<int>(least, greatest)(m_engine);
    }

    void Move()
    {
        if (m_components.empty() || (m_components.size() < kMostComponents && Between(0, 9) == 0))
        {
            m_components.emplace_back();
        }
        const auto component =
            std::next(m_components.begin(), Between(0, static_cast<int>(m_components.size()) - 1));
        const int move = Between(0, 19);
        if (move == 0)
        {
            ++m_storm.releases;
            m_components.erase(component);
        }
        else if (move <= 3 || component->form.empty())
        {
            Post(*component);
        }
        else if (move <= 5)
        {
            component->host->SetTimeout(static_cast<unsigned long>(Between(1, 30)));
        }
        else
        {
            Look(*component);
        }
    }

    void Post(Component& component)
    {
        const Target& target = kTargets[Between(0, static_cast<int>(std::size(kTargets)) - 1)];
        component.form = std::to_string(m_number) + "." + std::to_string(++m_last);
        component.bAnswers = target.bAnswers;
        component.bFile = Between(0, 3) == 0;
        component.host->SetDownloadFile(component.bFile ? component.file.Path() : L"");
        component.host.Post(m_storm.server.Url(target.pszPath), Wide(component.form));
        ++m_storm.posts;
    }

    void Look(Component& component)
    {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(Between(0, 4)), QS_ALLINPUT);
        for (MSG msg = {}; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
        {
            DispatchMessageW(&msg);
        }
        unsigned long status = 0;
        EXPECT_EQ(component.host->GetRequestStatus(&status), S_OK);
        if (status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING)
        {
            return;
        }
        if (status == REQ_STATUS_DONE && component.bAnswers)
        {
            CheckAnswer(component);
        }
        component.form.clear();
    }

    void CheckAnswer(const Component& component)
    {
        const std::string expected = SoakAnswer(component.form);
        if (component.bFile)
        {
            EXPECT_TRUE(component.file.Read() == expected)
                << component.form << " has another answer in its file";
        }
        else
        {
            EXPECT_TRUE(component.host.TakeAnswer().value_or(L"") == Wide(expected))
                << component.form << " got another answer";
        }
        ++m_storm.answers;
    }

    Storm& m_storm;
    const int m_number;
    int m_last = 0;
    std::mt19937 m_engine;
    std::list<Component> m_components;
};

struct ThreadStart
{
    Storm* pStorm;
    int number;
};

unsigned __stdcall RunThread(void* argument)
{
    const ThreadStart& start = *static_cast<const ThreadStart*>(argument);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CStormThread(*start.pStorm, start.number).Run();
    CoUninitialize();
    return 0;
}

void RunStorm(int milliseconds)
{
    Storm storm;
    storm.seed =
        static_cast<unsigned>(SoakNumber("KVHTTP_SEED", static_cast<int>(std::random_device{}() >> 1)));
    std::printf("KVHTTP_SEED=%u repeats the choices of this run\n", storm.seed);
    std::fflush(stdout);
    storm.end = GetTickCount64() + static_cast<ULONGLONG>(milliseconds);
    std::vector<ThreadStart> starts;
    for (int number = 0; number < kThreads; ++number)
    {
        starts.push_back({&storm, number});
    }
    std::vector<HANDLE> threads;
    for (ThreadStart& start : starts)
    {
        threads.push_back(
            reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RunThread, &start, 0, nullptr)));
    }
    while (WaitForMultipleObjects(kThreads, threads.data(), TRUE, 1000) == WAIT_TIMEOUT)
    {
        storm.server.Forget();
    }
    for (const HANDLE hThread : threads)
    {
        CloseHandle(hThread);
    }
    std::printf("storm: %d posts, %d answers compared, %d components released\n", storm.posts.load(),
                storm.answers.load(), storm.releases.load());
    std::fflush(stdout);
}

TEST(StormTest, SixteenThreadsAtRandomMomentsGetTheirOwnAnswers)
{
    const int seconds = SoakNumber("KVHTTP_SOAK_SECONDS", 0);
    if (seconds == 0)
    {
        GTEST_SKIP() << "a storm needs longer than a test has: scripts/soak makes one";
    }
    ExpectNothingLeft([seconds] { RunStorm(seconds * 500); }, 1);
}

}  // namespace
