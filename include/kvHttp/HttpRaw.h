// What a host needs to use the HttpRaw component: create CLSID_HttpRaw with CoCreateInstance, ask for
// IID_IHttpRaw, post form data, poll the status, take the answer. This header stands alone; it needs
// the Windows headers and C++11 or later, or C99. In C the macros of the methods are there where COBJMACROS
// is defined, as with the platform's own headers.
//
// Threads: the component is registered for the apartment model. Make all calls on an object from the
// thread that created it, and keep that thread's message queue running while a request runs: the
// platform's error dialog is shown over a window of that thread.
#pragma once

#include <windows.h>

#include <oleauto.h>
#include <unknwn.h>

// However many files of a program include this, the program has one copy of each identifier.
#ifdef __cplusplus
#define KVHTTP_GUID extern "C" const GUID DECLSPEC_SELECTANY
#else
#define KVHTTP_GUID const GUID DECLSPEC_SELECTANY
#endif
KVHTTP_GUID CLSID_HttpRaw = {0x6F2A1C3E, 0x5B7D, 0x4E21, {0x9A, 0x0C, 0x3D, 0x8E, 0x47, 0xB1, 0xF5, 0xA2}};
KVHTTP_GUID IID_IHttpRaw = {0x4C7E2B19, 0x0D3A, 0x4F86, {0xB5, 0xE1, 0x97, 0xA2, 0xC4, 0xD8, 0xE0, 0x63}};
#undef KVHTTP_GUID

// State of an object's request. Only REQ_STATUS_SENDING and REQ_STATUS_RECEIVING mean that it still
// runs; 4 and 8 never occur.
enum HttpRequestStatus
#ifdef __cplusplus
    : unsigned long
#endif
{
    REQ_STATUS_HTTP_ERROR = 0,     // the server answered 400, 401, 404 or 405
    REQ_STATUS_IDLE = 1,           // nothing has been sent yet
    REQ_STATUS_FAILED = 2,         // the exchange could not be carried out
    REQ_STATUS_NOT_CONNECTED = 3,  // no connection, or the user cancelled the error dialog
    REQ_STATUS_SENDING = 5,
    REQ_STATUS_RECEIVING = 6,
    REQ_STATUS_TIMEOUT = 7,  // too slow, or too many resends or redirects
    REQ_STATUS_DONE = 9      // the answer is complete
};

#if defined(__cplusplus) && !defined(CINTERFACE)

MIDL_INTERFACE("4C7E2B19-0D3A-4F86-B5E1-97A2C4D8E063")
IHttpRaw : public IUnknown
{
public:
    // Posts data to url and returns at once. Both are copied and must not be null.
    // S_OK: started; a worker that could not be started shows as REQ_STATUS_FAILED.
    // E_INVALIDARG: url or data is empty, nothing was started. E_FAIL: out of memory,
    // or called back while the last release waits.
    virtual HRESULT STDMETHODCALLTYPE PostRequest(const wchar_t* url, const wchar_t* data) = 0;

    // Posts to url, which must not be null. What follows its first '?' is taken off and becomes the
    // data. A url without '?', or with '?' as its first character, is posted as it stands with the
    // data of the previous call on this object. Results as PostRequest.
    virtual HRESULT STDMETHODCALLTYPE PostUrl(const wchar_t* url) = 0;

    // Stores an HttpRequestStatus in *status and returns S_OK. This call enforces the time-out: an
    // object that is not polled has none. E_INVALIDARG: status is null.
    virtual HRESULT STDMETHODCALLTYPE GetRequestStatus(unsigned long* status) = 0;

    // Stores the answer, decoded from UTF-8, in *response, which the caller frees with SysFreeString;
    // response may be null. Take the answer only after REQ_STATUS_DONE: an exchange that ended before it
    // was opened leaves the answer of the one before. E_FAIL: nothing has been sent, or there is no
    // answer in memory (an empty one, or one that went to a file), or a worker may still change it;
    // *response is untouched then. Once
    // something has been sent, every call forgets the path of SetDownloadFile. When memory runs out for
    // the text, this call raises the platform's COM error exception with E_OUTOFMEMORY.
    virtual HRESULT STDMETHODCALLTYPE GetResponseData(BSTR * response) = 0;

    // Settings of the next request; one that runs is not affected. None is checked, all return S_OK.

    // The file that the next answers are written to, replacing what is there; empty: keep the answer
    // in memory. The text is copied.
    virtual HRESULT STDMETHODCALLTYPE SetDownloadFile(const wchar_t* path) = 0;

    // The window over which the platform's error dialog appears. Without one that exists, it appears
    // over the desktop.
    virtual HRESULT STDMETHODCALLTYPE SetParentWnd(HWND parent) = 0;

    // In seconds; 0 means 60. From 4,294,968 on it runs over: milliseconds are counted in 32 bits.
    virtual HRESULT STDMETHODCALLTYPE SetTimeout(unsigned long seconds) = 0;

    // Nonzero, as at the start: an answer kept in memory is written to the trace as plain text.
    virtual HRESULT STDMETHODCALLTYPE SetTraceResponse(unsigned long flag) = 0;
};

