// Starting a request from the host's thread, which never waits for the transfer.
#include <algorithm>
#include <new>

#include "base/UrlEncoding.h"
#include "httpraw/HttpRaw.h"
#include "trace/Trace.h"

namespace
{

// URL and form data never reach the trace as plain text.
void TraceEncoded(const CStringEx& strText)
{
    if (GetTraceProc() == nullptr)
    {
        return;  // spares the work
    }
    CStringEx strEncoded(strText);
    EncodeURL(strEncoded);
    if (strText.GetLength() > 0 && strEncoded.GetLength() == strText.GetLength())
    {
        return;  // there was no memory for the encoding, which is three times as long
    }
    TraceText(kTraceProgress, strEncoded.c_str());
}

}  // namespace

HRESULT CHttpRaw::StartRequest()
{
    m_session.OpenInternet();
    if (!PrepareRequest())
    {
        return ReportOutOfMemory();
    }
    TraceText(kTraceProgress, L"Http Send request");
    TraceText(kTraceProgress, m_strDownloadFile.c_str());
    TraceEncoded(m_strUrl);
    TraceEncoded(m_strData);

    if (FAILED(m_pRequest->SetFile(m_strDownloadFile.c_str())) ||
        FAILED(m_pRequest->SetUrl(m_strUrl.c_str(), m_strData.c_str())))
    {
        return ReportOutOfMemory();
    }
    m_pRequest->SetParentWnd(m_hWndParent);
    m_pRequest->m_nTimeout = m_nTimeout;
    m_pRequest->m_bTraceResponse = m_bTraceResponse;

    // Intended: the status is written after the start, over whatever a quick worker has reached by then.
    m_pRequest->UpdateRequestStatus(m_pRequest->StartWorker() ? REQ_STATUS_SENDING : REQ_STATUS_FAILED);
    return S_OK;
}

HRESULT CHttpRaw::ReportOutOfMemory()
{
    TraceText(kTraceError, L"Out of memory");
    return E_FAIL;
}

// Makes m_pRequest one that no worker uses. The one of the last send is reused, unless its exchange still
// runs: then it is told to stop and put aside, since two workers on one request would corrupt it.
bool CHttpRaw::PrepareRequest()
{
    if (m_pRequest != nullptr && !m_pRequest->IsIdle())
    {
        try
        {
            m_overtaken.reserve(m_overtaken.size() + 1);
        }
        catch (const std::bad_alloc&)
        {
            return false;
        }
        m_pRequest->Abandon();
        const auto idle = std::find_if(m_overtaken.begin(), m_overtaken.end(),
                                       [](const auto& pRequest) { return pRequest->HasLeft(); });
        if (idle != m_overtaken.end())
        {
            m_pRequest.swap(*idle);
            return true;
        }
        m_overtaken.push_back(std::move(m_pRequest));
    }
    if (m_pRequest == nullptr)
    {
        m_pRequest.reset(new (std::nothrow) CHttpRequest(m_session.GetHandle()));
    }
    return m_pRequest != nullptr;
}
