#include "request/HttpRequest.h"

#include <comdef.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "base/TextConversion.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

std::atomic<DWORD> g_dwSecurityFlags{0};

namespace
{

constexpr DWORD kDefaultTimeoutMs = 60000;
constexpr DWORD kThreadExitTimeoutMs = 60000;
constexpr int kMaxRedirects = 5;

bool IsRunning(HttpRequestStatus emStatus)
{
    return emStatus == REQ_STATUS_SENDING || emStatus == REQ_STATUS_RECEIVING;
}

struct BstrDeleter
{
    void operator()(OLECHAR* bstr) const { SysFreeString(bstr); }
};
using UniqueBstr = std::unique_ptr<OLECHAR, BstrDeleter>;

}  // namespace

CHttpRequest::CHttpRequest(HINTERNET hSession, bool bUsesProxy)
    : m_hSession(hSession), m_bUsesProxy(bUsesProxy)
{
    const CAutoFunTrace trace("CHttpRequest::CHttpRequest");
    TraceTextVar(kTraceProgress, L"CHttpRequest::CHttpRequest, object=0x%X", "(void*)this", this);
    SetAutoDelete(false);
    m_timer.Start();
}

CHttpRequest::~CHttpRequest()
{
    const CAutoFunTrace trace("CHttpRequest::~CHttpRequest\n");
    TraceTextVar(kTraceProgress, L"CHttpRequest::~CHttpRequest, object=0x%X", "(void*)this", this);
    TraceText(kTraceProgress, L"Wait Thread exit...");
    m_bStop = 1;
    Abandon();
    WaitThreadExit(kThreadExitTimeoutMs, true);

    FreeData();
    CloseConnection();
    if (IsWindow(m_hWnd))
    {
        DestroyWindow(m_hWnd);
        m_hWnd = nullptr;
    }
}

HRESULT CHttpRequest::TakeSettings(const CRequestSettings& settings)
{
    if (FAILED(SetFile(settings.strDownloadFile.c_str())) ||
        FAILED(SetUrl(settings.strUrl.c_str(), settings.strData.c_str())))
    {
        return E_OUTOFMEMORY;
    }
    SetParentWnd(settings.hWndParent);
    m_nTimeout = settings.nTimeout;
    m_bTraceResponse = settings.bTraceResponse;
    return S_OK;
}

HRESULT CHttpRequest::SetUrl(const wchar_t* lpszUrl, const wchar_t* lpszPostData)
{
    Owner().Check();
    if (lpszUrl == nullptr)
    {
        return E_INVALIDARG;
    }
    if (!m_strUrl.Assign(lpszUrl) || !m_strPostData.Assign(lpszPostData))
    {
        return E_OUTOFMEMORY;
    }
    m_url.Crack(m_strUrl);
    return S_OK;
}

HRESULT CHttpRequest::SetFile(const wchar_t* lpszFile)
{
    Owner().Check();
    if (lpszFile == nullptr)
    {
        return E_INVALIDARG;
    }
    if (!m_strFile.Assign(lpszFile))
    {
        return E_OUTOFMEMORY;
    }
    TraceTextVar(kTraceProgress, L"Http download file to :[%s]", "lpszFile", lpszFile);
    return S_OK;
}

void CHttpRequest::SetParentWnd(HWND hWndParent)
{
    Owner().Check();
    TraceTextVar(kTraceProgress, L"CHttpRequest::SetParentWnd", "hWndParent", hWndParent);
    m_hWndParent = hWndParent;
}

bool CHttpRequest::IsIdle() const
{
    Owner().Check();
    return IsRunning(m_emStatus) ? HasLeft() : AwaitLeaveBriefly();
}

bool CHttpRequest::StartWorker()
{
    Owner().Check();
    m_hRequest.Renew();
    // A host that polls a reused object at once must not be told of a time-out by the last exchange.
    m_timer.Start();
    return Start();
}

void CHttpRequest::Abandon()
{
    Owner().Check();
    m_hRequest.Abandon();
}

