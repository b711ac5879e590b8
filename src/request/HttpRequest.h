// One HTTP POST exchange. The component hands over its settings and starts the worker; the worker opens and
// sends the request, follows redirects, and reads the answer into memory or into a file; the component
// polls the status and takes the answer. The object is reused: each start is a fresh exchange with the
// settings of that moment. Nothing is ever thrown out of the worker: the outcome is the status.
//
// Everything is for the owner's thread, the one that made the object, unless it is named as the worker's.
// Settings may be handed over only while no worker is inside (HasLeft). From the start on the threads share:
//   m_hRequest  opened, used and closed by the worker; taken away by the owner (CRequestHandle)
//   m_emStatus  written by both, the last one wins; read by both
//   m_bStop     set by both to stop the reading; cleared by the worker when a read begins
//   m_timer     written by the worker; read by both
//   the answer  the worker's until the status is REQ_STATUS_DONE or the worker has left, then the owner's
// Everything else belongs to the worker until it has left.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>

#include "base/StringEx.h"
#include "base/TimeCounter.h"
#include "base/UrlComponents.h"
#include "kvHttp/HttpRaw.h"
#include "request/RequestHandle.h"
#include "request/RequestSettings.h"
#include "request/Thread.h"
#include "request/Verdict.h"

// The security flags that the user accepted in an error dialog; every new request gets them, for the
// life of the process.
extern std::atomic<DWORD> g_dwSecurityFlags;

class CHttpRequest : public Qel::CThread
{
public:
    // The session handle is borrowed. Whether the session uses a proxy is only traced.
    explicit CHttpRequest(HINTERNET hSession, bool bUsesProxy = false);
    // Abandons the exchange and waits for the worker, dispatching messages (CThread::WaitThreadExit).
    ~CHttpRequest() override;
    CHttpRequest(const CHttpRequest&) = delete;
    CHttpRequest& operator=(const CHttpRequest&) = delete;

    // Takes everything over for the next exchange. E_OUTOFMEMORY when a text could not be copied; then no
    // exchange may be started.
    HRESULT TakeSettings(const CRequestSettings& settings);

    // E_INVALIDARG, and nothing changed, when lpszUrl is null; E_OUTOFMEMORY when a text could not be
    // copied. A null lpszPostData counts as empty. A URL that cannot be split is found out when the
    // exchange starts.
    HRESULT SetUrl(const wchar_t* lpszUrl, const wchar_t* lpszPostData);

    // The file that the answer goes to; empty: keep it in memory. E_INVALIDARG, and nothing changed, when
    // lpszFile is null; E_OUTOFMEMORY when the path could not be copied.
    HRESULT SetFile(const wchar_t* lpszFile);

    // The window over which error dialogs appear; not checked here.
    void SetParentWnd(HWND hWndParent);
    // That window, or the desktop's when it is not set or has gone. Worker's thread.
    HWND GetParentWnd() const;

    // True when a new exchange may be started on this object. While the status is final the worker is given
    // a moment to leave (AwaitLeaveBriefly); otherwise it is not waited for.
    bool IsIdle() const;

    // Restarts the clock and starts the worker; false when no thread could be created.
    bool StartWorker();

    // Takes the request handle away from a running exchange. The worker ends soon, and has no effect any more
    // but on what is its own: it sends nothing, asks the user nothing, and touches no file but one that it
    // has made. Does not wait.
    void Abandon();

    // Traces and stores the status. Either thread.
    void UpdateRequestStatus(HttpRequestStatus emStatus);

    // Enforces the time-out while the exchange runs, then stores the status. Always S_OK.
    HRESULT GetStatus(unsigned long* pdwStatus);

    // Stores a fresh BSTR of the answer's UTF-8 text in *pbstrResponse (which may be null) for the
    // caller to free. E_FAIL, and nothing stored, when no answer is in memory or the worker may still
    // change it. Raises _com_error with E_OUTOFMEMORY when the text cannot be allocated.
    HRESULT GetResponse(BSTR* pbstrResponse) const;

    // In milliseconds. Either thread.
    DWORD GetTimeoutMs() const;

    // Worker's thread.
    unsigned Run() override;

private:
    // All on the worker's thread.
    HRESULT DoRequest();

    bool CheckInternetConnection(const wchar_t* lpszUrl) const;
    // Intended: the verb is always "POST", whatever is given.
    bool OpenRequest(const wchar_t* lpszVerb);
    SendResult SendRequest(const wchar_t* lpszPostData);
    void SetOption(DWORD dwOption, DWORD dwValue) const;
    // 0 when they cannot be read, or the exchange is abandoned.
    DWORD GetSecurityFlags() const;
    void ApplyTimeouts() const;

    SendResult HandleHttpStatus(DWORD dwHttpStatusCode);
    SendResult HandleLastError(DWORD dwError);
    SendResult Carry(const CVerdict& verdict, DWORD dwError);
    // Intended: the dialog is always shown with the same flags, whatever is given.
    SendResult PopIEErrorDlg(DWORD dwError, DWORD dwFlags);
    // Takes over the target of a redirect; nothing changes when the answer names none.
    void UpdateLocation();

    int QueryStatusCode() const;
    void ReadInternetDataToBuffer();
    void ReadInternetDataToFile();
    template <typename Take>
    HttpRequestStatus ReadChunks(Take take);
    void ReportReadEnd(HttpRequestStatus emEnd);
    bool AppendToBuffer(const BYTE* pChunk, DWORD dwSize, DWORD dwTotal);
    void TraceResponse() const;

    bool IsStopping() const { return m_bStop != 0 || m_hRequest.IsAbandoned(); }
    void FreeData();
    void CloseConnection();

    const HINTERNET m_hSession;  // borrowed, never closed here
    HINTERNET m_hConnect = nullptr;
    CRequestHandle m_hRequest;
    CStringEx m_strUrl;
    CStringEx m_strPostData;
    CStringEx m_strReserved;  // intended: no one uses it
    CUrlComponents m_url;
    DWORD m_dwDataLen = 0;    // bytes received into the buffer or the file
    BYTE* m_pData = nullptr;  // malloc family, NUL-terminated
    CTimeCounter m_timer;
    std::atomic<HttpRequestStatus> m_emStatus{REQ_STATUS_IDLE};
    std::atomic<LONG> m_bStop{0};
    CStringEx m_strFile;
    HWND m_hWndParent = nullptr;
    HWND m_hWnd = nullptr;               // intended: nothing creates it, but it would be destroyed here
    unsigned long m_nTimeout = 0;        // in seconds; 0 means 60
    unsigned long m_bTraceResponse = 1;  // nonzero: an answer kept in memory is traced
    const bool m_bUsesProxy;
};
