// What a host's window may do with the component while the last release waits for the worker: the release
// dispatches the thread's messages, and a window that answers one may call the component.
#include <ostream>

#include "module/HttpRawTest.h"
#include "system/HostWindow.h"

using testing::SizeIs;

namespace
{

constexpr UINT kUse = WM_APP + 1;
constexpr UINT kLetGo = WM_APP + 2;

class HttpRawReleaseTest : public HttpRawTest
{
protected:
    // Releases; use runs in the middle of the wait, then the worker goes on.
    void ReleaseWhileWindowUses(CHold& hold, const std::function<void(IHttpRaw*)>& use)
    {
        m_system.m_bThreadsHeld = false;  // a worker that is started now runs to its end
        m_window.On(kUse, [&, pHttpRaw = m_pHttpRaw] { use(pHttpRaw); });
        m_window.On(kLetGo, [&] { hold.LetGo(); });
        m_window.Post({kUse, kLetGo});
        ReleaseComponent();
        EXPECT_THAT(m_window.Seen(), testing::ElementsAre(kUse, kLetGo));
        EXPECT_EQ(CanUnloadNow(), S_OK) << "a component is left";
        EXPECT_THAT(Select(CALL_NET, "InternetOpenW"), SizeIs(1));
        EXPECT_THAT(Select(CALL_NET, "InternetCloseHandle(session"), SizeIs(1));
    }

    HRESULT CanUnloadNow() const
    {
        const auto canUnloadNow = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
            reinterpret_cast<void*>(GetProcAddress(m_pModule->Handle(), "DllCanUnloadNow")));
        return canUnloadNow();
    }

    static unsigned long StatusOf(IHttpRaw* pHttpRaw)
    {
        unsigned long status = 0xFFFF;
        EXPECT_EQ(pHttpRaw->GetRequestStatus(&status), S_OK);
        return status;
    }

    void ExpectPostsNothing(IHttpRaw* pHttpRaw) const
    {
        const size_t starts = m_journal.Count("_beginthreadex");
        EXPECT_EQ(pHttpRaw->PostRequest(L"http://127.0.0.1/late", L"a=1"), E_FAIL);
        EXPECT_EQ(pHttpRaw->PostUrl(L"http://127.0.0.1/late?a=1"), E_FAIL);
        EXPECT_EQ(m_journal.Count("_beginthreadex"), starts);
    }

    static void ExpectTakesSettings(IHttpRaw* pHttpRaw)
    {
        EXPECT_EQ(pHttpRaw->SetDownloadFile(L"C:\\late"), S_OK);
        EXPECT_EQ(pHttpRaw->SetParentWnd(GetDesktopWindow()), S_OK);
        EXPECT_EQ(pHttpRaw->SetTimeout(1), S_OK);
        EXPECT_EQ(pHttpRaw->SetTraceResponse(0), S_OK);
    }

    CHostWindow m_window;
};

struct Stage
{
    const char* label;
    const char* call;  // in which the worker is held
    unsigned long status;
};

std::ostream& operator<<(std::ostream& stream, const Stage& stage)
{
    return stream << stage.label;
}

class HttpRawReleaseStageTest : public HttpRawReleaseTest, public testing::WithParamInterface<Stage>
{
};

TEST_P(HttpRawReleaseStageTest, EveryMethodAnswersAndNoneStartsAnything)
{
    CHold hold(m_journal, GetParam().call);
    PostInto(hold);
    ReleaseWhileWindowUses(hold,
                           [&](IHttpRaw* pHttpRaw)
                           {
                               EXPECT_EQ(StatusOf(pHttpRaw), GetParam().status);
                               ExpectPostsNothing(pHttpRaw);
                               BSTR const untouched = SysAllocString(L"untouched");
                               BSTR bstr = untouched;
                               EXPECT_EQ(pHttpRaw->GetResponseData(&bstr), E_FAIL);
                               EXPECT_EQ(bstr, untouched);
                               SysFreeString(untouched);
                               ExpectTakesSettings(pHttpRaw);
                               EXPECT_EQ(StatusOf(pHttpRaw), GetParam().status);
                               EXPECT_EQ(CanUnloadNow(), S_FALSE);
                           });
    EXPECT_EQ(Statuses().back(), "2") << "the released exchange went on";
}

