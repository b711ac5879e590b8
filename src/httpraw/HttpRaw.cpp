#include "httpraw/HttpRaw.h"

#include <new>

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
    m_pRequest.reset();
    m_overtaken.clear();
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
    if (*url == L'\0' || *data == L'\0')
    {
        return E_INVALIDARG;
    }
    m_strUrl = url;
    m_strData = data;
    if (m_strUrl.GetLength() == 0 || m_strData.GetLength() == 0)
    {
        return ReportOutOfMemory();
    }
    return StartRequest();
}

HRESULT CHttpRaw::PostUrl(const wchar_t* url)
{
    if (*url == L'\0')
    {
        return E_INVALIDARG;
    }
    m_strUrl = url;
    if (m_strUrl.GetLength() == 0)
    {
        return ReportOutOfMemory();
    }
    const int query = m_strUrl.Find(L"?");
    // Intended: a URL without a query is sent with the data of the previous call.
    if (query > 0)
    {
        m_strData = m_strUrl.Mid(query + 1, -1);
        m_strUrl = m_strUrl.Left(query);
    }
    return StartRequest();
}

HRESULT CHttpRaw::GetRequestStatus(unsigned long* status)
{
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
    if (m_pRequest == nullptr)
    {
        return E_FAIL;
    }
    const HRESULT hr = m_pRequest->GetResponse(response);
    m_strDownloadFile = L"";
    return hr;
}

HRESULT CHttpRaw::SetDownloadFile(const wchar_t* path)
{
    m_strDownloadFile = path;
    return S_OK;
}

HRESULT CHttpRaw::SetParentWnd(HWND parent)
{
    m_hWndParent = parent;
    return S_OK;
}

HRESULT CHttpRaw::SetTimeout(unsigned long seconds)
{
    m_nTimeout = seconds;
    return S_OK;
}

HRESULT CHttpRaw::SetTraceResponse(unsigned long flag)
{
    m_bTraceResponse = flag;
    return S_OK;
}
