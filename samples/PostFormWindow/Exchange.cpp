#include "Exchange.h"

#include <utility>

HRESULT CExchange::Prepare()
{
    if (m_pHttpRaw != nullptr)
    {
        return S_OK;
    }
    void* pHttpRaw = nullptr;
    const HRESULT hr =
        CoCreateInstance(CLSID_HttpRaw, nullptr, CLSCTX_INPROC_SERVER, IID_IHttpRaw, &pHttpRaw);
    m_pHttpRaw = static_cast<IHttpRaw*>(pHttpRaw);
    return hr;
}

HRESULT CExchange::Start(HWND hWndParent, const Form& form)
{
    HRESULT hr = Prepare();
    if (FAILED(hr))
    {
        return hr;
    }
    m_pHttpRaw->SetParentWnd(hWndParent);
    m_pHttpRaw->SetTimeout(form.nTimeout);
    // For each exchange anew: taking an answer makes the component forget the file.
    m_pHttpRaw->SetDownloadFile(form.strFile.c_str());
    hr = m_pHttpRaw->PostRequest(form.strUrl.c_str(), form.strData.c_str());
    if (SUCCEEDED(hr))
    {
        m_strFile = form.strFile;
        m_begin = GetTickCount64();
        m_bRunning = true;
        m_status = REQ_STATUS_SENDING;
    }
    return hr;
}

void CExchange::Poll()
{
    if (m_bRunning)
    {
        m_pHttpRaw->GetRequestStatus(&m_status);
        m_end = GetTickCount64();
        // A time-out is final though the worker, when it next looks, writes another status.
        m_bRunning = m_status == REQ_STATUS_SENDING || m_status == REQ_STATUS_RECEIVING;
    }
}

void CExchange::Release()
{
    if (m_bRunning)
    {
        m_end = GetTickCount64();
        m_bRunning = false;
    }
    m_status = REQ_STATUS_IDLE;
    // Messages are dispatched in here: what they lead to must not find the component any more.
    IHttpRaw* const pHttpRaw = std::exchange(m_pHttpRaw, nullptr);
    if (pHttpRaw != nullptr)
    {
        pHttpRaw->Release();
    }
}

std::wstring CExchange::TakeAnswer()
{
    BSTR bstrAnswer = nullptr;
    if (m_pHttpRaw == nullptr || FAILED(m_pHttpRaw->GetResponseData(&bstrAnswer)))
    {
        return {};
    }
    std::wstring answer(bstrAnswer, SysStringLen(bstrAnswer));
    SysFreeString(bstrAnswer);
    return answer;
}

std::optional<ULONGLONG> CExchange::FileSize() const
{
    // The component holds the file alone while it writes: only the size can be asked for.
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (m_strFile.empty() || !GetFileAttributesExW(m_strFile.c_str(), GetFileExInfoStandard, &data))
    {
        return std::nullopt;
    }
    return (ULONGLONG{data.nFileSizeHigh} << 32) + data.nFileSizeLow;
}
