// Waiting: messages, the end before the end, and what the host's functions may do meanwhile.
#include "support/SideThread.h"
#include "system/HostWindow.h"
#include "unit/client/ClientTest.h"

using kvHttp::Answer;
using kvHttp::Outcome;
using kvHttp::Progress;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace
{

constexpr UINT kMessage = WM_APP + 1;
constexpr UINT kOther = WM_APP + 2;

// The last calls of an exchange that is left to itself: another one overtakes it.
void ExpectAbandoned(const std::vector<std::wstring>& calls)
{
    ASSERT_GE(calls.size(), 3u);
    EXPECT_THAT(std::vector<std::wstring>(calls.end() - 3, calls.end()),
                ElementsAre(L"SetDownloadFile ", L"SetParentWnd 0", L"PostRequest - -"));
}

// The window of this thread's client that its timer belongs to. Others' are on the same desktop.
HWND TimerWindow()
{
    HWND hWnd = nullptr;
    do
    {
        hWnd = FindWindowExW(HWND_MESSAGE, hWnd, L"STATIC", nullptr);
    } while (hWnd != nullptr && GetWindowThreadProcessId(hWnd, nullptr) != GetCurrentThreadId());
    return hWnd;
}

class ClientWaitTest : public ClientTest
{
protected:
    CHostWindow m_window;
};

TEST_F(ClientWaitTest, DispatchesMessages)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    m_window.Post({kMessage, kOther});
    m_client.Post(L"u", L"d");
    EXPECT_THAT(m_window.Seen(), ElementsAre(kMessage, kOther));
}

TEST_F(ClientWaitTest, LetsTheHostDealWithMessagesItself)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    m_client.OnMessage([](const MSG& msg) { return msg.message == kMessage; });
    m_window.Post({kMessage, kOther});
    m_client.Post(L"u", L"d");
    EXPECT_THAT(m_window.Seen(), ElementsAre(kOther));
}

TEST_F(ClientWaitTest, AsksTheComponentInTimeHoweverManyMessagesCome)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    int messages = 0;
    m_window.On(kMessage,
                [&]
                {
                    ++messages;
                    s_now += 10;
                    if (messages < 1000)
                    {
                        m_window.Post(kMessage);
                    }
                });
    m_window.Post(kMessage);
    EXPECT_TRUE(m_client.Post(L"u", L"d"));
    EXPECT_EQ(messages, 10) << "five of 10 ms between two polls";
    m_window.Clear();
}

TEST_F(ClientWaitTest, AsksAsOftenAsItIsTold)
{
    // The timer goes by the machine's clock, and asks too.
    m_imports.Add("SetTimer", +[](HWND, UINT_PTR, UINT, TIMERPROC) -> UINT_PTR { return 1; });
    m_client.SetPollInterval(20ms);
    m_client.SetDeadline(1s);
    m_client.Post(L"u", L"d");
    EXPECT_EQ(m_httpRaw.m_polls, 51);
}

TEST_F(ClientWaitTest, EndsAtItsDeadline)
{
    m_client.SetDeadline(1030ms);
    const Answer answer = m_client.Post(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::DeadlinePassed);
    EXPECT_EQ(answer.nElapsedMs, 1030u);
    EXPECT_EQ(m_httpRaw.m_references, 1u) << "nothing was waited for";
    ExpectAbandoned(m_httpRaw.m_calls);
    EXPECT_EQ(m_httpRaw.m_calls.front(), L"SetTimeout 2")
        << "the platform's own time-outs need not be longer";
}

TEST_F(ClientWaitTest, ADeadlineDoesNotTakeAnAnswerThatIsThere)
{
    m_client.SetDeadline(1s);
    m_httpRaw.m_onPoll = [] { s_now += 5000; };
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::Done);
}

TEST_F(ClientWaitTest, HasNoDeadlineAtFirst)
{
    m_httpRaw.m_onPoll = [this]
    {
        s_now += 3600000;
        if (m_httpRaw.m_polls == 100)
        {
            m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
        }
    };
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::Done);
}

// Its worker may still run, and hold the file.
TEST_F(ClientWaitTest, LeavesAnExchangeThatHasTimedOutToItself)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_TIMEOUT);
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::TimedOut);
    ExpectAbandoned(m_httpRaw.m_calls);
}

TEST_F(ClientWaitTest, GivesTheComponentUpThatCannotBeOvertaken)
{
    m_client.Start({L"u", L"d", L""});
    m_httpRaw.m_hrPost = E_FAIL;
    m_httpRaw.m_onLastRelease = [this]
    {
        EXPECT_EQ(m_client.Poll(), Outcome::Cancelled) << "a window that asks meanwhile";
        EXPECT_EQ(m_client.Start({L"u", L"d", L""}), Outcome::Busy);
    };
    m_client.Cancel();
    EXPECT_EQ(m_client.State().outcome, Outcome::Cancelled);
    EXPECT_EQ(m_httpRaw.m_references, 0u);
}