#ifdef __CRT_UUID_DECL
__CRT_UUID_DECL(IHttpRaw, 0x4C7E2B19, 0x0D3A, 0x4F86, 0xB5, 0xE1, 0x97, 0xA2, 0xC4, 0xD8, 0xE0, 0x63)
#endif

#else

typedef enum HttpRequestStatus HttpRequestStatus;

// The methods are those described above, in the same order.
typedef struct IHttpRaw IHttpRaw;
typedef struct IHttpRawVtbl
{
    BEGIN_INTERFACE
    HRESULT(STDMETHODCALLTYPE* QueryInterface)(IHttpRaw* This, REFIID riid, void** ppv);
    ULONG(STDMETHODCALLTYPE* AddRef)(IHttpRaw* This);
    ULONG(STDMETHODCALLTYPE* Release)(IHttpRaw* This);
    HRESULT(STDMETHODCALLTYPE* PostRequest)(IHttpRaw* This, const wchar_t* url, const wchar_t* data);
    HRESULT(STDMETHODCALLTYPE* PostUrl)(IHttpRaw* This, const wchar_t* url);
    HRESULT(STDMETHODCALLTYPE* GetRequestStatus)(IHttpRaw* This, unsigned long* status);
    HRESULT(STDMETHODCALLTYPE* GetResponseData)(IHttpRaw* This, BSTR* response);
    HRESULT(STDMETHODCALLTYPE* SetDownloadFile)(IHttpRaw* This, const wchar_t* path);
    HRESULT(STDMETHODCALLTYPE* SetParentWnd)(IHttpRaw* This, HWND parent);
    HRESULT(STDMETHODCALLTYPE* SetTimeout)(IHttpRaw* This, unsigned long seconds);
    HRESULT(STDMETHODCALLTYPE* SetTraceResponse)(IHttpRaw* This, unsigned long flag);
    END_INTERFACE
} IHttpRawVtbl;

struct IHttpRaw
{
    CONST_VTBL struct IHttpRawVtbl* lpVtbl;
};

#ifdef COBJMACROS
#define IHttpRaw_QueryInterface(This, riid, ppv) ((This)->lpVtbl->QueryInterface(This, riid, ppv))
#define IHttpRaw_AddRef(This) ((This)->lpVtbl->AddRef(This))
#define IHttpRaw_Release(This) ((This)->lpVtbl->Release(This))
#define IHttpRaw_PostRequest(This, url, data) ((This)->lpVtbl->PostRequest(This, url, data))
#define IHttpRaw_PostUrl(This, url) ((This)->lpVtbl->PostUrl(This, url))
#define IHttpRaw_GetRequestStatus(This, status) ((This)->lpVtbl->GetRequestStatus(This, status))
#define IHttpRaw_GetResponseData(This, response) ((This)->lpVtbl->GetResponseData(This, response))
#define IHttpRaw_SetDownloadFile(This, path) ((This)->lpVtbl->SetDownloadFile(This, path))
#define IHttpRaw_SetParentWnd(This, parent) ((This)->lpVtbl->SetParentWnd(This, parent))
#define IHttpRaw_SetTimeout(This, seconds) ((This)->lpVtbl->SetTimeout(This, seconds))
#define IHttpRaw_SetTraceResponse(This, flag) ((This)->lpVtbl->SetTraceResponse(This, flag))
#endif

#endif
