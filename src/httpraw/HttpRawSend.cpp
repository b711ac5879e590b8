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
    std::unique_ptr<CHttpRequest> pNext;
    if (m_bFileLost || !FindRequest(pNext))
    {
        return ReportOutOfMemory();
    }
    TraceText(kTraceProgress, L"Http Send request");
    TraceText(kTraceProgress, m_settings.strDownloadFile.c_str());
    TraceEncoded(m_settings.strUrl);
    TraceEncoded(m_settings.strData);

    CHttpRequest& request = pNext != nullptr ? *pNext : *m_pRequest;
    if (FAILED(request.TakeSettings(m_settings)) || !Overtake(pNext))
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

// A request that no worker uses: m_pRequest, with pNext left empty, or pNext. The one of the last send is
// reused, unless its exchange still runs: two workers on one request would corrupt it.
bool CHttpRaw::FindRequest(std::unique_ptr<CHttpRequest>& pNext)
{
    if (m_pRequest != nullptr && m_pRequest->IsIdle())
    {
        return true;
    }
    pNext = m_overtaken.TakeIdle();
    if (pNext == nullptr)
    {
        pNext.reset(new (std::nothrow) CHttpRequest(m_session.GetHandle(), m_session.UsesProxy()));
    }
    return pNext != nullptr;
}

// Makes pNext, if any, the request of this send. Nothing is abandoned before its successor has all that it
// needs.
bool CHttpRaw::Overtake(std::unique_ptr<CHttpRequest>& pNext)
{
    if (pNext == nullptr)
    {
        return true;
    }
    if (m_pRequest != nullptr && !m_overtaken.Keep(m_pRequest))
    {
        return false;
    }
    m_pRequest = std::move(pNext);
    return true;
}