TEST_F(ClientWaitTest, EndsWhenAnotherThreadCancels)
{
    const CImportPatch patch(GetModuleHandleW(nullptr), "MsgWaitForMultipleObjectsEx", s_pfnWait);
    m_client.SetPollInterval(60s);
    m_httpRaw.m_onPoll = [this]
    {
        if (m_httpRaw.m_polls == 1)
        {
            const CSideThread thread([this] { m_client.Cancel(); });
        }
    };
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::Cancelled);
    ExpectAbandoned(m_httpRaw.m_calls);
}

TEST_F(ClientWaitTest, EndsAtOnceWhenItsOwnThreadCancels)
{
    m_window.On(kMessage, [this] { m_client.Cancel(); });
    m_window.Post(kMessage);
    const Answer answer = m_client.Post(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::Cancelled);
    EXPECT_EQ(answer.nElapsedMs, 0u);
}

TEST_F(ClientWaitTest, ACancelOfNothingDoesNotCancelTheNext)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_client.Cancel();
    EXPECT_TRUE(m_client.Post(L"u", L"d"));
}

TEST_F(ClientWaitTest, EndsAtAQuitMessageAndLeavesItToTheHost)
{
    m_httpRaw.m_onPoll = [] { PostQuitMessage(7); };
    const Answer answer = m_client.Post(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::QuitAsked);
    ExpectAbandoned(m_httpRaw.m_calls);
    EXPECT_THAT(TakeMessages(), ElementsAre(L"quit 7"));
}

TEST_F(ClientWaitTest, RefusesAPostFromAWindowMeanwhile)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    m_httpRaw.m_answer = L"of the first";
    std::vector<Outcome> refused;
    m_window.On(kMessage,
                [&]
                {
                    refused.push_back(m_client.Post(L"other", L"d").outcome);
                    refused.push_back(m_client.Wait().outcome);
                });
    m_window.Post(kMessage);
    EXPECT_EQ(m_client.Post(L"u", L"d").strText, L"of the first");
    EXPECT_THAT(refused, ElementsAre(Outcome::Busy, Outcome::Busy));
    EXPECT_THAT(m_httpRaw.m_calls, testing::Not(testing::Contains(L"PostRequest other d")));
}

TEST_F(ClientWaitTest, AnswersNoOtherThread)
{
    m_client.Start({L"u", L"d", L""});
    const CSideThread thread(
        [this]
        {
            EXPECT_EQ(m_client.Open(), Outcome::OtherThread);
            EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::OtherThread);
            EXPECT_EQ(m_client.Wait().outcome, Outcome::OtherThread);
            m_client.Poll();
            m_client.Close();
        });
    thread.Join();
    EXPECT_EQ(m_httpRaw.m_polls, 0);
    EXPECT_EQ(m_httpRaw.m_references, 1u);
}

// What OnChange's function was told.
std::function<void(const Progress&)> Record(std::vector<std::pair<Outcome, unsigned long>>& told)
{
    return [&told](const Progress& progress) { told.emplace_back(progress.outcome, progress.nStatus); };
}

TEST_F(ClientWaitTest, ReportsEachChangeOnce)
{
    for (const unsigned long status : {5ul, 5ul, 6ul, 6ul, 6ul, 9ul})
    {
        m_httpRaw.m_statuses.Then(status);
    }
    std::vector<std::pair<Outcome, unsigned long>> told;
    m_client.OnChange(Record(told));
    m_client.Post(L"u", L"d");
    EXPECT_THAT(told, ElementsAre(std::pair(Outcome::Running, 5ul), std::pair(Outcome::Running, 6ul),
                                  std::pair(Outcome::Done, 9ul)));
}

TEST_F(ClientWaitTest, TellsWhatIsKnownAtAChange)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    m_httpRaw.m_answer = L"text";
    std::wstring text;
    ULONGLONG elapsed = 0;
    m_client.OnChange(
        [&](const Progress& progress)
        {
            elapsed = progress.nElapsedMs;
            text = m_client.TakeAnswer().strText;
        });
    m_client.Post(L"u", L"d");
    EXPECT_EQ(elapsed, 50u);
    EXPECT_EQ(text, L"text");
}

TEST_F(ClientWaitTest, LetsTheReportOfTheEndBeginTheNextExchange)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_FAILED).Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    std::vector<std::pair<Outcome, unsigned long>> told;
    m_client.OnChange(
        [&, record = Record(told)](const Progress& progress)
        {
            record(progress);
            if (progress.outcome == Outcome::Failed)
            {
                EXPECT_EQ(m_client.Start({L"again", L"d", L""}), Outcome::Running);
            }
        });
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::Done) << "of the last one";
    EXPECT_EQ(told.size(), 4u);
}

