#include <kvHttp/HttpRaw.h>

// The header comes first and alone: it needs no other of the project and no definitions.
#include "PublicHeader.h"

static_assert(REQ_STATUS_HTTP_ERROR == 0 && REQ_STATUS_IDLE == 1 && REQ_STATUS_FAILED == 2 &&
                  REQ_STATUS_NOT_CONNECTED == 3 && REQ_STATUS_SENDING == 5 && REQ_STATUS_RECEIVING == 6 &&
                  REQ_STATUS_TIMEOUT == 7 && REQ_STATUS_DONE == 9,
              "the statuses as the module reports them");
static_assert(sizeof(HttpRequestStatus) == sizeof(unsigned long), "as GetRequestStatus stores it");

extern "C" PublicHeaderAnswers KVHTTP_HEADER_HOST()
{
    PublicHeaderAnswers answers = {};
    IHttpRaw* pHttpRaw = nullptr;
    CoInitialize(nullptr);
    answers.hrCreate =
        CoCreateInstance(CLSID_HttpRaw, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&pHttpRaw));
    if (SUCCEEDED(answers.hrCreate))
    {
        BSTR response = nullptr;
        pHttpRaw->SetDownloadFile(L"");
        pHttpRaw->SetParentWnd(nullptr);
        pHttpRaw->SetTimeout(5);
        pHttpRaw->SetTraceResponse(0);
        answers.hrPostRequest = pHttpRaw->PostRequest(L"", L"a=1");
        answers.hrPostUrl = pHttpRaw->PostUrl(L"");
        pHttpRaw->GetRequestStatus(&answers.status);
        answers.hrResponse = pHttpRaw->GetResponseData(&response);
        answers.references = pHttpRaw->Release();
    }
    CoUninitialize();
    answers.bSameIdentifier = IsEqualIID(__uuidof(IHttpRaw), IID_IHttpRaw);
    return answers;
}
