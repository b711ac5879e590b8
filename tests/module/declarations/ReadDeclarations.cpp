// Compiled once for each set of declarations, which are included by the name in KVHTTP_DECLARATIONS.
#include <windows.h>

#include <ole2.h>

#include <initguid.h>

#include KVHTTP_DECLARATIONS

#include <typeinfo>

#include "module/declarations/Declarations.h"

namespace
{

// Without the class, which has the same name in both sets.
template <typename Result, typename Class, typename... Arguments>
const char* TypeOf(Result (STDMETHODCALLTYPE Class::*)(Arguments...))
{
    return typeid(Result(*)(Arguments...)).name();
}

}  // namespace

extern "C" void KVHTTP_READ_DECLARATIONS(Declarations* pDeclarations)
{
    auto* const pHttpRaw = static_cast<IHttpRaw*>(ObjectOfSlots());
    const HttpRequestStatus statuses[] = {REQ_STATUS_HTTP_ERROR,    REQ_STATUS_IDLE,    REQ_STATUS_FAILED,
                                          REQ_STATUS_NOT_CONNECTED, REQ_STATUS_SENDING, REQ_STATUS_RECEIVING,
                                          REQ_STATUS_TIMEOUT,       REQ_STATUS_DONE};
    constexpr GUID uuidof = __uuidof(IHttpRaw);
    pDeclarations->iid = IID_IHttpRaw;
    pDeclarations->clsid = CLSID_HttpRaw;
    pDeclarations->uuidof = uuidof;
    size_t count = 0;
    for (const HttpRequestStatus status : statuses)
    {
        pDeclarations->statuses[count++] = static_cast<unsigned long>(status);
    }
    count = 0;
    const auto note = [&](const char* pszMethod, const char* pszType)
    {
        pDeclarations->slots[count] = {pszMethod, LastSlot()};
        pDeclarations->types[count++] = pszType;
    };
    void* pSame = nullptr;
    unsigned long status = 0;
    BSTR response = nullptr;
#define CALL(method, ...) (pHttpRaw->method(__VA_ARGS__), note(#method, TypeOf(&IHttpRaw::method)))
    // Its type is the platform's, and it may have overloads.
    pHttpRaw->QueryInterface(IID_IUnknown, &pSame);
    note("QueryInterface", "");
    CALL(AddRef);
    CALL(Release);
    CALL(PostRequest, L"", L"");
    CALL(PostUrl, L"");
    CALL(GetRequestStatus, &status);
    CALL(GetResponseData, &response);
    CALL(SetDownloadFile, L"");
    CALL(SetParentWnd, nullptr);
    CALL(SetTimeout, 1);
    CALL(SetTraceResponse, 1);
}
