#include "httpraw/HttpRaw.h"

#include <climits>
#include <new>
#include <utility>

HRESULT CHttpRaw::CreateInstance(IUnknown* pUnknownOuter, CUnknown** ppNewComponent)
{
    if (pUnknownOuter != nullptr)
    {
        return CLASS_E_NOAGGREGATION;
    }
    *ppNewComponent = new (std::nothrow) CHttpRaw(pUnknownOuter);
    return S_OK;
}

CHttpRaw::~CHttpRaw()
{
    m_owner.Check();
    m_bReleased = true;
    if (m_pRequest != nullptr && !m_overtaken.IsEmpty())
    {
        m_pRequest->Abandon();  // so that it does not go on while the others are waited for
    }
    m_overtaken.Clear();
    // The pointer stays meanwhile: the wait dispatches messages, and a host that asks then is answered.
    delete m_pRequest.get();
    static_cast<void>(m_pRequest.release());
    m_session.DisConnect();
}

HRESULT CHttpRaw::NondelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (ppv == nullptr)
    {
        return E_INVALIDARG;
    }
    if (IsEqualIID(riid, IID_IHttpRaw))
    {
        IHttpRaw* const pHttpRaw = this;
        *ppv = pHttpRaw;
        pHttpRaw->AddRef();
        return S_OK;
    }
    return CUnknown::NondelegatingQueryInterface(riid, ppv);
}

HRESULT CHttpRaw::QueryInterface(REFIID riid, void** ppv)
{
    return OuterUnknown()->QueryInterface(riid, ppv);
}

ULONG CHttpRaw::AddRef()
{
    return OuterUnknown()->AddRef();
}

ULONG CHttpRaw::Release()
{
    return OuterUnknown()->Release();
}

HRESULT CHttpRaw::PostRequest(const wchar_t* url, const wchar_t* data)
{
    m_owner.Check();
    if (*url == L'\0' || *data == L'\0')
    {
        return E_INVALIDARG;
    }
    CStringEx strUrl;
    CStringEx strData;
    if (!strUrl.Assign(url) || !strData.Assign(data))
    {
        return ReportOutOfMemory();
    }
    m_settings.strUrl = std::move(strUrl);
    m_settings.strData = std::move(strData);
    return StartRequest();
}

HRESULT CHttpRaw::PostUrl(const wchar_t* url)
{
    m_owner.Check();
    if (*url == L'\0')
    {
        return E_INVALIDARG;
    }
    CStringEx strUrl;
    if (!strUrl.Assign(url))
    {
        return ReportOutOfMemory();
    }
    const int query = strUrl.Find(L"?");
    // Intended: a URL without a query is sent with the data of the previous call.
    if (query > 0)
    {
        CStringEx strData;
        if (!strData.Assign(strUrl.c_str() + query + 1))
        {
            return ReportOutOfMemory();
        }
        m_settings.strData = std::move(strData);
        strUrl.Delete(query, INT_MAX);
    }
    m_settings.strUrl = std::move(strUrl);
    return StartRequest();
}

HRESULT CHttpRaw::GetRequestStatus(unsigned long* status)
{
    m_owner.Check();
    if (status == nullptr)
    {
        return E_INVALIDARG;
    }
    if (m_pRequest == nullptr)
    {
        *status = REQ_STATUS_IDLE;
        return S_OK;
    }
    return m_pRequest->GetStatus(status);
}

HRESULT CHttpRaw::GetResponseData(BSTR* response)
{
    m_owner.Check();
    if (m_pRequest == nullptr)
    {
        return E_FAIL;
    }
    const HRESULT hr = m_pRequest->GetResponse(response);
    m_settings.strDownloadFile.Empty();
    m_bFileLost = false;
    return hr;
}

HRESULT CHttpRaw::SetDownloadFile(const wchar_t* path)
{
    m_owner.Check();
    m_bFileLost = !m_settings.strDownloadFile.Assign(path);
    return S_OK;
}

HRESULT CHttpRaw::SetParentWnd(HWND parent)
{
    m_owner.Check();
    m_settings.hWndParent = parent;
    return S_OK;
}

HRESULT CHttpRaw::SetTimeout(unsigned long seconds)
{
    m_owner.Check();
    m_settings.nTimeout = seconds;
    return S_OK;
}

HRESULT CHttpRaw::SetTraceResponse(unsigned long flag)
{
    m_owner.Check();
    m_settings.bTraceResponse = flag;
    return S_OK;
}
