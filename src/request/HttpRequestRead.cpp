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

int CHttpRequest::QueryStatusCode(HINTERNET hRequest) const
{
    wchar_t szCode[kStatusCodeLength] = {};
    DWORD dwLength = kStatusCodeBytes;
    if (!HttpQueryInfoW(hRequest, HTTP_QUERY_STATUS_CODE, szCode, &dwLength, nullptr))
    {
        return kDefaultStatusCode;
    }
    return static_cast<int>(_wtol(szCode));
}

void CHttpRequest::ReadInternetDataToBuffer(HINTERNET hRequest)
{
    const CAutoFunTrace trace("CHttpRequest::ReadInternetDataToBuffer");
    UpdateRequestStatus(REQ_STATUS_RECEIVING);
    DWORD dwTotal = 0;
    m_bStop = 0;
    BYTE chunk[kChunkSize] = {};
    DWORD dwRead = 0;
    // A read that fails ends the body like its end does: what has arrived counts.
    while (InternetReadFile(hRequest, chunk, kChunkSize, &dwRead))
    {
        if (IsStopping())
        {
            UpdateRequestStatus(REQ_STATUS_FAILED);
            break;
        }
        if (m_timer.GetElapsed() > GetTimeoutMs())
        {
            UpdateRequestStatus(REQ_STATUS_TIMEOUT);
            m_bStop = 1;
            break;
        }
        if (dwRead == 0)
        {
            break;
        }
        if (!AppendToBuffer(chunk, dwRead, dwTotal))
        {
            UpdateRequestStatus(REQ_STATUS_FAILED);
            m_bStop = 1;
            break;
        }
        dwTotal += dwRead;
    }
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
    if (GetTraceProc() == nullptr)
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

void CHttpRequest::ReadInternetDataToFile(HINTERNET hRequest)
{
    const CAutoFunTrace trace("CHttpRequest::ReadInternetDataToFile");
    UpdateRequestStatus(REQ_STATUS_RECEIVING);
    CFileHandle file(CreateFileW(m_strFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    if (!file)
    {
        // Intended: the status stays, and becomes a time-out when the owner's poll says so.
        TraceText(kTraceError, L"Can not create file....");
        return;
    }
    m_bStop = 0;
    DWORD dwTotal = 0;
    BYTE chunk[kChunkSize] = {};
    DWORD dwRead = 0;
    // Intended: no time-out is tested in this loop.
    while (InternetReadFile(hRequest, chunk, kChunkSize, &dwRead))
    {
        if (IsStopping())
        {
            UpdateRequestStatus(REQ_STATUS_FAILED);
            break;
        }
        if (dwRead == 0)
        {
            break;
        }
        DWORD dwWritten = 0;
        WriteFile(file.Get(), chunk, dwRead, &dwWritten, nullptr);
        if (dwWritten != dwRead)
        {
            TraceText(kTraceError, L"write file failed");
        }
        dwTotal += dwRead;
    }
    file.Close();
    if (IsStopping())
    {
        DeleteFileW(m_strFile);
        m_dwDataLen = 0;
        return;
    }
    TraceTextVar(kTraceError, L"download file [%s] is finished", "m_strFile.c_str()", m_strFile.c_str());
    m_dwDataLen = dwTotal;
    UpdateRequestStatus(REQ_STATUS_DONE);
}
