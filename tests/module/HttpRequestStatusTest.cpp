// What becomes of an exchange: every HTTP status code and every platform error has its row, those of the
// tables below or the one of all others.
#include <map>
#include <set>

#include "module/HttpRawTest.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

struct Outcome
{
    unsigned long status;
    size_t opens;
    size_t sends;
    size_t dialogs;
    size_t reads;
};

// The dialog is cancelled in all rows.
constexpr Outcome kReadBody = {9, 1, 1, 0, 1};
constexpr Outcome kHttpError = {0, 1, 1, 0, 0};
constexpr Outcome kRedirectLoop = {7, 5, 5, 0, 0};
constexpr Outcome kDialog = {3, 1, 1, 1, 0};
constexpr Outcome kTimeout = {7, 1, 1, 0, 0};
constexpr Outcome kFailed = {2, 1, 1, 0, 0};
constexpr Outcome kResendLoop = {7, 1, 10, 0, 0};

const std::map<int, Outcome> kCodes = {
    {301, kRedirectLoop}, {302, kRedirectLoop}, {303, kRedirectLoop}, {307, kRedirectLoop}, {400, kHttpError},
    {401, kHttpError},    {404, kHttpError},    {405, kHttpError},    {407, kDialog},       {408, kTimeout},
};

const std::map<DWORD, Outcome> kErrors = {
    {997, kTimeout},       // ERROR_IO_PENDING
    {12002, kTimeout},     // ERROR_INTERNET_TIMEOUT
    {12032, kResendLoop},  // ERROR_INTERNET_FORCE_RETRY
    {12014, kDialog},      // ERROR_INTERNET_INCORRECT_PASSWORD
    {12037, kDialog},      // ERROR_INTERNET_SEC_CERT_DATE_INVALID
    {12038, kDialog},      // ERROR_INTERNET_SEC_CERT_CN_INVALID
    {12039, kDialog},      // ERROR_INTERNET_HTTP_TO_HTTPS_ON_REDIR
    {12040, kDialog},      // ERROR_INTERNET_HTTPS_TO_HTTP_ON_REDIR
    {12041, kDialog},      // ERROR_INTERNET_MIXED_SECURITY
    {12042, kDialog},      // ERROR_INTERNET_CHG_POST_IS_NON_SECURE
    {12043, kDialog},      // ERROR_INTERNET_POST_IS_NON_SECURE
    {12044, kFailed},      // ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED: not for the dialog
    {12045, kDialog},      // ERROR_INTERNET_INVALID_CA
    {12048, kDialog},      // ERROR_INTERNET_REDIRECT_SCHEME_CHANGE
    {12050, kDialog},      // ERROR_INTERNET_RETRY_DIALOG
    {12052, kDialog},      // ERROR_INTERNET_HTTPS_HTTP_SUBMIT_REDIR
    {12055, kDialog},      // ERROR_INTERNET_SEC_CERT_ERRORS
    {12056, kDialog},      // ERROR_INTERNET_SEC_CERT_NO_REV
    {12057, kDialog},      // ERROR_INTERNET_SEC_CERT_REV_FAILED
    {12168, kDialog},      // ERROR_HTTP_REDIRECT_NEEDS_CONFIRMATION
};

class HttpRequestStatusTest : public HttpRawTest
{
protected:
    void ExpectOutcome(const Outcome& expected)
    {
        EXPECT_EQ(Status(), expected.status) << "status";
        EXPECT_EQ(Opens().size(), expected.opens) << "opens";
        EXPECT_EQ(Sends().size(), expected.sends) << "sends";
        EXPECT_EQ(Dialogs().size(), expected.dialogs) << "dialogs";
        EXPECT_EQ(Reads().size(), expected.reads) << "reads";
    }
};

