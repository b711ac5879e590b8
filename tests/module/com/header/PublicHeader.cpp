#include <kvHttp/HttpRaw.h>

// The header comes first and alone: it needs no other of the project and no definitions.
#include "PublicHeader.h"

static_assert(REQ_STATUS_HTTP_ERROR == 0 && REQ_STATUS_IDLE == 1 && REQ_STATUS_FAILED == 2 &&
              REQ_STATUS_NOT_CONNECTED == 3 && REQ_STATUS_SENDING == 5 && REQ_STATUS_RECEIVING == 6 &&
              REQ_STATUS_TIMEOUT == 7 && REQ_STATUS_DONE == 9);
static_assert(sizeof(HttpRequestStatus) == sizeof(unsigned long));

// The header's constants are usable before the program runs.
static_assert(CLSID_HttpRaw.Data1 == 0x6F2A1C3E && IID_IHttpRaw.Data4[7] == 0x63);

PublicHeaderAnswers KVHTTP_HEADER_FUNCTION()
{
    PublicHeaderAnswers answers = {};
    IHttpRaw* pHttpRaw = nullptr;
    void* pFace = nullptr;
    CoInitialize(nullptr);
    answers.hrCreate = CoCreateInstance(CLSID_HttpRaw, nullptr, CLSCTX_INPROC_SERVER, IID_IHttpRaw, &pFace);
    if (SUCCEEDED(answers.hrCreate))
    {
        pHttpRaw = static_cast<IHttpRaw*>(pFace);
        pHttpRaw->SetTimeout(5);
        pHttpRaw->GetRequestStatus(&answers.status);
        pHttpRaw->Release();
    }
    CoUninitialize();
#if defined(_MSC_VER) || defined(__CRT_UUID_DECL)
    answers.bSameIdentifier = IsEqualIID(__uuidof(IHttpRaw), IID_IHttpRaw) != FALSE;
#else
    answers.bSameIdentifier = true;
#endif
    return answers;
}
