#include "request/Verdict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

namespace
{

struct Row
{
    DWORD dwCode;
    VerdictAction action;
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
        EXPECT_EQ(verdict.action, expected.action) << "code " << dwCode;
        if (expected.action == VERDICT_END)
        {
            EXPECT_EQ(verdict.emStatus, expected.emStatus) << "code " << dwCode;
        }
    }
}

TEST(VerdictTest, HttpStatus)
{
    const Row rows[] = {
        {301, VERDICT_REDIRECT},
        {302, VERDICT_REDIRECT},
        {303, VERDICT_REDIRECT},
        {307, VERDICT_REDIRECT},
        {400, VERDICT_END, REQ_STATUS_HTTP_ERROR},
        {401, VERDICT_END, REQ_STATUS_HTTP_ERROR},
        {404, VERDICT_END, REQ_STATUS_HTTP_ERROR},
        {405, VERDICT_END, REQ_STATUS_HTTP_ERROR},
        {407, VERDICT_ASK_USER},
        {408, VERDICT_END, REQ_STATUS_TIMEOUT},
    };
    ExpectVerdicts(JudgeHttpStatus, rows, 1000, {0, VERDICT_READ});
}

TEST(VerdictTest, LastError)
{
    const Row rows[] = {
        {0, VERDICT_READ},
        {997, VERDICT_END, REQ_STATUS_TIMEOUT},
        {12002, VERDICT_END, REQ_STATUS_TIMEOUT},
        {12032, VERDICT_RESEND},
        {12014, VERDICT_ASK_USER},
        {12037, VERDICT_ASK_USER},
        {12038, VERDICT_ASK_USER},
        {12039, VERDICT_ASK_USER},
        {12040, VERDICT_ASK_USER},
        {12041, VERDICT_ASK_USER},
        {12042, VERDICT_ASK_USER},
        {12043, VERDICT_ASK_USER},
        {12045, VERDICT_ASK_USER},
        {12048, VERDICT_ASK_USER},
        {12050, VERDICT_ASK_USER},
        {12052, VERDICT_ASK_USER},
        {12055, VERDICT_ASK_USER},
        {12056, VERDICT_ASK_USER},
        {12057, VERDICT_ASK_USER},
        {12168, VERDICT_ASK_USER},
    };
    ExpectVerdicts(JudgeLastError, rows, 13000, {0, VERDICT_END, REQ_STATUS_FAILED});
    EXPECT_EQ(JudgeLastError(0xFFFFFFFF).action, VERDICT_END);
}

// The user's answer leads to a resend, but for the confirmation of a redirect.
TEST(VerdictTest, DialogResult)
{
    for (const DWORD dwError : {12014u, 12045u, 12048u, 12167u, 12169u})
    {
        const Row rows[] = {
            {0, VERDICT_RESEND},
            {1223, VERDICT_END, REQ_STATUS_NOT_CONNECTED},
            {12032, VERDICT_RESEND},
        };
        static DWORD s_dwError = 0;
        s_dwError = dwError;
        ExpectVerdicts([](DWORD dwResult) { return JudgeDialogResult(dwResult, s_dwError); }, rows, 13000,
                       {0, VERDICT_END, REQ_STATUS_FAILED});
    }
    const Row rows[] = {
        {0, VERDICT_REDIRECT},
        {1223, VERDICT_END, REQ_STATUS_NOT_CONNECTED},
        {12032, VERDICT_REDIRECT},
    };
    ExpectVerdicts([](DWORD dwResult) { return JudgeDialogResult(dwResult, 12168); }, rows, 13000,
                   {0, VERDICT_END, REQ_STATUS_FAILED});
}

}  // namespace
