// Each function of the interface is reached by its slot, and its effect is looked for in the exchange.
#include <gmock/gmock.h>

#include <algorithm>

#include "module/com/ServerModule.h"
#include "support/RecordedTrace.h"
#include "unit/request/RequestScript.h"
#include "unit/server/Vtable.h"

namespace
{

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class ComServerSlotsTest : public testing::Test
{
protected:
    ~ComServerSlotsTest() override
    {
        static_cast<IHttpRaw*>(m_pFace)->Release();
        m_script.m_thread.ExitCode(m_script.m_thread.m_starts.size() - 1);
    }

    // Posts through the slot of PostRequest and waits for the end.
    void Post()
    {
        ASSERT_EQ(CallSlot(m_pFace, 3, L"http://host:8080/p?q", L"a=1"), S_OK);
        m_script.m_thread.ExitCode(m_script.m_thread.m_starts.size() - 1);
        m_texts = m_trace.Take();
    }

    CServerModule m_module;
    CRecordedTrace m_trace{m_module.Handle()};
    CRequestScript m_script{m_module.Handle()};
    std::vector<std::string> m_texts;
    void* m_pFace = m_module.CreateHttpRaw();
};

TEST_F(ComServerSlotsTest, PostRequestIsTheFourth)
{
    Post();
    EXPECT_THAT(m_script.Calls(), Contains("worker: connect 4096 host 8080"));
    EXPECT_THAT(m_script.Calls(), Contains("worker: send [a=1]"));
}

TEST_F(ComServerSlotsTest, PostUrlIsTheFifth)
{
    ASSERT_EQ(CallSlot(m_pFace, 4, L"http://host/p?a=1&b=2"), S_OK);
    m_script.m_thread.ExitCode();
    EXPECT_THAT(m_script.Calls(), Contains("worker: open /p"));
    EXPECT_THAT(m_script.Calls(), Contains("worker: send [a=1&b=2]"));
}

TEST_F(ComServerSlotsTest, GetRequestStatusAndGetResponseDataAreTheSixthAndSeventh)
{
    m_script.m_pieces = {"answer"};
    Post();
    unsigned long status = 0;
    EXPECT_EQ(CallSlot(m_pFace, 5, &status), S_OK);
    // A worker that is quicker than its starter is set back to 5.
    EXPECT_TRUE(status == 9 || status == 5) << status;
    BSTR bstr = nullptr;
    EXPECT_EQ(CallSlot(m_pFace, 6, &bstr), S_OK);
    EXPECT_STREQ(bstr, L"answer");
    SysFreeString(bstr);
}

TEST_F(ComServerSlotsTest, SetDownloadFileIsTheEighth)
{
    CallSlot(m_pFace, 7, L"?:\\no such file");
    Post();
    EXPECT_THAT(m_texts, Contains("2| Http download file to :[%s],lpszFile=?:\\no such file,\n"));
}

TEST_F(ComServerSlotsTest, SetParentWndIsTheNinth)
{
    CallSlot(m_pFace, 8, reinterpret_cast<HWND>(0x1234));
    Post();
    EXPECT_THAT(m_texts, Contains(HasSubstr("hWndParent=0x0000000000001234")));
}

TEST_F(ComServerSlotsTest, SetTimeoutIsTheTenth)
{
    CallSlot(m_pFace, 9, 5ul);
    CEvent sending;
    CEvent go;
    m_script.m_onSend = [&](int)
    {
        sending.Set();
        go.Wait();
        return TRUE;
    };
    ASSERT_EQ(CallSlot(m_pFace, 3, L"http://host/", L"a=1"), S_OK);
    ASSERT_TRUE(sending.Wait());
    unsigned long status = 0;
    m_script.m_dwTick = 5000;
    CallSlot(m_pFace, 5, &status);
    EXPECT_EQ(status, 5ul);
    m_script.m_dwTick = 5001;
    CallSlot(m_pFace, 5, &status);
    EXPECT_EQ(status, 7ul);
    go.Set();
    m_script.m_thread.ExitCode();
}

TEST_F(ComServerSlotsTest, SetTraceResponseIsTheEleventh)
{
    Post();
    EXPECT_THAT(m_texts, Contains("2| Get http response here.,\n"));
    CallSlot(m_pFace, 10, 0ul);
    Post();
    EXPECT_THAT(m_texts, Not(Contains("2| Get http response here.,\n")));
}

}  // namespace
