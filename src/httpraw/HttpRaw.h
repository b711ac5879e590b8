// The module's one component. It holds the host's settings, starts each request on a worker thread, and
// hands back status and answer. All calls come from the host's thread, the one that created the object.
#pragma once

#include <windows.h>

#include <memory>

#include "base/OwnerThread.h"
#include "httpraw/OvertakenRequests.h"
#include "kvHttp/HttpRaw.h"
#include "request/HttpRequest.h"
#include "request/RequestSettings.h"
#include "server/Unknown.h"
#include "session/HttpSession.h"

class CHttpRaw : public CUnknown, public IHttpRaw
{
public:
    CHttpRaw(const CHttpRaw&) = delete;
    CHttpRaw& operator=(const CHttpRaw&) = delete;

    // Stores a component with one reference. CLASS_E_NOAGGREGATION when pUnknownOuter is not null.
    // Intended: without memory it stores null and still returns S_OK.
    static HRESULT CreateInstance(IUnknown* pUnknownOuter, CUnknown** ppNewComponent);

    // E_INVALIDARG when ppv is null; *ppv is null on E_NOINTERFACE.
    HRESULT STDMETHODCALLTYPE NondelegatingQueryInterface(REFIID riid, void** ppv) override;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // The contracts of these are in the public header.
    HRESULT STDMETHODCALLTYPE PostRequest(const wchar_t* url, const wchar_t* data) override;
    HRESULT STDMETHODCALLTYPE PostUrl(const wchar_t* url) override;
    HRESULT STDMETHODCALLTYPE GetRequestStatus(unsigned long* status) override;
    HRESULT STDMETHODCALLTYPE GetResponseData(BSTR* response) override;
    HRESULT STDMETHODCALLTYPE SetDownloadFile(const wchar_t* path) override;
    HRESULT STDMETHODCALLTYPE SetParentWnd(HWND parent) override;
    HRESULT STDMETHODCALLTYPE SetTimeout(unsigned long seconds) override;
    HRESULT STDMETHODCALLTYPE SetTraceResponse(unsigned long flag) override;

private:
    explicit CHttpRaw(IUnknown* pUnknownOuter) : CUnknown(pUnknownOuter) {}
    ~CHttpRaw() override;

    // Starts the exchange on the worker and returns at once. S_OK also when the worker could not be
    // started (REQ_STATUS_FAILED); E_FAIL when there is no memory for the request, or after the last release.
    HRESULT StartRequest();
    bool FindRequest(std::unique_ptr<CHttpRequest>& pNext);
    bool Overtake(std::unique_ptr<CHttpRequest>& pNext);
    static HRESULT ReportOutOfMemory();

    CHttpSession m_session;
    std::unique_ptr<CHttpRequest> m_pRequest;  // null until the first send, then reused
    CRequestSettings m_settings;               // of the next send
    bool m_bFileLost = false;                  // there was no memory for the path of the download file
    bool m_bReleased = false;                  // the destructor runs, and may be called back
    COvertakenRequests m_overtaken;
    COwnerThread m_owner;
};
