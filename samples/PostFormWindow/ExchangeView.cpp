#include "ExchangeView.h"

#include "Controls.h"
#include "StatusText.h"

using kvHttp::Outcome;

namespace
{

void ShowStatus(HWND hWnd, const std::wstring& status, const std::wstring& meaning)
{
    SetControlText(hWnd, ID_STATUS, status);
    SetControlText(hWnd, ID_MEANING, meaning);
}

std::wstring MeaningOfNow(const kvHttp::Progress& progress, bool bFile)
{
    if (bFile && progress.outcome == Outcome::Done)
    {
        return kDoneInFileText;
    }
    // The helper knows of ends that the component has no status for.
    return kvHttp::OutcomeOf(progress.nStatus) == progress.outcome ? MeaningOf(progress.nStatus)
                                                                   : Describe(progress.outcome);
}

}  // namespace

void ShowNothingSent(HWND hWnd)
{
    ShowStatus(hWnd, NameOf(REQ_STATUS_IDLE), MeaningOf(REQ_STATUS_IDLE));
}

void ShowCannotStart(HWND hWnd, Outcome outcome)
{
    ShowStatus(hWnd, L"Not sent", Describe(outcome));
}

void ShowStarted(HWND hWnd)
{
    SetControlText(hWnd, ID_ANSWER, L"");
    SetControlText(hWnd, ID_BYTES, L"");
    SwitchControls(hWnd, ID_STOP, ID_POST);
    ShowProgressRunning(hWnd);
}

void ShowExchange(HWND hWnd, const kvHttp::Progress& progress, bool bFile)
{
    ShowStatus(hWnd, NameOf(progress.nStatus) + (L", " + FormatElapsed(progress.nElapsedMs)),
               MeaningOfNow(progress, bFile));
    if (bFile && progress.nStatus == REQ_STATUS_RECEIVING)
    {
        SetControlText(hWnd, ID_BYTES, FormatSize(progress.nFileBytes) + L" so far");
    }
}

void ShowEnded(HWND hWnd, const kvHttp::Answer& answer, bool bFile)
{
    SetControlText(hWnd, ID_BYTES, bFile && answer ? FormatSize(answer.nFileBytes) : std::wstring());
    SetControlText(hWnd, ID_ANSWER, WithFieldLineEnds(answer.strText));
    SwitchControls(hWnd, ID_POST, ID_STOP);
    ShowProgressEnded(hWnd, static_cast<bool>(answer));
}

void ShowStopping(HWND hWnd)
{
    ShowStatus(hWnd, L"Stopping", kStoppingText);
    UpdateWindow(hWnd);
}

void ShowStopped(HWND hWnd, const kvHttp::Progress& progress)
{
    ShowStatus(hWnd, L"Stopped after " + FormatElapsed(progress.nElapsedMs), kStoppedText);
    SetControlText(hWnd, ID_BYTES, L"");
    SwitchControls(hWnd, ID_POST, ID_STOP);
    ShowProgressEnded(hWnd, false);
}
