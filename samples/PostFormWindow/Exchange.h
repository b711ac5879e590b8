// The component as this host uses it: one object for all posts, until one has to be given up.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "kvHttp/HttpRaw.h"

struct Form
{
    std::wstring strUrl;
    std::wstring strData;
    std::wstring strFile;  // empty: the answer stays in memory
    unsigned long nTimeout = 0;
};

class CExchange
{
public:
    CExchange() = default;
    ~CExchange() { Release(); }
    CExchange(const CExchange&) = delete;
    CExchange& operator=(const CExchange&) = delete;

    // Makes the component where there is none yet.
    HRESULT Prepare();

    // Posts the form; the platform's error dialog will appear over the window.
    HRESULT Start(HWND hWndParent, const Form& form);

    // To be called several times a second while the exchange runs: this enforces the time-out. Once it is
    // over, its status stays as it is.
    void Poll();

    // Ends a running exchange. This thread's messages are dispatched until the worker has gone.
    void Release();

    unsigned long Status() const { return m_status; }
    bool IsRunning() const { return m_bRunning; }
    ULONGLONG ElapsedMs() const { return (m_bRunning ? GetTickCount64() : m_end) - m_begin; }

    // Empty where there is no text, which holds for an answer in a file and for one without a byte.
    std::wstring TakeAnswer();

    bool HasFile() const { return !m_strFile.empty(); }

    // The bytes in the target file so far. Nothing when there is no such file.
    std::optional<ULONGLONG> FileSize() const;

private:
    IHttpRaw* m_pHttpRaw = nullptr;
    std::wstring m_strFile;
    unsigned long m_status = REQ_STATUS_IDLE;
    ULONGLONG m_begin = 0;
    ULONGLONG m_end = 0;
    bool m_bRunning = false;
};
