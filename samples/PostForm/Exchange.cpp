#include "Exchange.h"

#include <cwchar>

#include "Output.h"

namespace
{

constexpr DWORD kPollMs = 20;
constexpr ULONGLONG kProgressStep = 1024 * 1024;

// The time since the exchange began, at the head of each line.
void PrintTimed(ULONGLONG begin, const std::wstring& text)
{
    const ULONGLONG elapsed = GetTickCount64() - begin;
    wchar_t szTime[40] = {};
    std::swprintf(szTime, sizeof(szTime) / sizeof(szTime[0]), L"%5llu.%03llu s  ", elapsed / 1000,
                  elapsed % 1000);
    Print(szTime + text + L"\n");
}

// The component holds the file alone while it writes: only the size can be asked for.
ULONGLONG SizeOf(const std::wstring& file)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (file.empty() || !GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data))
    {
        return 0;
    }
    return (ULONGLONG{data.nFileSizeHigh} << 32) + data.nFileSizeLow;
}

// The queue must not rest while an exchange runs: the platform's error dialog belongs to a window of
// this thread.
void PumpMessages()
{
    MsgWaitForMultipleObjects(0, nullptr, FALSE, kPollMs, QS_ALLINPUT);
    MSG msg = {};
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
    {
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
}

bool IsRunning(unsigned long status)
{
    return status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING;
}

}  // namespace

unsigned long RunExchange(IHttpRaw* pHttpRaw, const std::wstring& url, const std::wstring& data,
                          const std::wstring& file)
{
    const ULONGLONG begin = GetTickCount64();
    pHttpRaw->SetDownloadFile(file.c_str());
    // PostRequest writes REQ_STATUS_SENDING once the worker runs, over whatever that has reached by then.
    // An exchange that is over in that instant shows as a time-out; one with a server takes far longer.
    if (FAILED(pHttpRaw->PostRequest(url.c_str(), data.c_str())))
    {
        return REQ_STATUS_FAILED;
    }
    unsigned long shown = REQ_STATUS_IDLE;
    ULONGLONG nextProgress = kProgressStep;
    for (;;)
    {
        unsigned long status = REQ_STATUS_FAILED;
        pHttpRaw->GetRequestStatus(&status);
        if (status != shown)
        {
            PrintTimed(begin, L"status " + std::to_wstring(status) + L"  " + NameOf(status));
            shown = status;
        }
        const ULONGLONG size = status == REQ_STATUS_RECEIVING ? SizeOf(file) : 0;
        if (size >= nextProgress)
        {
            PrintTimed(begin, L"received  " + std::to_wstring(size) + L" bytes so far");
            nextProgress = size + kProgressStep;
        }
        if (!IsRunning(status))
        {
            return status;
        }
        PumpMessages();
    }
}

const wchar_t* NameOf(unsigned long status)
{
    switch (status)
    {
        case REQ_STATUS_HTTP_ERROR:
            return L"REQ_STATUS_HTTP_ERROR";
        case REQ_STATUS_IDLE:
            return L"REQ_STATUS_IDLE";
        case REQ_STATUS_FAILED:
            return L"REQ_STATUS_FAILED";
        case REQ_STATUS_NOT_CONNECTED:
            return L"REQ_STATUS_NOT_CONNECTED";
        case REQ_STATUS_SENDING:
            return L"REQ_STATUS_SENDING";
        case REQ_STATUS_RECEIVING:
            return L"REQ_STATUS_RECEIVING";
        case REQ_STATUS_TIMEOUT:
            return L"REQ_STATUS_TIMEOUT";
        case REQ_STATUS_DONE:
            return L"REQ_STATUS_DONE";
        default:
            return L"(a status without a name)";
    }
}

const wchar_t* AdviceFor(unsigned long status)
{
    switch (status)
    {
        case REQ_STATUS_HTTP_ERROR:
            return L"The server answered 400, 401, 404 or 405. Check the path of the URL, and whether that "
                   L"page takes this form without a login.";
        case REQ_STATUS_FAILED:
            return L"The server could not be reached, or broke off. Check that the URL is complete "
                   L"(http://host:port/path), that the host name is right and that the server runs.";
        case REQ_STATUS_NOT_CONNECTED:
            return L"This machine has no network connection, or the error dialog was cancelled. Connect it, "
                   L"or accept the dialog, and try again.";
        case REQ_STATUS_TIMEOUT:
            return L"The exchange took too long, or was redirected in a circle. Try a longer --timeout; with "
                   L"--file, check also that the file can be written there.";
        default:
            return L"Try again.";
    }
}
