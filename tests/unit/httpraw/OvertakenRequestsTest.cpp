// The requests that a later send has overtaken, as the component keeps them.
#include "httpraw/OvertakenRequests.h"
#include "support/FailingHeap.h"
#include "unit/request/RequestTest.h"

namespace
{

class OvertakenRequestsTest : public RequestTest
{
protected:
    COvertakenRequests m_overtaken;
};

TEST_F(OvertakenRequestsTest, AbandonsWhatItTakesOver)
{
    CHttpRequest* const pRequest = m_pRequest.get();
    ASSERT_EQ(pRequest->SetUrl(L"http://host/", L"a=1"), S_OK);
    EXPECT_TRUE(m_overtaken.Keep(m_pRequest));
    EXPECT_EQ(m_pRequest, nullptr);
    pRequest->Run();
    EXPECT_THAT(Calls("HttpSendRequestW"), testing::IsEmpty());
    EXPECT_EQ(m_overtaken.TakeIdle().get(), pRequest);
}

TEST_F(OvertakenRequestsTest, LeavesAnExchangeAloneForWhichItHasNoMemory)
{
    ASSERT_EQ(m_pRequest->SetUrl(L"http://host/", L"a=1"), S_OK);
    bool bKept = true;
    {
        const CFailingHeap memory(1, 1);
        bKept = m_overtaken.Keep(m_pRequest);
    }
    EXPECT_FALSE(bKept);
    EXPECT_TRUE(m_overtaken.IsEmpty());
    ASSERT_NE(m_pRequest, nullptr);
    m_pRequest->Run();
    EXPECT_EQ(Status(), static_cast<unsigned long>(REQ_STATUS_DONE)) << "it goes on, and ends well";
}

}  // namespace
