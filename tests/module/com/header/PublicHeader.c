#define COBJMACROS
#include <kvHttp/HttpRaw.h>

// The header comes first and alone: it needs no other of the project and no definitions of its own.
#include "PublicHeader.h"

#include <stddef.h>

// A length below zero does not compile.
#define CHECK(name, condition) typedef char check##name[(condition) ? 1 : -1]
#define CHECK_SLOT(method, slot) CHECK(method, offsetof(IHttpRawVtbl, method) == (slot) * sizeof(void*))
CHECK_SLOT(QueryInterface, 0);
CHECK_SLOT(AddRef, 1);
CHECK_SLOT(Release, 2);
CHECK_SLOT(PostRequest, 3);
CHECK_SLOT(PostUrl, 4);
CHECK_SLOT(GetRequestStatus, 5);
CHECK_SLOT(GetResponseData, 6);
CHECK_SLOT(SetDownloadFile, 7);
CHECK_SLOT(SetParentWnd, 8);
CHECK_SLOT(SetTimeout, 9);
CHECK_SLOT(SetTraceResponse, 10);
CHECK(Size, sizeof(IHttpRawVtbl) == 11 * sizeof(void*) && sizeof(HttpRequestStatus) == sizeof(unsigned long));

PublicHeaderAnswers KVHTTP_HEADER_HOST(void)
{
    PublicHeaderAnswers answers = {0};
    IHttpRaw* pHttpRaw = NULL;
    void* pSame = NULL;
    CoInitialize(NULL);
    answers.hrCreate =
        CoCreateInstance(&CLSID_HttpRaw, NULL, CLSCTX_INPROC_SERVER, &IID_IHttpRaw, (void**)&pHttpRaw);
    if (SUCCEEDED(answers.hrCreate))
    {
        BSTR response = NULL;
        IHttpRaw_SetDownloadFile(pHttpRaw, L"");
        IHttpRaw_SetParentWnd(pHttpRaw, NULL);
        IHttpRaw_SetTimeout(pHttpRaw, 5);
        IHttpRaw_SetTraceResponse(pHttpRaw, 0);
        answers.hrPostRequest = IHttpRaw_PostRequest(pHttpRaw, L"", L"a=1");
        answers.hrPostUrl = IHttpRaw_PostUrl(pHttpRaw, L"");
        IHttpRaw_GetRequestStatus(pHttpRaw, &answers.status);
        answers.hrResponse = IHttpRaw_GetResponseData(pHttpRaw, &response);
        answers.bSameIdentifier =
            SUCCEEDED(IHttpRaw_QueryInterface(pHttpRaw, &IID_IHttpRaw, &pSame)) && pSame == pHttpRaw;
        IHttpRaw_AddRef(pHttpRaw);
        IHttpRaw_Release(pHttpRaw);
        IHttpRaw_Release(pHttpRaw);
        answers.references = IHttpRaw_Release(pHttpRaw);
    }
    CoUninitialize();
    return answers;
}
