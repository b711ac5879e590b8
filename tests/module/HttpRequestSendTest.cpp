// Sending on an open request: body, resends, and errors that read as none.
#include <cwchar>

#include "module/HttpRawTest.h"
#include "support/FailingHeap.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

using HttpRequestSendTest = HttpRawTest;

TEST_F(HttpRequestSendTest, ResendsAtMostTenTimes)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::FailingSend(ERROR_INTERNET_FORCE_RETRY));
    Post();
    EXPECT_EQ(Status(), 7u);
    EXPECT_THAT(Opens(), SizeIs(1));
    EXPECT_THAT(Sends(), SizeIs(10));
    EXPECT_THAT(Sends(), Each(SendOf("request1", "'a=1'", 3)));
    EXPECT_THAT(Reads(), IsEmpty());
    EXPECT_THAT(TracedErrors(), SizeIs(10));
    EXPECT_THAT(TracedErrors(), Each("8| GetLastError,dwError=12032,\n"));
    EXPECT_THAT(Statuses(), ElementsAre("5", "5", "7"));
}

TEST_F(HttpRequestSendTest, TenthSendMayStillSucceed)
{
    for (int sends = 1; sends <= 9; ++sends)
    {
        m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_FORCE_RETRY));
    }
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Sends(), SizeIs(10));
}

TEST_F(HttpRequestSendTest, ResendsAfterDialogsCountToo)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::FailingSend(ERROR_INTERNET_INVALID_CA));
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    Post();
    EXPECT_EQ(Status(), 7u);
    EXPECT_THAT(Sends(), SizeIs(10));
    EXPECT_THAT(Dialogs(), SizeIs(10));
}

TEST_F(HttpRequestSendTest, FailureWithoutErrorCodeLeavesTheStatus)
{
    m_winInet.m_attempts.Always(CScriptedWinInet::FailingSend(ERROR_SUCCESS));
    Post();
    EXPECT_EQ(Status(), 5u);
    EXPECT_THAT(Sends(), SizeIs(1));
    EXPECT_THAT(Reads(), IsEmpty());
    EXPECT_THAT(TracedErrors(), IsEmpty());
    EXPECT_EQ(m_journal.Count(Enter("CHttpRequest::HandleLastError")), 0u);
    EXPECT_EQ(StatusAfter(60001), 7u);
}

TEST_F(HttpRequestSendTest, FailureWithoutErrorCodeAfterAResendLeavesTheStatusToo)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_FORCE_RETRY))
        .Then(CScriptedWinInet::FailingSend(ERROR_SUCCESS));
    Post();
    EXPECT_EQ(Status(), 5u);
    EXPECT_THAT(Sends(), SizeIs(2));
    EXPECT_THAT(Opens(), SizeIs(1));
    EXPECT_THAT(Reads(), IsEmpty());
}

TEST_F(HttpRequestSendTest, FailsSilentlyWithoutMemoryForTheBody)
{
    const std::wstring data(777, L'd');
    const CFailingHeap memory({778}, m_pModule->Handle());  // with the terminator
    Post(L"http://127.0.0.1/p", data.c_str());
    EXPECT_EQ(Status(), 2u);
    EXPECT_THAT(Opens(), SizeIs(1));
    EXPECT_THAT(Sends(), IsEmpty());
    EXPECT_THAT(TracedErrors(), IsEmpty());
}

int WINAPI FindNoSize(UINT codePage, DWORD dwFlags, LPCWCH from, int cch, LPSTR to, int cb, LPCCH pDefault,
                      LPBOOL pbDefaultUsed)
{
    return codePage == CP_UTF8 && cb == 0
               ? 0
               : WideCharToMultiByte(codePage, dwFlags, from, cch, to, cb, pDefault, pbDefaultUsed);
}

TEST_F(HttpRequestSendTest, DataThatCannotBeConvertedMakesNoBody)
{
    m_pModule->Imports().Add("WideCharToMultiByte", FindNoSize);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "null", 0)));
}

// The platform tells the size and then converts nothing: its second call is the one that writes.
int WINAPI WriteNothing(UINT codePage, DWORD dwFlags, LPCWCH from, int cch, LPSTR to, int cb, LPCCH pDefault,
                        LPBOOL pbDefaultUsed)
{
    return codePage == CP_UTF8 && to != nullptr && std::wcscmp(from, L"a=1") == 0
               ? 0
               : WideCharToMultiByte(codePage, dwFlags, from, cch, to, cb, pDefault, pbDefaultUsed);
}

TEST_F(HttpRequestSendTest, DataThatIsNotConvertedInTheEndMakesNoBody)
{
    m_pModule->Imports().Add("WideCharToMultiByte", WriteNothing);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "null", 0)));
}

TEST_F(HttpRequestSendTest, SendsALargeBodyWhole)
{
    const std::wstring data(100000, L'd');
    Post(L"http://127.0.0.1/p", data.c_str());
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'" + std::string(100000, 'd') + "'", 100000)));
}

TEST_F(HttpRequestSendTest, AnswerWithoutStatusCodeCountsAs200)
{
    m_winInet.m_attempts.Always({kSucceeds, std::nullopt, std::nullopt});
    m_winInet.m_reads.Then({"answer"});
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_EQ(Response(), L"answer");
    EXPECT_EQ(m_journal.Count("2| http status code,dwHttpStatusCode=200,\n"), 1u);
}

struct CodeTextRow
{
    const char* label;
    std::wstring text;
    unsigned long status;
    const char* traced;
};

TEST_F(HttpRequestSendTest, ReadsTheStatusCodeAsANumber)
{
    const CodeTextRow rows[] = {
        {"no number", L"none", 9, "0"},
        {"empty", L"", 9, "0"},
        {"number with text behind", L"404 gone", 0, "404"},
        {"blanks before", L"  404", 0, "404"},
        {"below zero", L"-1", 9, "4294967295"},
        {"just fits the 262 bytes", L"404" + std::wstring(127, L' '), 0, "404"},
        {"one character longer", L"404" + std::wstring(128, L' '), 9, "200"},
    };
    for (const CodeTextRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        ClearJournal();
        m_winInet.m_attempts.Always(CScriptedWinInet::Answer(row.text.c_str()));
        Post();
        EXPECT_EQ(Status(), row.status);
        EXPECT_THAT(Select(CALL_TRACE, "2| http status code"),
                    ElementsAre(std::string("2| http status code,dwHttpStatusCode=") + row.traced + ",\n"));
    }
}

}  // namespace
