// Reading the answer: the status code, and the body into memory or into a file.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "base/ScopedHandle.h"
#include "request/HttpRequest.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

namespace
{

constexpr DWORD kChunkSize = 16384;
constexpr int kDefaultStatusCode = 200;
constexpr size_t kStatusCodeLength = 261;
constexpr DWORD kStatusCodeBytes = 262;  // intended: half of what the buffer holds

}  // namespace

int CHttpRequest::QueryStatusCode() const
{
    wchar_t szCode[kStatusCodeLength] = {};
    DWORD dwLength = kStatusCodeBytes;
    const bool bFound =
        m_hRequest.Call(HttpQueryInfoW, DWORD{HTTP_QUERY_STATUS_CODE}, szCode, &dwLength, nullptr);
    return bFound ? static_cast<int>(_wtol(szCode)) : kDefaultStatusCode;
}

// Gives each chunk to take, the empty one at the end of the body too, while that answers
// REQ_STATUS_RECEIVING. The result says how the reading has ended; REQ_STATUS_DONE also for a read that
// fails, since what has arrived counts.
template <typename Take>
HttpRequestStatus CHttpRequest::ReadChunks(Take take)
{
    BYTE chunk[kChunkSize] = {};
    DWORD dwRead = 0;
    while (m_hRequest.Call(InternetReadFile, chunk, kChunkSize, &dwRead))
    {
        const HttpRequestStatus emEnd = IsStopping() ? REQ_STATUS_FAILED : take(chunk, dwRead);
        if (emEnd != REQ_STATUS_RECEIVING)
        {
            return emEnd;
        }
    }
    return REQ_STATUS_DONE;
}

// A reading that has ended too early stays stopped.
void CHttpRequest::ReportReadEnd(HttpRequestStatus emEnd)
{
    if (emEnd != REQ_STATUS_DONE)
    {
        UpdateRequestStatus(emEnd);
        m_bStop = 1;
    }
}

void CHttpRequest::ReadInternetDataToBuffer()
{
    const CAutoFunTrace trace("CHttpRequest::ReadInternetDataToBuffer");
    UpdateRequestStatus(REQ_STATUS_RECEIVING);
    DWORD dwTotal = 0;
    m_bStop = 0;  // intended: a time-out that a poll has told before the answer came is forgotten
    ReportReadEnd(ReadChunks(
        [&](const BYTE* pChunk, DWORD dwRead)
        {
            if (m_timer.GetElapsed() > GetTimeoutMs())
            {
                return REQ_STATUS_TIMEOUT;
            }
            if (dwRead == 0)
            {
                return REQ_STATUS_DONE;
            }
            if (!AppendToBuffer(pChunk, dwRead, dwTotal))
            {
                return REQ_STATUS_FAILED;
            }
            dwTotal += dwRead;
            return REQ_STATUS_RECEIVING;
        }));
    if (IsStopping())
    {
        FreeData();
        return;
    }
    m_dwDataLen = dwTotal;
    if (m_bTraceResponse != 0)
    {
        TraceResponse();
    }
    UpdateRequestStatus(REQ_STATUS_DONE);
}

// Grows the body by exactly what has arrived. False, with the body as it was, when it cannot grow.
bool CHttpRequest::AppendToBuffer(const BYTE* pChunk, DWORD dwSize, DWORD dwTotal)
{
    if (dwTotal > MAXDWORD - dwSize - 1)
    {
        return false;
    }
    void* pGrown = std::realloc(m_pData, size_t{dwTotal} + dwSize + 1);
    if (pGrown == nullptr)
    {
        return false;
    }
    m_pData = static_cast<BYTE*>(pGrown);
    std::memcpy(m_pData + dwTotal, pChunk, dwSize);
    m_pData[dwTotal + dwSize] = 0;
    return true;
}

void CHttpRequest::TraceResponse() const
{
    TraceText(kTraceProgress, L"Get http response here.");
    if (!HasTraceLibrary())
    {
        return;  // spares the conversion
    }
    CStringEx strResponse;
    if (m_pData != nullptr)
    {
        strResponse.SetUTF8(reinterpret_cast<const char*>(m_pData));
    }
    TraceText(kTraceProgress, strResponse.c_str());
}

void CHttpRequest::ReadInternetDataToFile()
{
    const CAutoFunTrace trace("CHttpRequest::ReadInternetDataToFile");
    UpdateRequestStatus(REQ_STATUS_RECEIVING);
    if (m_hRequest.IsAbandoned())
    {
        UpdateRequestStatus(REQ_STATUS_FAILED);
        return;
    }
    CFileHandle file(CreateFileW(m_strFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    if (!file)
    {
        // Intended: the status stays, and becomes a time-out when the owner's poll says so.
        TraceText(kTraceError, L"Can not create file....");
        return;
    }
    m_bStop = 0;
    DWORD dwTotal = 0;
    // Intended: no time-out is tested in this loop.
    ReportReadEnd(ReadChunks(
        [&](const BYTE* pChunk, DWORD dwRead)
        {
            if (dwRead == 0)
            {
                return REQ_STATUS_DONE;
            }
            DWORD dwWritten = 0;
            WriteFile(file.Get(), pChunk, dwRead, &dwWritten, nullptr);
            if (dwWritten != dwRead)
            {
                TraceText(kTraceError, L"write file failed");
            }
            dwTotal += dwRead;  // intended: also where less was written
            return REQ_STATUS_RECEIVING;
        }));
    file.Close();
    if (IsStopping())
    {
        DeleteFileW(m_strFile);
        m_dwDataLen = 0;
        return;
    }
    // Intended: at the level of errors.
    TraceTextVar(kTraceError, L"download file [%s] is finished", "m_strFile.c_str()", m_strFile.c_str());
    m_dwDataLen = dwTotal;
    UpdateRequestStatus(REQ_STATUS_DONE);
}
