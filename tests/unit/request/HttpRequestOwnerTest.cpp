// What the owner's thread does with a request: inputs, status, time-out, answer and destruction.
#include "support/FailingHeap.h"
#include "support/WindowNames.h"
#include "unit/request/RequestTest.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

using HttpRequestOwnerTest = RequestTest;

TEST_F(HttpRequestOwnerTest, StartsIdleWithItsDefaults)
{
    EXPECT_EQ(Status(), 1ul);
    EXPECT_EQ(m_pRequest->GetTimeoutMs(), 60000u);
    EXPECT_TRUE(m_pRequest->IsIdle());
    EXPECT_TRUE(m_pRequest->HasLeft());
}

TEST_F(HttpRequestOwnerTest, TracesItsConstruction)
{
    EXPECT_THAT(
        m_trace.Take(),
        ElementsAre("2|--> CHttpRequest::CHttpRequest \n",
                    MatchesRegex("2\\| CHttpRequest::CHttpRequest, object=0x%X,\\(void\\*\\)this=0x\\w+,\n"),
                    "2|<-- CHttpRequest::CHttpRequest \n"));
}

TEST_F(HttpRequestOwnerTest, TracesItsDestruction)
{
    m_trace.Take();
    m_pRequest.reset();
    EXPECT_THAT(
        m_trace.Take(),
        ElementsAre("2|--> CHttpRequest::~CHttpRequest\n \n",
                    MatchesRegex("2\\| CHttpRequest::~CHttpRequest, object=0x%X,\\(void\\*\\)this=0x\\w+,\n"),
                    "2| Wait Thread exit...,\n", "2|<-- CHttpRequest::~CHttpRequest\n \n"));
    EXPECT_THAT(Calls("InternetCloseHandle"), IsEmpty()) << "nothing was open";
}

TEST_F(HttpRequestOwnerTest, TakesTheTimeoutInSeconds)
{
    struct Row
    {
        unsigned long seconds;
        DWORD dwMilliseconds;
    };
    const Row rows[] = {{0, 60000}, {1, 1000}, {5, 5000}, {60, 60000}, {4294967, 4294967000}, {4294968, 704}};
    for (const Row& row : rows)
    {
        CRequestSettings settings;
        settings.nTimeout = row.seconds;
        EXPECT_EQ(m_pRequest->TakeSettings(settings), S_OK);
        EXPECT_EQ(m_pRequest->GetTimeoutMs(), row.dwMilliseconds) << row.seconds << " s";
    }
}

TEST_F(HttpRequestOwnerTest, TracesAndStoresAStatus)
{
    m_trace.Take();
    m_pRequest->UpdateRequestStatus(REQ_STATUS_NOT_CONNECTED);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|--> CHttpRequest::UpdateRequestStatus \n", "2| emStatus=3,\n",
                                            "2|<-- CHttpRequest::UpdateRequestStatus \n"));
    EXPECT_EQ(Status(), 3ul);
}

