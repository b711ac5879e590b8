// Starting a request from the host's thread, which never waits for the transfer.
#include <new>
#include <utility>

#include "base/UrlEncoding.h"
#include "httpraw/HttpRaw.h"
#include "trace/Trace.h"

namespace
{

// URL and form data never reach the trace as plain text.
void TraceEncoded(const CStringEx& strText)
{
    if (!HasTraceLibrary())
    {
        return;  // spares the work
    }
    CStringEx strEncoded;
    if (strEncoded.Assign(strText.c_str()) && EncodeURL(strEncoded))
    {
        TraceText(kTraceProgress, strEncoded.c_str());
    }
}

}  // namespace

HRESULT CHttpRaw::StartRequest()
{
    if (m_bReleased)
    {
        return E_FAIL;
    }
    m_session.OpenInternet();
    if (m_bFileLost || !PrepareRequest())
    {
        return ReportOutOfMemory();
    }
    TraceText(kTraceProgress, L"Http Send request");
    TraceText(kTraceProgress, m_settings.strDownloadFile.c_str());
    TraceEncoded(m_settings.strUrl);
    TraceEncoded(m_settings.strData);

    if (FAILED(m_pRequest->TakeSettings(m_settings)))
    {
        return ReportOutOfMemory();
    }
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
// runs: two workers on one request would corrupt it. Nothing is abandoned before its successor is there.
bool CHttpRaw::PrepareRequest()
{
    if (m_pRequest != nullptr && m_pRequest->IsIdle())
    {
        return true;
    }
    std::unique_ptr<CHttpRequest> pNext = m_overtaken.TakeIdle();
    if (pNext == nullptr)
    {
        pNext.reset(new (std::nothrow) CHttpRequest(m_session.GetHandle(), m_session.UsesProxy()));
    }
    if (pNext == nullptr || (m_pRequest != nullptr && !m_overtaken.Keep(m_pRequest)))
    {
        return false;
    }
    m_pRequest = std::move(pNext);
    return true;
}
