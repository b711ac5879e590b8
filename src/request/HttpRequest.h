// One HTTP POST exchange. The component fills in the inputs and starts the worker; the worker opens and
// sends the request, follows redirects, and reads the answer into memory or into a file; the component
// polls the status and takes the answer. The object is reused: each start is a fresh exchange with the
// inputs of that moment. Nothing is ever thrown out of the worker: the outcome is the status.
//
// Everything is for the owner's thread, unless it is named as the worker's. The inputs may be written
// only while no worker is inside (HasLeft); from then on the two threads share the status, the clock,
// the stop flag and the request handle.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>

#include "base/StringEx.h"
#include "base/TimeCounter.h"
#include "base/UrlComponents.h"
#include "kvHttp/HttpRaw.h"
#include "request/Thread.h"

// The security flags that the user accepted in an error dialog; every new request gets them, for the
// life of the process.
extern std::atomic<DWORD> g_dwSecurityFlags;

// What an attempt asks for next.
enum SendResult
{
    SEND_READ_BODY = 0,
    SEND_STOP = 1,    // nothing to read; the status has been set
    SEND_AGAIN = 2,   // on the same request handle
    SEND_REOPEN = 3,  // the URL has changed
};

class CHttpRequest : public Qel::CThread
{
public:
    // The session handle is borrowed.
    explicit CHttpRequest(HINTERNET hSession);
    // Stops the worker and waits for it, dispatching messages (CThread::WaitThreadExit).
    ~CHttpRequest() override;
    CHttpRequest(const CHttpRequest&) = delete;
    CHttpRequest& operator=(const CHttpRequest&) = delete;

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

    // True when a new exchange may be started on this object. A worker whose exchange has ended is given
    // a moment to leave; one whose exchange still runs is not waited for.
    bool IsIdle() const;

    // Restarts the clock and starts the worker; false when no thread could be created.
    bool StartWorker();

    // Asks a running exchange to end: raises the stop flag and closes the request handle, which makes a
    // blocked call of the worker return. Does not wait.
    void Abandon();

    // Traces and stores the status. Either thread.
    void UpdateRequestStatus(HttpRequestStatus emStatus);

    // Enforces the time-out while the exchange runs, then stores the status. Always S_OK.
    HRESULT GetStatus(unsigned long* pdwStatus);

    // Stores a fresh BSTR of the answer's UTF-8 text in *pbstrResponse (which may be null) for the
    // caller to free. E_FAIL, and nothing stored, when no answer is in memory or the worker may still
    // change it. Raises _com_error with E_OUTOFMEMORY when the text cannot be allocated.
    HRESULT GetResponse(BSTR* pbstrResponse) const;

    // In milliseconds.
    DWORD GetTimeoutMs() const;

    // Worker's thread.
    unsigned Run() override;

private:
    // All on the worker's thread.
    HRESULT DoRequest();

    bool CheckInternetConnection(const wchar_t* lpszUrl);
    // Intended: the verb is always "POST", whatever is given.
    bool OpenRequest(const wchar_t* lpszVerb);
    SendResult SendRequest(HINTERNET hRequest, const wchar_t* lpszPostData);
    void ApplySecurityFlags(HINTERNET hRequest) const;
    void ApplyTimeouts(HINTERNET hRequest) const;

    SendResult HandleHttpStatus(HINTERNET hRequest, DWORD dwHttpStatusCode);
    SendResult HandleLastError(HINTERNET hRequest, DWORD dwError);
    // Intended: the dialog is always shown with the same flags, whatever is given.
    SendResult PopIEErrorDlg(HINTERNET hRequest, DWORD dwError, DWORD dwFlags);
    // Takes over the target of a redirect; nothing changes when the answer names none.
    void UpdateLocation();

    int QueryStatusCode(HINTERNET hRequest) const;
    void ReadInternetDataToBuffer(HINTERNET hRequest);
    void ReadInternetDataToFile(HINTERNET hRequest);
    bool AppendToBuffer(const BYTE* pChunk, DWORD dwSize, DWORD dwTotal);
    void TraceResponse() const;

    bool IsStopping() const { return m_bStop != 0 || m_bAbandoned; }
    void FreeData();
    void CloseRequest();
    void CloseConnection();

    const HINTERNET m_hSession;  // borrowed, never closed here
    HINTERNET m_hConnect = nullptr;
    std::atomic<HINTERNET> m_hRequest{nullptr};  // whoever takes it out of here closes it
    CStringEx m_strUrl;
    CStringEx m_strPostData;
    CStringEx m_strReserved;  // intended: no one uses it
    CUrlComponents m_url;
    DWORD m_dwDataLen = 0;    // bytes received into the buffer or the file
    BYTE* m_pData = nullptr;  // malloc family, NUL-terminated
    CTimeCounter m_timer;
    std::atomic<HttpRequestStatus> m_emStatus{REQ_STATUS_IDLE};
    std::atomic<LONG> m_bStop{0};  // asks the reading loops to stop; cleared when a read begins
    CStringEx m_strFile;
    HWND m_hWndParent = nullptr;
    HWND m_hWnd = nullptr;  // intended: nothing creates it, but it would be destroyed here

public:
    unsigned long m_nTimeout = 0;        // in seconds; 0 means 60
    unsigned long m_bTraceResponse = 1;  // nonzero: an answer kept in memory is traced

private:
    std::atomic<bool> m_bAbandoned{false};  // no new request handle may stay open
};
