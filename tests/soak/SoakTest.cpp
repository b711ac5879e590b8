// Exchanges of all kinds and ends, one after another, on components that are used again and on fresh ones.
// What the process holds is printed on the way; scripts/soak looks whether it grows, and draws it.
//   KVHTTP_SOAK_EXCHANGES  how many
#include <winsock2.h>

#include <gtest/gtest.h>
#include <psapi.h>

#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "soak/GuiObjects.h"
#include "soak/SoakServer.h"
#include "support/ProcessResources.h"
#include "support/WineVersion.h"
#include "system/HttpRawHost.h"
#include "system/TempFile.h"
#include "system/UnreachableServers.h"

namespace
{

constexpr int kSampleEvery = 50;
constexpr int kReused = 4;

std::wstring Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

enum End
{
    END_TEXT,      // the answer is read
    END_UNREAD,    // it is not
    END_FILE,      // it is in a file
    END_STATUS,    // there is none
    END_RESET,     // there is none; Wine sometimes takes the reset for the end of an empty one
    END_RELEASE,   // the component goes while the exchange runs
    END_OVERTAKE,  // another exchange takes its place
    END_TIMEOUT,   // the component's time-out ends it
};

struct Kind
{
    const char* pszTarget;
    End end;
    unsigned long status = REQ_STATUS_DONE;
};

constexpr Kind kKinds[] = {
    {"/text", END_TEXT},
    {"/keep", END_TEXT},
    {"/text", END_FILE},
    {"/halves", END_TEXT},
    {"/chunked", END_TEXT},
    {"/redirect", END_TEXT},
    {"/slow", END_UNREAD},
    {"/redirect", END_FILE},
    {"/500", END_TEXT},
    {"/404", END_STATUS, REQ_STATUS_HTTP_ERROR},
    {"/408", END_STATUS, REQ_STATUS_TIMEOUT},
    {"/loop", END_STATUS, REQ_STATUS_TIMEOUT},
    {"/reset", END_RESET},
    {"refused", END_STATUS, REQ_STATUS_FAILED},
    {"no url", END_STATUS, REQ_STATUS_FAILED},
    {"/short", END_UNREAD},
    {"/stall", END_RELEASE},
    {"/slow", END_RELEASE},
    {"/halves", END_RELEASE},
    {"/stall", END_OVERTAKE},
    {"/halves", END_OVERTAKE},
    {"/keep", END_FILE},
};
constexpr int kKindCount = static_cast<int>(std::size(kKinds));
constexpr Kind kTimeout = {"/hang", END_TIMEOUT, REQ_STATUS_TIMEOUT};
// It takes a second.
constexpr int kTimeoutEvery = 200;

class CSoak
{
public:
    CSoak() : m_server(ServeSoak)
    {
        for (std::unique_ptr<CHttpRawHost>& host : m_reused)
        {
            host = std::make_unique<CHttpRawHost>();
        }
    }

    void Exchange(int number)
    {
        const Kind& kind =
            number % kTimeoutEvery == kTimeoutEvery - 1 ? kTimeout : kKinds[number % kKindCount];
        // Each kind meets each component, and as often a fresh one.
        const int place = number / kKindCount % (2 * kReused);
        CHttpRawHost fresh;
        CHttpRawHost& host = place < kReused ? *m_reused[place] : fresh;
        Run(kind, host, "soak=" + std::to_string(number));
        if (kind.end == END_RELEASE && place < kReused)
        {
            m_reused[place] = std::make_unique<CHttpRawHost>();
        }
        if (number % kSampleEvery == 0)
        {
            m_server.Forget();
        }
    }

    // Only what is not on its way out any more counts.
    void Sample(int number)
    {
        m_server.AwaitIdle(200);
        m_server.Forget();
        PROCESS_MEMORY_COUNTERS_EX memory = {};
        memory.cb = sizeof(memory);
        GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                             sizeof(memory));
        std::printf("sample: exchanges=%d handles=%d threads=%d kilobytes=%lu gdi=%lu user=%lu\n", number,
                    CountHandles(), CountThreads(), static_cast<unsigned long>(memory.PrivateUsage / 1024),
                    CountGdiObjects(), CountUserObjects());
        std::fflush(stdout);
    }

private:
    std::wstring Url(const std::string& target) const
    {
        return target == "refused" ? m_refusing.Url()
               : target[0] != '/'  ? Wide(target)
                                   : m_server.Url(Wide(target));
    }

    void Run(const Kind& kind, CHttpRawHost& host, const std::string& form)
    {
        const std::string what = std::string(kind.pszTarget) + " with " + form;
        const std::wstring url = Url(kind.pszTarget);
        host->SetTimeout(kind.end == END_TIMEOUT ? 1 : 20);
        host->SetDownloadFile(kind.end == END_FILE ? m_file.Path() : L"");
        switch (kind.end)
        {
            case END_RELEASE:
                host.Post(url, Wide(form));
                host.Release();
                break;
            case END_OVERTAKE:
                host.Post(url, Wide(form + "!"));
                EXPECT_EQ(host.PostAndAwaitEnd(m_server.Url(L"/text"), Wide(form)), Status{REQ_STATUS_DONE})
                    << what;
                EXPECT_EQ(host.TakeAnswer().value_or(L""), Wide(SoakAnswer(form))) << what;
                break;
            case END_FILE:
                EXPECT_EQ(host.PostAndAwaitEnd(url, Wide(form)), Status{kind.status}) << what;
                EXPECT_EQ(m_file.Read().value_or("none"), SoakAnswer(form)) << what;
                break;
            case END_TEXT:
                EXPECT_EQ(host.PostAndAwaitEnd(url, Wide(form)), Status{kind.status}) << what;
                EXPECT_EQ(host.TakeAnswer().value_or(L""), Wide(SoakAnswer(form))) << what;
                break;
            case END_RESET:
                if (const Status status = host.PostAndAwaitEnd(url, Wide(form));
                    !IsWine() || status != Status{REQ_STATUS_DONE})
                {
                    EXPECT_EQ(status, Status{REQ_STATUS_FAILED}) << what;
                }
                EXPECT_EQ(host.TakeAnswer(), std::nullopt) << what;
                break;
            default:
                EXPECT_EQ(host.PostAndAwaitEnd(url, Wide(form)), Status{kind.status}) << what;
                break;
        }
    }

    CLoopbackServer m_server;
    CRefusingPort m_refusing;
    CTempFile m_file;
    std::unique_ptr<CHttpRawHost> m_reused[kReused];
};

TEST(SoakTest, ExchangesOfAllKindsOneAfterAnotherEndAsTheyShould)
{
    const int exchanges = SoakNumber("KVHTTP_SOAK_EXCHANGES", 2 * kKindCount);
    const std::unique_ptr<CSoak> soak = std::make_unique<CSoak>();
    for (int number = 0; number < exchanges && !HasFailure(); ++number)
    {
        if (number % kSampleEvery == 0)
        {
            soak->Sample(number);
        }
        soak->Exchange(number);
    }
    soak->Sample(exchanges);
}

}  // namespace
