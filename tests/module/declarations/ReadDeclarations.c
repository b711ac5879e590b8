// Compiled once for each set of declarations, which are included by the name in KVHTTP_DECLARATIONS.
#define COBJMACROS
#include <windows.h>

#include <ole2.h>

#include <initguid.h>

#include KVHTTP_DECLARATIONS

#include "module/declarations/Declarations.h"

static size_t Note(Declarations* pDeclarations, size_t count, const char* pszMethod)
{
    pDeclarations->slots[count].pszMethod = pszMethod;
    pDeclarations->slots[count].slot = LastSlot();
    return count + 1;
}

void KVHTTP_READ_DECLARATIONS(Declarations* pDeclarations)
{
    IHttpRaw* const pHttpRaw = ObjectOfSlots();
    HttpRequestStatus statuses[] = {REQ_STATUS_HTTP_ERROR,    REQ_STATUS_IDLE,    REQ_STATUS_FAILED,
                                    REQ_STATUS_NOT_CONNECTED, REQ_STATUS_SENDING, REQ_STATUS_RECEIVING,
                                    REQ_STATUS_TIMEOUT,       REQ_STATUS_DONE};
    size_t count = 0;
    size_t i;
    void* pSame = NULL;
    unsigned long status = 0;
    BSTR response = NULL;
    pDeclarations->iid = IID_IHttpRaw;
    pDeclarations->clsid = CLSID_HttpRaw;
    for (i = 0; i < sizeof(statuses) / sizeof(statuses[0]); ++i)
    {
        pDeclarations->statuses[i] = (unsigned long)statuses[i];
    }
#define CALL(method, ...) (IHttpRaw_##method(__VA_ARGS__), count = Note(pDeclarations, count, #method))
    CALL(QueryInterface, pHttpRaw, &IID_IHttpRaw, &pSame);
    CALL(AddRef, pHttpRaw);
    CALL(Release, pHttpRaw);
    CALL(PostRequest, pHttpRaw, L"", L"");
    CALL(PostUrl, pHttpRaw, L"");
    CALL(GetRequestStatus, pHttpRaw, &status);
    CALL(GetResponseData, pHttpRaw, &response);
    CALL(SetDownloadFile, pHttpRaw, L"");
    CALL(SetParentWnd, pHttpRaw, NULL);
    CALL(SetTimeout, pHttpRaw, 1);
    CALL(SetTraceResponse, pHttpRaw, 1);
}
