// What the server's status code, the platform's error or the user's answer in an error dialog means for an
// exchange: plain functions of their arguments, which may be called on any thread.
#pragma once

#include <windows.h>
#include <wininet.h>

#include "kvHttp/HttpRaw.h"

enum VerdictAction
{
    VERDICT_READ,      // the body
    VERDICT_END,       // with emStatus
    VERDICT_RESEND,    // the same request
    VERDICT_REDIRECT,  // take the new location and open the request again
    VERDICT_ASK_USER,  // in the error dialog
};

struct CVerdict
{
    VerdictAction action = VERDICT_END;
    HttpRequestStatus emStatus = REQ_STATUS_FAILED;  // of VERDICT_END
};

CVerdict JudgeHttpStatus(DWORD dwHttpStatusCode);
CVerdict JudgeLastError(DWORD dwError);
// Of the dialog about dwError: only what the user has accepted leads on.
CVerdict JudgeDialogResult(DWORD dwResult, DWORD dwError);