TEST_F(HttpRequestOwnerTest, EnforcesTheTimeoutOnlyWhileTheExchangeRuns)
{
    struct Row
    {
        const char* label;
        HttpRequestStatus status;
        unsigned long seconds;
        DWORD dwElapsed;
        unsigned long expected;
    };
    const Row rows[] = {
        {"sending, default limit reached", REQ_STATUS_SENDING, 0, 60000, 5},
        {"sending, default limit exceeded", REQ_STATUS_SENDING, 0, 60001, 7},
        {"receiving, default limit reached", REQ_STATUS_RECEIVING, 0, 60000, 6},
        {"receiving, default limit exceeded", REQ_STATUS_RECEIVING, 0, 60001, 7},
        {"sending, own limit reached", REQ_STATUS_SENDING, 5, 5000, 5},
        {"sending, own limit exceeded", REQ_STATUS_SENDING, 5, 5001, 7},
        {"HTTP error", REQ_STATUS_HTTP_ERROR, 1, 60001, 0},
        {"idle", REQ_STATUS_IDLE, 1, 60001, 1},
        {"failed", REQ_STATUS_FAILED, 1, 60001, 2},
        {"not connected", REQ_STATUS_NOT_CONNECTED, 1, 60001, 3},
        {"done", REQ_STATUS_DONE, 1, 60001, 9},
    };
    for (const Row& row : rows)
    {
        m_system.m_dwTick = 1000;
        CHttpRequest request(m_hSession);
        CRequestSettings settings;
        settings.nTimeout = row.seconds;
        EXPECT_EQ(request.TakeSettings(settings), S_OK);
        request.UpdateRequestStatus(row.status);
        m_system.m_dwTick = 1000 + row.dwElapsed;
        m_trace.Take();
        unsigned long status = 0xEEEE;
        EXPECT_EQ(request.GetStatus(&status), S_OK) << row.label;
        EXPECT_EQ(status, row.expected) << row.label;
        const bool bTimedOut = row.expected == 7;
        EXPECT_EQ(m_trace.Take().size(), bTimedOut ? 3u : 0u) << row.label;
    }
}

TEST_F(HttpRequestOwnerTest, SeesNoTimeoutWhenTheTickCountHasWrapped)
{
    m_system.m_dwTick = 0xFFFFFFF0;
    CHttpRequest request(m_hSession);
    request.UpdateRequestStatus(REQ_STATUS_SENDING);
    m_system.m_dwTick = 0xFFFFFFE0;
    unsigned long status = 0;
    request.GetStatus(&status);
    EXPECT_EQ(status, 5ul);
}

TEST_F(HttpRequestOwnerTest, StartRestartsTheClockEvenWhenNoThreadCanBeMade)
{
    m_system.m_dwTick = 500000;
    m_system.m_bThreadsFail = true;
    EXPECT_FALSE(m_pRequest->StartWorker());
    m_pRequest->UpdateRequestStatus(REQ_STATUS_SENDING);
    m_system.m_dwTick = 560000;
    EXPECT_EQ(Status(), 5ul);
    m_system.m_dwTick = 560001;
    EXPECT_EQ(Status(), 7ul);
}

TEST_F(HttpRequestOwnerTest, RefusesANullUrlAndKeepsTheOldOne)
{
    EXPECT_EQ(m_pRequest->SetUrl(L"http://first:81/a?b", L"x=1"), S_OK);
    EXPECT_EQ(m_pRequest->SetUrl(nullptr, L"y=2"), E_INVALIDARG);
    RunExchange();
    EXPECT_THAT(Calls("InternetConnectW"), ElementsAre(HasSubstr("(session1, 'first', 81, ")));
    EXPECT_THAT(Calls("HttpOpenRequestW"), ElementsAre(HasSubstr("'/a?b'")));
    EXPECT_THAT(Calls("HttpSendRequestW"), ElementsAre(HasSubstr("'x=1', 3)")));
}

TEST_F(HttpRequestOwnerTest, CountsNullFormDataAsEmpty)
{
    m_pRequest->SetUrl(L"http://host/", L"x=1");
    EXPECT_EQ(m_pRequest->SetUrl(L"http://host/p", nullptr), S_OK);
    RunExchange();
    EXPECT_THAT(Calls("HttpOpenRequestW"), ElementsAre(HasSubstr("'/p'")));
    EXPECT_THAT(Calls("HttpSendRequestW"), ElementsAre(HasSubstr("null, 0)")));
}

TEST_F(HttpRequestOwnerTest, RefusesANullFileAndTracesAnyOther)
{
    m_trace.Take();
    EXPECT_EQ(m_pRequest->SetFile(nullptr), E_INVALIDARG);
    EXPECT_THAT(m_trace.Take(), ElementsAre());
    EXPECT_EQ(m_pRequest->SetFile(L"C:\\a b.txt"), S_OK);
    EXPECT_EQ(m_pRequest->SetFile(L""), S_OK);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| Http download file to :[%s],lpszFile=C:\\a b.txt,\n",
                                            "2| Http download file to :[%s],lpszFile=,\n"));
}