TEST_F(ClientWaitTest, AReportIsNoPlaceToWaitIn)
{
    Outcome outcome = Outcome::Idle;
    m_client.OnChange([&](const Progress&) { outcome = m_client.Wait().outcome; });
    m_client.Start({L"u", L"d", L""});
    EXPECT_EQ(outcome, Outcome::Busy);
}

TEST_F(ClientWaitTest, AReportMayCancelAndAskForOtherReports)
{
    std::vector<std::pair<Outcome, unsigned long>> told;
    m_client.OnChange(
        [&](const Progress&)
        {
            m_client.Cancel();
            m_client.OnChange(Record(told));
        });
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::Cancelled);
    EXPECT_THAT(told, ElementsAre(std::pair(Outcome::Cancelled, 5ul)));
}

// What a function of the host's captured, and when it went. Its end is told here, for a function that has
// gone has nothing left in which it could tell.
class CCaptured
{
public:
    CCaptured() { s_end = "never"; }
    ~CCaptured() { s_end = s_bReplacing ? "while it runs" : "after it has run"; }
    CCaptured(const CCaptured&) = delete;
    CCaptured& operator=(const CCaptured&) = delete;

    static inline bool s_bReplacing = false;
    static inline const char* s_end = "";
};

TEST_F(ClientWaitTest, KeepsTheFunctionForReportsUntilItReturns)
{
    for (const bool bOther : {false, true})
    {
        SCOPED_TRACE(bOther ? "asks for another one" : "asks for none");
        m_client.OnChange(
            [this, bOther, pCaptured = std::make_shared<CCaptured>()](const Progress&)
            {
                CCaptured::s_bReplacing = true;
                m_client.OnChange(bOther ? std::function([](const Progress&) {}) : nullptr);
                CCaptured::s_bReplacing = false;
            });
        m_client.Start({L"u", L"d", L""});
        EXPECT_STREQ(CCaptured::s_end, "after it has run");
        m_client.Cancel();
    }
}

TEST_F(ClientWaitTest, KeepsTheFunctionForMessagesUntilItReturns)
{
    m_client.OnMessage(
        [this, pCaptured = std::make_shared<CCaptured>()](const MSG&)
        {
            CCaptured::s_bReplacing = true;
            m_client.OnMessage(nullptr);
            CCaptured::s_bReplacing = false;
            return false;
        });
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    m_window.Post({kMessage});
    m_client.Post(L"u", L"d");
    EXPECT_STREQ(CCaptured::s_end, "after it has run");
    EXPECT_THAT(m_window.Seen(), ElementsAre(kMessage));
}

// The host's own loop serves the client's timer.
TEST_F(ClientWaitTest, LooksAfterAStartedExchangeWhereverMessagesAreDispatched)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_DONE);
    m_client.SetPollInterval(10ms);
    std::vector<std::pair<Outcome, unsigned long>> told;
    m_client.OnChange(Record(told));
    m_client.Start({L"u", L"d", L""});
    const UINT_PTR timer = SetTimer(nullptr, 0, 20000, nullptr);
    for (MSG msg = {}; m_client.State().outcome == Outcome::Running && GetMessageW(&msg, nullptr, 0, 0) > 0;)
    {
        ASSERT_FALSE(msg.message == WM_TIMER && msg.wParam == timer) << "the client does not look";
        DispatchMessageW(&msg);
    }
    KillTimer(nullptr, timer);
    EXPECT_THAT(told, ElementsAre(std::pair(Outcome::Running, 5ul), std::pair(Outcome::Done, 9ul)));
    EXPECT_FALSE(KillTimer(TimerWindow(), 1)) << "the timer goes on";
}

TEST_F(ClientWaitTest, CloseEndsWhatRunsAndReportsNothing)
{
    m_client.Start({L"u", L"d", L""});
    std::vector<std::pair<Outcome, unsigned long>> told;
    m_client.OnChange(Record(told));
    m_httpRaw.m_onLastRelease = [this]
    { EXPECT_EQ(m_client.Start({L"u", L"d", L""}), Outcome::Busy) << "a window that posts meanwhile"; };
    m_client.Close();
    EXPECT_EQ(m_client.State().outcome, Outcome::Idle);
    EXPECT_EQ(m_httpRaw.m_references, 0u);
    EXPECT_THAT(told, IsEmpty());
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    EXPECT_TRUE(m_client.Post(L"u", L"d")) << "with a new component";
}

TEST(ClientEndTest, GivesEverythingBack)
{
    CScriptedHttpRaw httpRaw;
    CScriptedFactory factory(httpRaw);
    {
        kvHttp::CClient client(&factory);
        client.Start({L"u", L"d", L""});
        client.OnChange([](const Progress&) { ADD_FAILURE() << "reported while it goes"; });
        EXPECT_EQ(factory.m_references, 1u);
        EXPECT_NE(TimerWindow(), nullptr);
    }
    EXPECT_EQ(httpRaw.m_references, 0u);
    EXPECT_EQ(factory.m_references, 0u);
    EXPECT_EQ(TimerWindow(), nullptr);
}

}  // namespace
