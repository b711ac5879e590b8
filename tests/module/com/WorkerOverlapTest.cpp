// A send while the exchange of the last one still runs.
#include <gmock/gmock.h>

#include <algorithm>

#include "module/com/ServerModule.h"
#include "support/ProcessResources.h"
#include "unit/request/RequestScript.h"

namespace
{

using testing::Contains;
using testing::Not;

class WorkerOverlapTest : public testing::Test
{
protected:
    ~WorkerOverlapTest() override
    {
        if (m_pHttpRaw != nullptr)
        {
            m_pHttpRaw->Release();
        }
        EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
    }

    void Post() { ASSERT_EQ(m_pHttpRaw->PostRequest(L"http://host/", L"x"), S_OK); }

    // Makes the send of that request block until its handle is closed, as the platform's does.
    void BlockUntilClosed(std::initializer_list<int> requests)
    {
        const std::vector<int> blocked(requests);
        const auto contains = [blocked](int request)
        { return std::find(blocked.begin(), blocked.end(), request) != blocked.end(); };
        m_script.m_onSend = [this, contains](int request) -> BOOL
        {
            if (!contains(request))
            {
                return TRUE;
            }
            m_sending.at(static_cast<size_t>(request)).Set();
            m_closed.at(static_cast<size_t>(request)).Wait();
            return FALSE;
        };
        m_script.m_onCloseRequest = [this](int request) { m_closed.at(static_cast<size_t>(request)).Set(); };
    }

    void* Object(size_t send) const { return m_script.m_thread.m_starts.at(send).pObject; }
    DWORD ExitCode(size_t send) const { return m_script.m_thread.ExitCode(send); }

    unsigned long Status()
    {
        unsigned long status = 0xEEEE;
        m_pHttpRaw->GetRequestStatus(&status);
        return status;
    }