INSTANTIATE_TEST_SUITE_P(Stages, HttpRawReleaseStageTest,
                         testing::Values(Stage{"Sending", "HttpSendRequestW", 5},
                                         Stage{"Receiving", "InternetReadFile", 6}),
                         [](const testing::TestParamInfo<Stage>& stage)
                         { return std::string(stage.param.label); });

TEST_F(HttpRawReleaseTest, ReferencesCanBeTakenAndDropped)
{
    CHold hold(m_journal, "HttpSendRequestW");
    PostInto(hold);
    ReleaseWhileWindowUses(hold,
                           [](IHttpRaw* pHttpRaw)
                           {
                               EXPECT_EQ(pHttpRaw->AddRef(), 2u);
                               void* pSame = nullptr;
                               EXPECT_EQ(pHttpRaw->QueryInterface(IID_IHttpRaw, &pSame), S_OK);
                               EXPECT_EQ(pSame, pHttpRaw);
                               EXPECT_EQ(static_cast<IHttpRaw*>(pSame)->Release(), 2u);
                               EXPECT_EQ(pHttpRaw->Release(), 1u);
                               EXPECT_EQ(StatusOf(pHttpRaw), 5u);
                           });
    EXPECT_EQ(m_journal.Count(Enter("CHttpRequest::~CHttpRequest\n")), 1u);
}

TEST_F(HttpRawReleaseTest, PollStillFindsTheTimeout)
{
    m_pHttpRaw->SetTimeout(5);
    CHold hold(m_journal, "HttpSendRequestW");
    PostInto(hold);
    ReleaseWhileWindowUses(hold,
                           [this](IHttpRaw* pHttpRaw)
                           {
                               m_system.m_dwTick += 5001;
                               EXPECT_EQ(StatusOf(pHttpRaw), 7u);
                           });
}

// The worker has written its final status and is on its way out.
TEST_F(HttpRawReleaseTest, AnswerThatIsThereCanStillBeTaken)
{
    m_winInet.m_reads.Then({"the answer"});
    // The host writes 5, the worker 5, 6 and 9.
    CHold hold(m_journal, Leave("CHttpRequest::UpdateRequestStatus"), 4);
    PostInto(hold);
    ReleaseWhileWindowUses(hold,
                           [](IHttpRaw* pHttpRaw)
                           {
                               EXPECT_EQ(StatusOf(pHttpRaw), 9u);
                               BSTR bstr = nullptr;
                               EXPECT_EQ(pHttpRaw->GetResponseData(&bstr), S_OK);
                               EXPECT_STREQ(bstr, L"the answer");
                               SysFreeString(bstr);
                           });
}

TEST_F(HttpRawReleaseTest, NothingCanBePostedWhileItWaitsForAnOvertakenExchange)
{
    CHold hold(m_journal, "HttpSendRequestW");
    PostInto(hold);
    EXPECT_EQ(StartPost(), S_OK);
    m_system.LetGo();
    // The host writes 5 twice, the overtaken worker 5, this one 5, 6 and 9.
    ASSERT_TRUE(m_journal.WaitFor(Leave("CHttpRequest::UpdateRequestStatus"), 6));
    ReleaseWhileWindowUses(hold,
                           [this](IHttpRaw* pHttpRaw)
                           {
                               ExpectPostsNothing(pHttpRaw);
                               ExpectTakesSettings(pHttpRaw);
                               EXPECT_EQ(StatusOf(pHttpRaw), 9u);
                           });
}

}  // namespace
