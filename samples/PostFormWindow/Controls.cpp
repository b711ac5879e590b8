#include "Controls.h"

#include <commctrl.h>

#include <cwchar>

namespace
{

struct Control
{
    ControlId id;
    const wchar_t* pszClass;
    const wchar_t* pszText;
    DWORD dwStyle;
};

constexpr DWORD kLabel = SS_LEFT;
constexpr DWORD kText = SS_LEFT | SS_NOPREFIX;
constexpr DWORD kField = WS_TABSTOP | ES_AUTOHSCROLL;
constexpr DWORD kLines = WS_TABSTOP | WS_VSCROLL | ES_MULTILINE | ES_AUTOVSCROLL;
constexpr DWORD kButton = WS_TABSTOP | BS_PUSHBUTTON;

// A label's access key leads to the control after it.
constexpr Control kControls[] = {
    {ID_URL_LABEL, WC_STATICW, L"&URL:", kLabel},
    {ID_URL, WC_EDITW, L"", kField},
    {ID_DATA_LABEL, WC_STATICW, L"Form &data:", kLabel},
    {ID_DATA, WC_EDITW, L"", kLines},
    {ID_FILE_LABEL, WC_STATICW, L"Target &file:", kLabel},
    {ID_FILE, WC_EDITW, L"", kField},
    {ID_BROWSE, WC_BUTTONW, L"...", kButton},
    {ID_TIMEOUT_LABEL, WC_STATICW, L"&Time-out:", kLabel},
    {ID_TIMEOUT, WC_EDITW, L"", kField | ES_NUMBER},
    {ID_SECONDS, WC_STATICW, L"seconds", kText},
    {ID_POST, WC_BUTTONW, L"&Post", WS_TABSTOP | BS_DEFPUSHBUTTON},
    {ID_STOP, WC_BUTTONW, L"&Stop", kButton | WS_DISABLED},
    {ID_STATUS_LABEL, WC_STATICW, L"Status:", kLabel},
    {ID_STATUS, WC_STATICW, L"", kText},
    {ID_MEANING, WC_STATICW, L"", kText},
    {ID_PROGRESS_LABEL, WC_STATICW, L"Progress:", kLabel},
    {ID_PROGRESS, PROGRESS_CLASSW, L"", 0},
    {ID_BYTES, WC_STATICW, L"", kText},
    {ID_ANSWER_LABEL, WC_STATICW, L"&Answer:", kLabel},
    {ID_ANSWER, WC_EDITW, L"", kLines | ES_READONLY},
};

constexpr WPARAM kTimeoutDigits = 5;
constexpr LPARAM kProgressStepMs = 30;

HMENU AsMenu(ControlId id)
{
    return reinterpret_cast<HMENU>(static_cast<INT_PTR>(id));
}

void SetMarquee(HWND hProgress, bool bMarquee)
{
    const LONG_PTR style = GetWindowLongPtrW(hProgress, GWL_STYLE);
    SetWindowLongPtrW(hProgress, GWL_STYLE, bMarquee ? style | PBS_MARQUEE : style & ~LONG_PTR{PBS_MARQUEE});
    SendMessageW(hProgress, PBM_SETMARQUEE, bMarquee, kProgressStepMs);
}

}  // namespace

void CreateControls(HWND hWnd)
{
    const INITCOMMONCONTROLSEX classes = {sizeof(classes), ICC_STANDARD_CLASSES | ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&classes);
    for (const Control& control : kControls)
    {
        const bool bEdit = std::wcscmp(control.pszClass, WC_EDITW) == 0;
        CreateWindowExW(bEdit ? WS_EX_CLIENTEDGE : 0, control.pszClass, control.pszText,
                        WS_CHILD | WS_VISIBLE | control.dwStyle, 0, 0, 0, 0, hWnd, AsMenu(control.id),
                        GetModuleHandleW(nullptr), nullptr);
    }
    SendDlgItemMessageW(hWnd, ID_TIMEOUT, EM_SETLIMITTEXT, kTimeoutDigits, 0);
    SendDlgItemMessageW(hWnd, ID_DATA, EM_SETLIMITTEXT, 0, 0);    // as much as there is room for
    SendDlgItemMessageW(hWnd, ID_ANSWER, EM_SETLIMITTEXT, 0, 0);  // likewise
}

void SetControlFont(HWND hWnd, HFONT hFont)
{
    for (const Control& control : kControls)
    {
        SendDlgItemMessageW(hWnd, control.id, WM_SETFONT, reinterpret_cast<WPARAM>(hFont), TRUE);
    }
}

std::wstring GetControlText(HWND hWnd, ControlId id)
{
    const HWND hControl = GetDlgItem(hWnd, id);
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(hControl)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(hControl, text.data(), static_cast<int>(text.size()))));
    return text;
}

void SetControlText(HWND hWnd, ControlId id, const std::wstring& text)
{
    if (GetControlText(hWnd, id) != text)
    {
        SetDlgItemTextW(hWnd, id, text.c_str());
    }
}

void SwitchControls(HWND hWnd, ControlId on, ControlId off)
{
    const HWND hOn = GetDlgItem(hWnd, on);
    const HWND hOff = GetDlgItem(hWnd, off);
    EnableWindow(hOn, TRUE);
    if (GetFocus() == hOff)
    {
        SendMessageW(hWnd, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(hOn), TRUE);
    }
    EnableWindow(hOff, FALSE);
}

void ShowProgressRunning(HWND hWnd)
{
    SetMarquee(GetDlgItem(hWnd, ID_PROGRESS), true);
}

void ShowProgressEnded(HWND hWnd, bool bComplete)
{
    const HWND hProgress = GetDlgItem(hWnd, ID_PROGRESS);
    SetMarquee(hProgress, false);
    SendMessageW(hProgress, PBM_SETPOS, bComplete ? 100 : 0, 0);
    // Under Wine the running piece stays where the position is what it was.
    InvalidateRect(hProgress, nullptr, TRUE);
}