    std::vector<CEvent> m_sending = std::vector<CEvent>(8);
    std::vector<CEvent> m_closed = std::vector<CEvent>(8);
    CServerModule m_module;
    CRequestScript m_script{m_module.Handle()};
    IHttpRaw* m_pHttpRaw = m_module.CreateHttpRaw();
};

TEST_F(WorkerOverlapTest, StopsTheOldRequestAndServesTheNewOneByAnother)
{
    BlockUntilClosed({1});
    Post();
    ASSERT_TRUE(m_sending[1].Wait());
    Post();
    EXPECT_THAT(m_script.Calls(), Contains("owner: close request 1"));
    EXPECT_NE(Object(1), Object(0));
    EXPECT_EQ(ExitCode(0), 0u);
    EXPECT_EQ(ExitCode(1), 0u);
    EXPECT_NE(Status(), 2ul) << "the outcome of the old request reached the host";
}

TEST_F(WorkerOverlapTest, LaterSendReusesTheObjectOfTheFinishedExchange)
{
    Post();
    ExitCode(0);
    Post();
    ExitCode(1);
    Post();
    ExitCode(2);
    EXPECT_EQ(Object(1), Object(0));
    EXPECT_EQ(Object(2), Object(0));
    EXPECT_THAT(m_script.Calls(), Not(Contains("owner: close request 1")));
}

TEST_F(WorkerOverlapTest, ReusesAnObjectThatWasStoppedAndHasLeft)
{
    BlockUntilClosed({1, 2});
    Post();
    ASSERT_TRUE(m_sending[1].Wait());
    Post();
    ASSERT_TRUE(m_sending[2].Wait());
    ExitCode(0);
    Post();
    EXPECT_EQ(Object(2), Object(0));
    ExitCode(1);
    ExitCode(2);
    Post();
    ExitCode(3);
    EXPECT_EQ(Object(3), Object(0)) << "the object of the last exchange is the one to reuse";
}

TEST_F(WorkerOverlapTest, UsesAThirdObjectWhileTwoAreStillHeld)
{
    CEvent go;
    m_script.m_onSend = [&](int request) -> BOOL
    {
        m_sending.at(static_cast<size_t>(request)).Set();
        if (request < 3)
        {
            go.Wait();  // closing the handle does not wake these
        }
        return TRUE;
    };
    for (size_t request = 1; request <= 3; ++request)
    {
        Post();
        ASSERT_TRUE(m_sending[request].Wait());
    }
    EXPECT_NE(Object(1), Object(0));
    EXPECT_NE(Object(2), Object(0));
    EXPECT_NE(Object(2), Object(1));
    EXPECT_EQ(ExitCode(2), 0u);
    go.Set();
    EXPECT_EQ(ExitCode(0), 0u);
    EXPECT_EQ(ExitCode(1), 0u);
}

// The old worker had no request handle yet that could have been closed.
TEST_F(WorkerOverlapTest, StoppedRequestThatWasStillConnectingSendsNothing)
{
    CEvent connecting;
    CEvent go;
    m_script.m_onConnect = [&](int exchange)
    {
        if (exchange == 1)
        {
            connecting.Set();
            go.Wait();
        }
    };
    Post();
    ASSERT_TRUE(connecting.Wait());
    Post();
    EXPECT_EQ(ExitCode(1), 0u);
    EXPECT_THAT(m_script.Calls(), Contains("worker: send [x]").Times(1));
    go.Set();
    EXPECT_EQ(ExitCode(0), 0u);
    EXPECT_THAT(m_script.Calls(), Contains("worker: send [x]").Times(1)) << "the stopped request was sent";
    EXPECT_THAT(m_script.Calls(), Contains("worker: close request 2")) << "its late handle stays open";
}

CEvent* g_pGo = nullptr;

DWORD WINAPI LetGoAndWait(DWORD cHandles, const HANDLE* pHandles, BOOL bAll, DWORD dwTimeout, DWORD dwMask)
{
    g_pGo->Set();
    return MsgWaitForMultipleObjects(cHandles, pHandles, bAll, dwTimeout, dwMask);
}

TEST_F(WorkerOverlapTest, ReleaseWaitsForEveryWorker)
{
    CEvent go;
    g_pGo = &go;
    const CImportPatch wait(m_module.Handle(), "MsgWaitForMultipleObjects", LetGoAndWait);
    m_script.m_onSend = [&](int request) -> BOOL
    {
        m_sending.at(static_cast<size_t>(request)).Set();
        go.Wait();
        return TRUE;
    };
    Post();
    ASSERT_TRUE(m_sending[1].Wait());
    Post();
    ASSERT_TRUE(m_sending[2].Wait());
    EXPECT_EQ(m_pHttpRaw->Release(), 0u);
    m_pHttpRaw = nullptr;
    const std::vector<std::string> calls = m_script.Calls();
    for (const char* call : {"owner: close request 1", "owner: close request 2", "owner: close connection 1",
                             "owner: close connection 2"})
    {
        EXPECT_THAT(calls, Contains(call).Times(1));
    }
    EXPECT_EQ(calls.back(), "owner: close session");
    EXPECT_EQ(ExitCode(0), 0u) << "killed";
    EXPECT_EQ(ExitCode(1), 0u) << "killed";
}

TEST_F(WorkerOverlapTest, LeavesNoHandleAndNoThreadBehind)
{
    constexpr size_t kMost = 128;
    size_t posted = 0;
    std::vector<CEvent> sending(kMost);
    std::vector<CEvent> closed(kMost);
    m_script.m_onSend = [&](int request) -> BOOL
    {
        sending.at(static_cast<size_t>(request)).Set();
        closed.at(static_cast<size_t>(request)).Wait();
        return FALSE;
    };
    m_script.m_onCloseRequest = [&](int request) { closed.at(static_cast<size_t>(request)).Set(); };
    const auto overlap = [&](int count)
    {
        IHttpRaw* pHttpRaw = m_module.CreateHttpRaw();
        const size_t first = m_script.m_thread.m_starts.size();
        for (int i = 0; i < count; ++i)
        {
            ASSERT_EQ(pHttpRaw->PostRequest(L"http://host/", L"x"), S_OK);
            ASSERT_TRUE(sending.at(++posted).Wait());
        }
        ASSERT_EQ(pHttpRaw->Release(), 0u);
        for (size_t i = first; i < m_script.m_thread.m_starts.size(); ++i)
        {
            EXPECT_EQ(ExitCode(i), 0u);
        }
    };
    overlap(5);
    const int handles = CountHandles() - static_cast<int>(m_script.m_thread.m_starts.size());
    const int threads = CountThreads();
    overlap(100);
    EXPECT_EQ(CountHandles() - static_cast<int>(m_script.m_thread.m_starts.size()), handles);
    EXPECT_EQ(CountThreads(), threads);
}

}  // namespace
