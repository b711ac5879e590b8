// The controls of the window, in tab order.
#pragma once

#include <windows.h>

#include <string>

enum ControlId : int
{
    ID_POST = IDOK,      // Enter
    ID_STOP = IDCANCEL,  // Escape
    ID_URL_LABEL = 100,
    ID_URL,
    ID_DATA_LABEL,
    ID_DATA,
    ID_FILE_LABEL,
    ID_FILE,
    ID_BROWSE,
    ID_TIMEOUT_LABEL,
    ID_TIMEOUT,
    ID_SECONDS,
    ID_STATUS_LABEL,
    ID_STATUS,
    ID_MEANING,
    ID_PROGRESS_LABEL,
    ID_PROGRESS,
    ID_BYTES,
    ID_ANSWER_LABEL,
    ID_ANSWER
};

void CreateControls(HWND hWnd);

void SetControlFont(HWND hWnd, HFONT hFont);

std::wstring GetControlText(HWND hWnd, ControlId id);

// Leaves a control alone that shows the text already, so that nothing flickers.
void SetControlText(HWND hWnd, ControlId id, const std::wstring& text);

// Enables the one and disables the other, which must not keep the focus.
void SwitchControls(HWND hWnd, ControlId on, ControlId off);

// A moving bar while an exchange runs: nobody knows how much there is to come. Afterwards a full one or an
// empty one.
void ShowProgressRunning(HWND hWnd);
void ShowProgressEnded(HWND hWnd, bool bComplete);
