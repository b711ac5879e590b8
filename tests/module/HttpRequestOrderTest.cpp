// The order of what an exchange stores, calls and traces, where another thread or the user could tell.
#include "module/HttpRawTest.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

decltype(&InternetCrackUrl) g_pfnCrack = nullptr;
CJournal* g_pJournal = nullptr;

BOOL WINAPI RecordCrack(LPCWSTR url, DWORD cch, DWORD dwFlags, LPURL_COMPONENTSW pComponents)
{
    g_pJournal->Add(CALL_NET, "InternetCrackUrlW");
    return g_pfnCrack(url, cch, dwFlags, pComponents);
}

class HttpRequestOrderTest : public HttpRawTest
{
protected:
    // What the module did, all kinds, without the marks of functions.
    Texts Course(unsigned kinds) const
    {
        Texts course = m_journal.Texts(kinds);
        std::erase_if(course, [](const std::string& text)
                      { return text.starts_with("2|--> ") || text.starts_with("2|<-- "); });
        return course;
    }

    // The last of a course.
    static Texts Tail(Texts course, size_t count)
    {
        EXPECT_GE(course.size(), count);
        return Texts(course.end() - static_cast<std::ptrdiff_t>(count), course.end());
    }
};

TEST_F(HttpRequestOrderTest, SettingsAreHandedOverInThisOrder)
{
    g_pJournal = &m_journal;
    g_pfnCrack = m_pModule->Imports().Add("InternetCrackUrlW", RecordCrack);
    m_system.m_bThreadsFail = true;
    StartPost();
    EXPECT_EQ(Tail(Course(CALL_TRACE | CALL_NET | CALL_THREAD), 5),
              (Texts{"2| Http download file to :[%s],lpszFile=,\n", "InternetCrackUrlW",
                     "2| CHttpRequest::SetParentWnd,hWndParent=0x0000000000000000,\n",
                     "_beginthreadex(null, 0, start, object, 0, id)", "2| emStatus=2,\n"}));
}

TEST_F(HttpRequestOrderTest, StatusIsTracedThenStoredThenTheFunctionIsLeft)
{
    CHold traced(m_journal, "2| emStatus=6");
    PostInto(traced);
    EXPECT_EQ(Status(), 5u);
    CHold left(m_journal, Leave("CHttpRequest::UpdateRequestStatus"));
    traced.LetGo();
    ASSERT_TRUE(left.Reached());
    EXPECT_EQ(Status(), 6u);
    left.LetGo();
    Finish();
}

TEST_F(HttpRequestOrderTest, FileIsClosedBeforeItIsSaidToBeFinished)
{
    m_pHttpRaw->SetDownloadFile(L"C:\\f");
    Post();
    EXPECT_EQ(Tail(Course(CALL_TRACE | CALL_FILE), 3),
              (Texts{"CloseHandle(file)", "8| download file [%s] is finished,m_strFile.c_str()=C:\\f,\n",
                     "2| emStatus=9,\n"}));
}

TEST_F(HttpRequestOrderTest, FileOfAStoppedDownloadIsClosedAndThenDeleted)
{
    m_pHttpRaw->SetDownloadFile(L"C:\\f");
    CHold read(m_journal, "InternetReadFile");
    PostInto(read);
    StatusAfter(60001);
    read.LetGo();
    Finish();
    EXPECT_EQ(Tail(Course(CALL_TRACE | CALL_FILE), 3),
              (Texts{"2| emStatus=2,\n", "CloseHandle(file)", "DeleteFileW('C:\\f')"}));
}

TEST_F(HttpRequestOrderTest, ReleaseTracesThatItWaitsBeforeItClosesTheRequest)
{
    Post();
    ClearJournal();
    ReleaseComponent();
    const Texts course = m_journal.Texts(CALL_TRACE | CALL_NET);
    ASSERT_GE(course.size(), 6u);
    EXPECT_THAT(Texts(course.begin() + 2, course.begin() + 6),
                ElementsAre("2| Wait Thread exit...,\n", "InternetCloseHandle(request1)",
                            "InternetCloseHandle(connect1)", Leave("CHttpRequest::~CHttpRequest\n")));
}

TEST_F(HttpRequestOrderTest, ClockBeginsAnewBeforeTheConnecting)
{
    MoveTickAt("InternetGetConnectedState", 1, 50000);
    CHold connect(m_journal, "InternetConnectW");
    PostInto(connect);
    EXPECT_EQ(StatusAfter(60000), 5u);
    EXPECT_EQ(StatusAfter(1), 7u);
    connect.LetGo();
    Finish();
}

}  // namespace
