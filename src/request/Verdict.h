// What the server's status code, the platform's error or the user's answer in an error dialog means for an
// exchange: plain functions of their arguments, which may be called on any thread.
#pragma once

#include <windows.h>
#include <wininet.h>

#include "kvHttp/HttpRaw.h"

// What an attempt asks for next.
enum SendResult
{
    SEND_READ_BODY = 0,
    SEND_STOP = 1,      // nothing to read; the status has been set
    SEND_AGAIN = 2,     // on the same request handle
    SEND_REOPEN = 3,    // the URL has changed
    SEND_ASK_USER = 4,  // only as a verdict: in the error dialog
};

struct CVerdict
{
    SendResult result = SEND_STOP;
    HttpRequestStatus emStatus = REQ_STATUS_FAILED;  // of SEND_STOP
};

CVerdict JudgeHttpStatus(DWORD dwHttpStatusCode);
CVerdict JudgeLastError(DWORD dwError);
// Of the dialog about dwError: only what the user has accepted leads on.
CVerdict JudgeDialogResult(DWORD dwResult, DWORD dwError);
