#include "ExchangeView.h"

#include <cwchar>

#include "Controls.h"
#include "StatusText.h"

namespace
{

void ShowStatus(HWND hWnd, const std::wstring& status, const std::wstring& meaning)
{
    SetControlText(hWnd, ID_STATUS, status);
    SetControlText(hWnd, ID_MEANING, meaning);
}

std::wstring MeaningOfNow(const CExchange& exchange)
{
    const unsigned long status = exchange.Status();
    if (exchange.HasFile() && status == REQ_STATUS_RECEIVING && !exchange.FileSize())
    {
        return kNoFileText;
    }
    if (exchange.HasFile() && status == REQ_STATUS_DONE)
    {
        return kDoneInFileText;
    }
    return MeaningOf(status);
}

}  // namespace

void ShowNothingSent(HWND hWnd)
{
    ShowStatus(hWnd, NameOf(REQ_STATUS_IDLE), MeaningOf(REQ_STATUS_IDLE));
}

void ShowCannotStart(HWND hWnd, HRESULT hr)
{
    wchar_t szResult[20] = {};
    std::swprintf(szResult, sizeof(szResult) / sizeof(szResult[0]), L"0x%08lX",
                  static_cast<unsigned long>(hr));
    ShowStatus(hWnd, L"Not sent", std::wstring(L"The component reports ") + szResult + L".");
}

void ShowStarted(HWND hWnd)
{
    SetControlText(hWnd, ID_ANSWER, L"");
    SetControlText(hWnd, ID_BYTES, L"");
    SwitchControls(hWnd, ID_STOP, ID_POST);
    ShowProgressRunning(hWnd);
}

void ShowExchange(HWND hWnd, const CExchange& exchange)
{
    ShowStatus(hWnd, NameOf(exchange.Status()) + (L", " + FormatElapsed(exchange.ElapsedMs())),
               MeaningOfNow(exchange));
    const std::optional<ULONGLONG> size = exchange.FileSize();
    if (exchange.Status() == REQ_STATUS_RECEIVING && size)
    {
        SetControlText(hWnd, ID_BYTES, FormatSize(*size) + L" so far");
    }
}

void ShowEnded(HWND hWnd, CExchange& exchange)
{
    const bool bDone = exchange.Status() == REQ_STATUS_DONE;
    const std::optional<ULONGLONG> size = exchange.FileSize();
    SetControlText(hWnd, ID_BYTES, bDone && size ? FormatSize(*size) : std::wstring());
    if (bDone)
    {
        SetControlText(hWnd, ID_ANSWER, WithFieldLineEnds(exchange.TakeAnswer()));
    }
    SwitchControls(hWnd, ID_POST, ID_STOP);
    ShowProgressEnded(hWnd, bDone);
}

void ShowStopping(HWND hWnd)
{
    ShowStatus(hWnd, L"Stopping", kStoppingText);
    UpdateWindow(hWnd);
}

void ShowStopped(HWND hWnd, const CExchange& exchange)
{
    ShowStatus(hWnd, L"Stopped after " + FormatElapsed(exchange.ElapsedMs()), kStoppedText);
    SetControlText(hWnd, ID_BYTES, L"");
    SwitchControls(hWnd, ID_POST, ID_STOP);
    ShowProgressEnded(hWnd, false);
}
