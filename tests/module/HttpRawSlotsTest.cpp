// Each function of the interface is reached by its slot, and its effect is looked for in the exchange.
#include "module/HttpRawTest.h"
#include "unit/server/Vtable.h"

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace
{

class HttpRawSlotsTest : public HttpRawTest
{
protected:
    // Posts through the slot of PostRequest and waits for the end.
    void PostBySlot()
    {
        ClearJournal();
        EXPECT_EQ(CallSlot(m_pHttpRaw, 3, L"http://host:8080/p?q", L"a=1"), S_OK);
        Finish();
    }
};

TEST_F(HttpRawSlotsTest, PostRequestIsTheFourth)
{
    PostBySlot();
    EXPECT_THAT(Connects(), Contains(HasSubstr("'host', 8080")));
    EXPECT_THAT(Sends(), Contains(HasSubstr("'a=1'")));
}

TEST_F(HttpRawSlotsTest, PostUrlIsTheFifth)
{
    EXPECT_EQ(CallSlot(m_pHttpRaw, 4, L"http://host/p?a=1&b=2"), S_OK);
    Finish();
    EXPECT_THAT(Opens(), Contains(HasSubstr("'/p'")));
    EXPECT_THAT(Sends(), Contains(HasSubstr("'a=1&b=2'")));
}

TEST_F(HttpRawSlotsTest, GetRequestStatusAndGetResponseDataAreTheSixthAndSeventh)
{
    m_winInet.m_reads.Then({"answer"});
    PostBySlot();
    unsigned long status = 0;
    EXPECT_EQ(CallSlot(m_pHttpRaw, 5, &status), S_OK);
    EXPECT_EQ(status, 9ul);
    BSTR bstr = nullptr;
    EXPECT_EQ(CallSlot(m_pHttpRaw, 6, &bstr), S_OK);
    EXPECT_STREQ(bstr, L"answer");
    SysFreeString(bstr);
}

TEST_F(HttpRawSlotsTest, SetDownloadFileIsTheEighth)
{
    CallSlot(m_pHttpRaw, 7, L"?:\\no such file");
    PostBySlot();
    EXPECT_THAT(Trace(), Contains("2| Http download file to :[%s],lpszFile=?:\\no such file,\n"));
}

TEST_F(HttpRawSlotsTest, SetParentWndIsTheNinth)
{
    CallSlot(m_pHttpRaw, 8, reinterpret_cast<HWND>(0x1234));
    PostBySlot();
    EXPECT_THAT(Trace(), Contains(HasSubstr("hWndParent=0x0000000000001234")));
}

TEST_F(HttpRawSlotsTest, SetTimeoutIsTheTenth)
{
    CallSlot(m_pHttpRaw, 9, 5ul);
    StartPost();
    EXPECT_EQ(StatusAfter(5000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRawSlotsTest, SetTraceResponseIsTheEleventh)
{
    PostBySlot();
    EXPECT_THAT(Trace(), Contains("2| Get http response here.,\n"));
    CallSlot(m_pHttpRaw, 10, 0ul);
    PostBySlot();
    EXPECT_THAT(Trace(), Not(Contains("2| Get http response here.,\n")));
}

}  // namespace