void CHttpRequest::UpdateRequestStatus(HttpRequestStatus emStatus)
{
    const CAutoFunTrace trace("CHttpRequest::UpdateRequestStatus");
    TraceTextVar(kTraceProgress, nullptr, "emStatus", emStatus);
    m_emStatus.exchange(emStatus);
}

HRESULT CHttpRequest::GetStatus(unsigned long* pdwStatus)
{
    Owner().Check();
    if (IsRunning(m_emStatus) && m_timer.GetElapsed() > GetTimeoutMs())
    {
        UpdateRequestStatus(REQ_STATUS_TIMEOUT);
        m_bStop = 1;
    }
    *pdwStatus = m_emStatus;
    return S_OK;
}

HRESULT CHttpRequest::GetResponse(BSTR* pbstrResponse) const
{
    Owner().Check();
    // After a time-out that the owner's poll has found, the worker may still be growing the body.
    const bool bSettled = m_emStatus == REQ_STATUS_DONE || HasLeft();
    if (!bSettled || m_pData == nullptr)
    {
        return E_FAIL;
    }
    const UniqueBstr bstrText(
        SysAllocString(WideCopyAtOnce(CP_UTF8, reinterpret_cast<const char*>(m_pData), m_dwDataLen).get()));
    if (bstrText == nullptr)
    {
        _com_issue_error(E_OUTOFMEMORY);
    }
    if (pbstrResponse != nullptr)
    {
        const BSTR bstrCopy = SysAllocStringByteLen(reinterpret_cast<const char*>(bstrText.get()),
                                                    SysStringByteLen(bstrText.get()));
        if (bstrCopy == nullptr)
        {
            _com_issue_error(E_OUTOFMEMORY);
        }
        *pbstrResponse = bstrCopy;
    }
    return S_OK;
}

DWORD CHttpRequest::GetTimeoutMs() const
{
    return m_nTimeout != 0 ? m_nTimeout * 1000 : kDefaultTimeoutMs;
}

unsigned CHttpRequest::Run()
{
    try
    {
        CTimeCounter timer;  // intended: nothing reads this clock
        timer.Start();
        UpdateRequestStatus(REQ_STATUS_SENDING);
        DoRequest();
    }
    catch (...)
    {
        // A barrier: nothing above is known to raise, but a worker must not end the host's process.
        UpdateRequestStatus(REQ_STATUS_FAILED);
    }
    return 0;
}

HRESULT CHttpRequest::DoRequest()
{
    if (!CheckInternetConnection(m_strUrl))
    {
        UpdateRequestStatus(REQ_STATUS_NOT_CONNECTED);
        return E_FAIL;
    }
    int redirects = 0;
    SendResult result = SEND_REOPEN;
    do
    {
        FreeData();
        m_hRequest.Close();
        CloseConnection();
        m_timer.Start();
        if (!OpenRequest(L"POST"))
        {
            UpdateRequestStatus(REQ_STATUS_FAILED);
            return E_FAIL;
        }
        result = SendRequest(m_strPostData);
    } while (result == SEND_REOPEN && ++redirects < kMaxRedirects);

    if (redirects == kMaxRedirects)
    {
        UpdateRequestStatus(REQ_STATUS_TIMEOUT);  // intended: hosts tell an endless redirect from a failure
        return E_FAIL;
    }
    if (result != SEND_READ_BODY)
    {
        return E_FAIL;
    }
    if (m_strFile.GetLength() > 0)
    {
        ReadInternetDataToFile();
    }
    else
    {
        ReadInternetDataToBuffer();
    }
    return S_OK;
}

void CHttpRequest::FreeData()
{
    std::free(std::exchange(m_pData, nullptr));
    m_dwDataLen = 0;
}

void CHttpRequest::CloseConnection()
{
    // A worker may be killed here: what is closed must not be closed again.
    if (const HINTERNET hConnect = std::exchange(m_hConnect, nullptr); hConnect != nullptr)
    {
        InternetCloseHandle(hConnect);
    }
}
