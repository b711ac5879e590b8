#include "request/Verdict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

namespace
{

struct Row
{
    DWORD dwCode;
    SendResult result;
    HttpRequestStatus emStatus = REQ_STATUS_FAILED;
};

// Every code up to dwLast that rows do not name gives other.
template <size_t count>
void ExpectVerdicts(CVerdict (*pfnJudge)(DWORD), const Row (&rows)[count], DWORD dwLast, const Row& other)
{
    for (DWORD dwCode = 0; dwCode <= dwLast; ++dwCode)
    {
        const Row* const pRow = std::find_if(std::begin(rows), std::end(rows),
                                             [&](const Row& row) { return row.dwCode == dwCode; });
        const Row& expected = pRow != std::end(rows) ? *pRow : other;
        const CVerdict verdict = pfnJudge(dwCode);
        EXPECT_EQ(verdict.result, expected.result) << "code " << dwCode;
        if (expected.result == SEND_STOP)
        {
            EXPECT_EQ(verdict.emStatus, expected.emStatus) << "code " << dwCode;
        }
    }
}

TEST(VerdictTest, HttpStatus)
{
    const Row rows[] = {
        {301, SEND_REOPEN},
        {302, SEND_REOPEN},
        {303, SEND_REOPEN},
        {307, SEND_REOPEN},
        {400, SEND_STOP, REQ_STATUS_HTTP_ERROR},
        {401, SEND_STOP, REQ_STATUS_HTTP_ERROR},
        {404, SEND_STOP, REQ_STATUS_HTTP_ERROR},
        {405, SEND_STOP, REQ_STATUS_HTTP_ERROR},
        {407, SEND_ASK_USER},
        {408, SEND_STOP, REQ_STATUS_TIMEOUT},
    };
    ExpectVerdicts(JudgeHttpStatus, rows, 1000, {0, SEND_READ_BODY});
}

TEST(VerdictTest, LastError)
{
    const Row rows[] = {
        {0, SEND_READ_BODY},
        {997, SEND_STOP, REQ_STATUS_TIMEOUT},
        {12002, SEND_STOP, REQ_STATUS_TIMEOUT},
        {12032, SEND_AGAIN},
        {12014, SEND_ASK_USER},
        {12037, SEND_ASK_USER},
        {12038, SEND_ASK_USER},
        {12039, SEND_ASK_USER},
        {12040, SEND_ASK_USER},
        {12041, SEND_ASK_USER},
        {12042, SEND_ASK_USER},
        {12043, SEND_ASK_USER},
        {12045, SEND_ASK_USER},
        {12048, SEND_ASK_USER},
        {12050, SEND_ASK_USER},
        {12052, SEND_ASK_USER},
        {12055, SEND_ASK_USER},
        {12056, SEND_ASK_USER},
        {12057, SEND_ASK_USER},
        {12168, SEND_ASK_USER},
    };
    ExpectVerdicts(JudgeLastError, rows, 13000, {0, SEND_STOP, REQ_STATUS_FAILED});
    EXPECT_EQ(JudgeLastError(0xFFFFFFFF).result, SEND_STOP);
}

// The user's answer leads to a resend, but for the confirmation of a redirect.
TEST(VerdictTest, DialogResult)
{
    for (const DWORD dwError : {12014u, 12045u, 12048u, 12167u, 12169u})
    {
        const Row rows[] = {
            {0, SEND_AGAIN},
            {1223, SEND_STOP, REQ_STATUS_NOT_CONNECTED},
            {12032, SEND_AGAIN},
        };
        static DWORD s_dwError = 0;
        s_dwError = dwError;
        ExpectVerdicts([](DWORD dwResult) { return JudgeDialogResult(dwResult, s_dwError); }, rows, 13000,
                       {0, SEND_STOP, REQ_STATUS_FAILED});
    }
    const Row rows[] = {
        {0, SEND_REOPEN},
        {1223, SEND_STOP, REQ_STATUS_NOT_CONNECTED},
        {12032, SEND_REOPEN},
    };
    ExpectVerdicts([](DWORD dwResult) { return JudgeDialogResult(dwResult, 12168); }, rows, 13000,
                   {0, SEND_STOP, REQ_STATUS_FAILED});
}

}  // namespace
