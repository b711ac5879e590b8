#include "MainWindow.h"

#include <commdlg.h>

#include <cwchar>
#include <vector>

#include "ExchangeView.h"
using kvHttp::Outcome;

namespace
{

constexpr UINT_PTR kClockTimer = 1;
constexpr UINT kClockMs = 50;
constexpr unsigned long kMaxTimeout = 86400;
constexpr DWORD kLongestPath = 32768;

// WM_DPICHANGED, which the headers have for newer systems only.
constexpr UINT kDpiChanged = 0x02E0;

// The platform's smallest dialog, without controls.
struct EmptyDialog
{
    DLGTEMPLATE head;
    WORD nMenu;
    WORD nClass;
    WORD nTitle;
};

alignas(DWORD) constexpr EmptyDialog kEmptyDialog = {
    {WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, 0, 0, 0, 0, 0, 0}, 0, 0, 0};

}  // namespace

bool CMainWindow::Create()
{
    return CreateDialogIndirectParamW(GetModuleHandleW(nullptr), &kEmptyDialog.head, nullptr, DialogProc,
                                      reinterpret_cast<LPARAM>(this)) != nullptr;
}

INT_PTR CALLBACK CMainWindow::DialogProc(HWND hWnd, UINT nMessage, WPARAM wParam, LPARAM lParam)
{
    if (nMessage == WM_INITDIALOG)
    {
        SetWindowLongPtrW(hWnd, DWLP_USER, lParam);
        reinterpret_cast<CMainWindow*>(lParam)->m_hWnd = hWnd;
    }
    CMainWindow* const pThis = reinterpret_cast<CMainWindow*>(GetWindowLongPtrW(hWnd, DWLP_USER));
    return pThis != nullptr ? pThis->OnMessage(nMessage, wParam, lParam) : FALSE;
}