TEST_F(HttpRequestOwnerTest, TracesNoFileThatItCouldNotStore)
{
    const std::wstring path(300, L'p');
    m_trace.Take();
    {
        const CFailingHeap memory{(path.size() + 1) * sizeof(wchar_t)};
        EXPECT_EQ(m_pRequest->SetFile(path.c_str()), E_OUTOFMEMORY);
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_THAT(m_trace.Take(), IsEmpty());
}

TEST_F(HttpRequestOwnerTest, SaysWhenItCouldNotStoreTheUrlOrTheData)
{
    const std::wstring url(300, L'u');
    const std::wstring data(400, L'd');
    for (const std::wstring& text : {url, data})
    {
        const CFailingHeap memory{(text.size() + 1) * sizeof(wchar_t)};
        EXPECT_EQ(m_pRequest->SetUrl(url.c_str(), data.c_str()), E_OUTOFMEMORY) << text.size();
    }
}

TEST_F(HttpRequestOwnerTest, KeepsTheAnswerInMemoryWithoutAFile)
{
    m_pRequest->SetFile(L"C:\\never-made.txt");
    m_pRequest->SetFile(L"");
    m_pRequest->SetUrl(L"http://host/", L"x");
    m_winInet.m_reads.Then({"answer"});
    RunExchange();
    EXPECT_EQ(Status(), 9ul);
    BSTR bstr = nullptr;
    EXPECT_EQ(m_pRequest->GetResponse(&bstr), S_OK);
    SysFreeString(bstr);
}

TEST_F(HttpRequestOwnerTest, RunEndsWithZeroAndReportsOnlyThroughTheStatus)
{
    m_winInet.m_bConnected = false;
    m_pRequest->SetUrl(L"http://host/", L"x");
    EXPECT_EQ(m_pRequest->Run(), 0u);
    EXPECT_EQ(Status(), 3ul);
    EXPECT_THAT(Calls("InternetConnectW"), IsEmpty());
}

// Nothing in the exchange raises; a platform function stands for what might.
TEST_F(HttpRequestOwnerTest, RunLetsNothingOutThatIsRaised)
{
    m_journal.On("InternetConnectW", 1, [] { throw std::bad_alloc(); });
    m_pRequest->SetUrl(L"http://host/", L"x");
    RunExchange();
    EXPECT_EQ(m_system.ExitCode(0), 0u);
    EXPECT_EQ(Status(), 2ul);
    RunExchange();
    EXPECT_EQ(Status(), 9ul) << "the next exchange goes its way";
}

TEST_F(HttpRequestOwnerTest, UsesTheDesktopWhenItsParentWindowIsNotThere)
{
    EXPECT_EQ(m_pRequest->GetParentWnd(), FakeWindow(0));
    m_pRequest->SetParentWnd(FakeWindow(1));
    m_system.m_windows = {1};
    EXPECT_EQ(m_pRequest->GetParentWnd(), FakeWindow(1));
    m_system.m_windows.clear();
    EXPECT_EQ(m_pRequest->GetParentWnd(), FakeWindow(0));
}

// A time-out that the owner has seen stops the worker's reading, which then reports a failure.
TEST_F(HttpRequestOwnerTest, TimeoutStopsTheReading)
{
    m_winInet.m_reads.Then({"abc"}).Then({"def"});
    CHold read(m_journal, "InternetReadFile");
    m_pRequest->SetUrl(L"http://host/", L"x");
    ASSERT_TRUE(m_pRequest->StartWorker());
    ASSERT_TRUE(read.Reached());
    EXPECT_EQ(Status(), 6ul);
    m_system.m_dwTick = 61001;
    EXPECT_EQ(Status(), 7ul);
    m_system.m_dwTick = 1000;  // the worker's own look at the clock finds nothing
    read.LetGo();
    EXPECT_TRUE(m_system.WaitForThreads());
    EXPECT_EQ(Status(), 2ul);
    BSTR bstr = nullptr;
    EXPECT_EQ(m_pRequest->GetResponse(&bstr), E_FAIL);
}

TEST_F(HttpRequestOwnerTest, DestructionWakesTheWorkerAndWaitsForIt)
{
    CHold send(m_journal, "HttpSendRequestW");
    m_journal.On("InternetCloseHandle(request1)", 1, [&] { send.LetGo(); });
    m_pRequest->SetUrl(L"http://host/", L"x");
    ASSERT_TRUE(m_pRequest->StartWorker());
    ASSERT_TRUE(send.Reached());
    m_pRequest.reset();
    EXPECT_EQ(m_system.ExitCode(0), 0u) << "the worker was killed";
    EXPECT_THAT(Calls("InternetCloseHandle"),
                ElementsAre("InternetCloseHandle(request1)", "InternetCloseHandle(connect1)"));
}

std::function<void()> g_onWait;
decltype(&MsgWaitForMultipleObjects) g_pfnWait = nullptr;

DWORD WINAPI NotifyAndWait(DWORD cHandles, const HANDLE* pHandles, BOOL bAll, DWORD dwTimeout, DWORD dwMask)
{
    g_onWait();
    return g_pfnWait(cHandles, pHandles, bAll, dwTimeout, dwMask);
}

TEST_F(HttpRequestOwnerTest, DestructionKillsTheWorkerAtAMessageAfterSixtySeconds)
{
    // Between two platform calls, so that none of them is cut off.
    CHold sending(m_journal, "2|--> CHttpRequest::SendRequest");
    m_pRequest->SetUrl(L"http://host/", L"x");
    ASSERT_TRUE(m_pRequest->StartWorker());
    ASSERT_TRUE(sending.Reached());
    g_pfnWait = m_imports.Add("MsgWaitForMultipleObjects", NotifyAndWait);
    int waits = 0;
    g_onWait = [&]
    {
        m_system.m_dwTick += ++waits == 1 ? 60000 : 1;
        PostThreadMessageW(GetCurrentThreadId(), WM_APP, 0, 0);
    };
    m_pRequest.reset();
    EXPECT_EQ(waits, 2) << "sixty seconds are not yet too long";
    EXPECT_EQ(m_system.ExitCode(0), 0xFFFFFFFEu);
}

TEST_F(HttpRequestOwnerTest, DestructionClosesWhatAFinishedExchangeHasLeftOpen)
{
    m_pRequest->SetUrl(L"http://host/", L"x");
    RunExchange();
    EXPECT_THAT(Calls("InternetCloseHandle"), IsEmpty());
    m_pRequest.reset();
    EXPECT_THAT(Calls("InternetCloseHandle"),
                ElementsAre("InternetCloseHandle(request1)", "InternetCloseHandle(connect1)"));
}

TEST_F(HttpRequestOwnerTest, IsIdleOnlyWhenItsWorkerHasLeft)
{
    CHold send(m_journal, "HttpSendRequestW");
    m_pRequest->SetUrl(L"http://host/", L"x");
    ASSERT_TRUE(m_pRequest->StartWorker());
    ASSERT_TRUE(send.Reached());
    for (const HttpRequestStatus status :
         {REQ_STATUS_SENDING, REQ_STATUS_RECEIVING, REQ_STATUS_TIMEOUT, REQ_STATUS_FAILED})
    {
        m_pRequest->UpdateRequestStatus(status);
        EXPECT_FALSE(m_pRequest->IsIdle()) << "status " << status;
    }
    send.LetGo();
    EXPECT_TRUE(m_system.WaitForThreads());
    for (const HttpRequestStatus status : {REQ_STATUS_SENDING, REQ_STATUS_TIMEOUT, REQ_STATUS_DONE})
    {
        m_pRequest->UpdateRequestStatus(status);
        EXPECT_TRUE(m_pRequest->IsIdle()) << "status " << status;
    }
}

}  // namespace
