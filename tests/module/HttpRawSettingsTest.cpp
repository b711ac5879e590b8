// What the host has set stays from one send to the next, but for the download file, which taking the answer
// forgets.
#include "module/HttpRawTest.h"

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace
{

class HttpRawSettingsTest : public HttpRawTest
{
protected:
    // Twice sends, takes the answer, and looks at the second exchange alone.
    void PostTwice()
    {
        Post();
        ResponseResult();
        ClearJournal();
        Post();
    }
};

TEST_F(HttpRawSettingsTest, TimeoutStays)
{
    m_pHttpRaw->SetTimeout(5);
    PostTwice();
    EXPECT_THAT(Net(), Contains("InternetSetOptionW(request2, 6, 5000, 4)"));
    StartPost();
    EXPECT_EQ(StatusAfter(5000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
}

TEST_F(HttpRawSettingsTest, TraceFlagStays)
{
    m_pHttpRaw->SetTraceResponse(0);
    m_winInet.m_reads.Then({"first"}).Then({}).Then({"second"});
    PostTwice();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Trace(), Not(Contains(HasSubstr("second"))));
    EXPECT_THAT(Trace(), Not(Contains("2| Get http response here.,\n")));
}

TEST_F(HttpRawSettingsTest, ParentWindowStays)
{
    m_system.m_windows = {3};
    m_pHttpRaw->SetParentWnd(FakeWindow(3));
    m_winInet.m_attempts.Then({}).Then(CScriptedWinInet::FailingSend(12045));
    PostTwice();
    EXPECT_THAT(Dialogs(), Contains(HasSubstr("(window3, request2")));
}

}  // namespace