INT_PTR CMainWindow::OnMessage(UINT nMessage, WPARAM wParam, LPARAM lParam)
{
    switch (nMessage)
    {
        case WM_INITDIALOG:
            OnInit();
            return FALSE;  // the focus has been set
        case WM_COMMAND:
            OnCommand(LOWORD(wParam));
            return TRUE;
        case WM_TIMER:
            OnTick();
            return TRUE;
        case WM_SIZE:
            m_layout->Arrange();
            return TRUE;
        case WM_GETMINMAXINFO:
            LimitSize(*reinterpret_cast<MINMAXINFO*>(lParam));
            return TRUE;
        case kDpiChanged:
            OnOtherScreen(HIWORD(wParam), *reinterpret_cast<const RECT*>(lParam));
            return TRUE;
        case WM_SETTINGCHANGE:
            TakeSystemFont();
            return TRUE;
        case WM_CTLCOLORSTATIC:
            return ColorOf(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
        case WM_CLOSE:
            OnClose();
            return TRUE;
        case WM_DESTROY:
            PostQuitMessage(0);
            return TRUE;
        default:
            return FALSE;
    }
}

void CMainWindow::OnInit()
{
    SetWindowTextW(m_hWnd, L"Post a form");
    m_client.SetParentWnd(m_hWnd);
    m_client.OnChange([this](const kvHttp::Progress& progress) { OnChange(progress); });
    CreateControls(m_hWnd);
    TakeSystemFont();
    PlaceInitially();
    SetControlText(m_hWnd, ID_URL, m_line.strUrl);
    SetControlText(m_hWnd, ID_DATA, m_line.strData);
    SetControlText(m_hWnd, ID_FILE, m_line.strFile);
    SetControlText(m_hWnd, ID_TIMEOUT, m_line.strTimeout);
    ShowNothingSent(m_hWnd);
    SetFocus(GetDlgItem(m_hWnd, ID_URL));
}

void CMainWindow::OnCommand(int id)
{
    if (m_bWaiting)
    {
        return;  // the component keeps users' input back, but not that of programs
    }
    switch (id)
    {
        case ID_POST:
            OnPost();
            break;
        case ID_STOP:
            m_client.Cancel();
            break;
        case ID_BROWSE:
            OnBrowse();
            break;
        default:
            break;
    }
}

void CMainWindow::OnPost()
{
    // Enter comes here even while the button is disabled.
    const Outcome before = m_client.State().outcome;
    const std::optional<kvHttp::Form> form = before == Outcome::Running ? std::nullopt : ReadForm();
    if (!form)
    {
        return;
    }
    // The client waits for the file of an exchange that was given up.
    if (before == Outcome::TimedOut || before == Outcome::Cancelled)
    {
        ShowStopping(m_hWnd);
    }
    m_bFile = !form->strFile.empty();
    m_bWaiting = true;
    const Outcome outcome = m_client.Start(*form);
    m_bWaiting = false;
    if (m_bCloseAsked)
    {
        EndClient();
    }
    else if (outcome != Outcome::Running)
    {
        ShowCannotStart(m_hWnd, outcome);
    }
    else
    {
        ShowStarted(m_hWnd);
        SetTimer(m_hWnd, kClockTimer, kClockMs, nullptr);
    }
}

void CMainWindow::OnChange(const kvHttp::Progress& progress)
{
    ShowExchange(m_hWnd, progress, m_bFile);
    if (progress.outcome == Outcome::Running)
    {
        return;
    }
    KillTimer(m_hWnd, kClockTimer);
    if (progress.outcome == Outcome::Cancelled)
    {
        ShowStopped(m_hWnd, progress);
    }
    else
    {
        ShowEnded(m_hWnd, m_client.TakeAnswer(), m_bFile);
    }
}

// The time goes on between two changes.
void CMainWindow::OnTick()
{
    const kvHttp::Progress progress = m_client.State();
    if (progress.outcome == Outcome::Running)
    {
        ShowExchange(m_hWnd, progress, m_bFile);
    }
}

void CMainWindow::OnClose()
{
    if (!IsWindowEnabled(m_hWnd))
    {
        return;  // a dialog over it wants its answer first
    }
    m_bCloseAsked = true;
    if (m_bWaiting)
    {
        m_client.Close();  // so that a post that waits for the last one does not begin
    }
    else
    {
        EndClient();
    }
}

// Of another resolution, where the platform wants the window at that place.
void CMainWindow::OnOtherScreen(int dpi, const RECT& place)
{
    m_dpi = dpi;
    TakeSystemFont();
    SetWindowPos(m_hWnd, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

// The window stays until the component's workers have gone, and posts its WM_QUIT only afterwards.
void CMainWindow::EndClient()
{
    KillTimer(m_hWnd, kClockTimer);
    ShowStopping(m_hWnd);
    m_bWaiting = true;
    m_client.Close();
    m_bWaiting = false;
    DestroyWindow(m_hWnd);
}

void CMainWindow::OnBrowse()
{
    std::vector<wchar_t> path(kLongestPath);
    GetControlText(m_hWnd, ID_FILE).copy(path.data(), path.size() - 1);
    OPENFILENAMEW choice = {};
    choice.lStructSize = sizeof(choice);
    choice.hwndOwner = m_hWnd;
    choice.lpstrFilter = L"All files\0*.*\0";
    choice.lpstrFile = path.data();
    choice.nMaxFile = kLongestPath;
    choice.lpstrTitle = L"The file for the answer";
    choice.Flags =
        OFN_EXPLORER | OFN_PATHMUSTEXIST | OFN_OVERWRITEPROMPT | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
    if (GetSaveFileNameW(&choice))
    {
        SetControlText(m_hWnd, ID_FILE, path.data());
    }
}

std::optional<kvHttp::Form> CMainWindow::ReadForm()
{
    kvHttp::Form form;
    form.strUrl = GetControlText(m_hWnd, ID_URL);
    form.strData = GetControlText(m_hWnd, ID_DATA);
    form.strFile = GetControlText(m_hWnd, ID_FILE);
    const unsigned long nTimeout = std::wcstoul(GetControlText(m_hWnd, ID_TIMEOUT).c_str(), nullptr, 10);
    if (form.strUrl.empty())
    {
        return Refuse(ID_URL, L"Enter the URL to post to: http://host:port/path");
    }
    if (form.strData.empty())
    {
        return Refuse(ID_DATA, L"Enter the form data: name=value&name=value");
    }
    if (nTimeout < 1 || nTimeout > kMaxTimeout)
    {
        return Refuse(ID_TIMEOUT, L"Enter a time-out of 1 to 86400 seconds.");
    }
    m_client.SetTimeout(std::chrono::seconds(nTimeout));
    return form;
}

std::optional<kvHttp::Form> CMainWindow::Refuse(ControlId id, const wchar_t* pszReason)
{
    SetControlText(m_hWnd, ID_MEANING, pszReason);
    const HWND hControl = GetDlgItem(m_hWnd, id);
    SendMessageW(m_hWnd, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(hControl), TRUE);
    return std::nullopt;
}

void CMainWindow::TakeSystemFont()
{
    NONCLIENTMETRICSW metrics = {};
    metrics.cbSize = sizeof(metrics);
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, metrics.cbSize, &metrics, 0);
    metrics.lfMessageFont.lfHeight = MulDiv(metrics.lfMessageFont.lfHeight, m_dpi, SystemDpi());
    const HFONT hFont = CreateFontIndirectW(&metrics.lfMessageFont);
    SetControlFont(m_hWnd, hFont);
    DeleteObject(m_hFont);
    m_hFont = hFont;
    m_layout.emplace(m_hWnd, m_hFont, m_dpi);
    m_layout->Arrange();
}

// The answer can only be read, and is grey for that reason as a rule; on white it reads better.
INT_PTR CMainWindow::ColorOf(HDC hContext, HWND hControl) const
{
    if (hControl != GetDlgItem(m_hWnd, ID_ANSWER))
    {
        return FALSE;
    }
    SetTextColor(hContext, GetSysColor(COLOR_WINDOWTEXT));
    SetBkColor(hContext, GetSysColor(COLOR_WINDOW));
    return reinterpret_cast<INT_PTR>(GetSysColorBrush(COLOR_WINDOW));
}

void CMainWindow::LimitSize(MINMAXINFO& info) const
{
    if (m_layout)
    {
        const SIZE size = m_layout->MinimumSize();
        info.ptMinTrackSize = {size.cx, size.cy};
    }
}

// In the middle of the work area.
void CMainWindow::PlaceInitially()
{
    const SIZE size = m_layout->DefaultSize();
    RECT area = {};
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
    SetWindowPos(m_hWnd, nullptr, (area.left + area.right - size.cx) / 2,
                 (area.top + area.bottom - size.cy) / 2, size.cx, size.cy, SWP_NOZORDER);
}