TEST_F(HttpRequestStatusTest, MapsEveryHttpStatusCode)
{
    for (int code = 100; code <= 599; ++code)
    {
        SCOPED_TRACE(testing::Message() << "code " << code);
        const auto row = kCodes.find(code);
        const Outcome& expected = row == kCodes.end() ? kReadBody : row->second;
        ClearJournal();
        m_winInet.m_attempts.Always(CScriptedWinInet::Answer(std::to_wstring(code).c_str()));
        Post();
        ExpectOutcome(expected);
        const std::string traced = "2| http status code,dwHttpStatusCode=" + std::to_string(code) + ",\n";
        EXPECT_EQ(m_journal.Count(traced), expected.sends);
        EXPECT_EQ(m_journal.Count(Enter("CHttpRequest::HandleHttpStatus")), expected.sends);
        EXPECT_THAT(TracedErrors(), IsEmpty());
    }
}

TEST_F(HttpRequestStatusTest, AsksForCredentialsOnAnAnswerOf407)
{
    m_winInet.m_attempts.Then(CScriptedWinInet::Answer(L"407"));
    m_winInet.m_dialogs.Always(ERROR_INTERNET_FORCE_RETRY);
    Post();
    EXPECT_EQ(Status(), 9u);
    EXPECT_THAT(Dialogs(), ElementsAre("InternetErrorDlg(desktop, request1, 12014, 7, null)"));
    EXPECT_THAT(Sends(), ElementsAre(SendOf("request1", "'a=1'", 3), SendOf("request1", "'a=1'", 3)));
    EXPECT_THAT(Opens(), SizeIs(1));
}

void AddRange(std::set<DWORD>& errors, DWORD first, DWORD last)
{
    for (DWORD dwError = first; dwError <= last; ++dwError)
    {
        errors.insert(dwError);
    }
}

TEST_F(HttpRequestStatusTest, MapsEveryPlatformError)
{
    std::set<DWORD> errors = {1, 2, 5, 6, 8, 87, 122, 259, 996, 997, 998, 1222, 1223, 1224, 1460, 0xFFFFFFFE};
    AddRange(errors, 12000, 12200);
    for (const DWORD dwError : errors)
    {
        SCOPED_TRACE(testing::Message() << "error " << dwError);
        const auto row = kErrors.find(dwError);
        const Outcome& expected = row == kErrors.end() ? kFailed : row->second;
        ClearJournal();
        m_winInet.m_attempts.Always(CScriptedWinInet::FailingSend(dwError));
        Post();
        ExpectOutcome(expected);
        EXPECT_THAT(TracedErrors(), SizeIs(expected.sends));
        EXPECT_THAT(TracedErrors(), Each("8| GetLastError,dwError=" + std::to_string(dwError) + ",\n"));
        EXPECT_EQ(m_journal.Count(Enter("CHttpRequest::HandleLastError")), expected.sends);
        for (const std::string& dialog : Dialogs())
        {
            EXPECT_NE(dialog.find(", " + std::to_string(dwError) + ", 7, null)"), std::string::npos)
                << dialog;
        }
    }
}

TEST_F(HttpRequestStatusTest, EndsInOneStatusAfterTheTwoOfSending)
{
    struct Row
    {
        const char* label;
        CScriptedAttempt attempt;
        Texts statuses;
    };
    const Row rows[] = {
        {"done", CScriptedWinInet::Answer(L"200"), {"5", "5", "6", "9"}},
        {"server error is read", CScriptedWinInet::Answer(L"500"), {"5", "5", "6", "9"}},
        {"not found", CScriptedWinInet::Answer(L"404"), {"5", "5", "0"}},
        {"time-out by the server", CScriptedWinInet::Answer(L"408"), {"5", "5", "7"}},
        {"time-out by the platform", CScriptedWinInet::FailingSend(12002), {"5", "5", "7"}},
        {"refused", CScriptedWinInet::FailingSend(12029), {"5", "5", "2"}},
        {"dialog cancelled", CScriptedWinInet::FailingSend(12045), {"5", "5", "3"}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        ClearJournal();
        m_winInet.m_attempts.Always(row.attempt);
        Post();
        EXPECT_EQ(Statuses(), row.statuses);
    }
}

}  // namespace
