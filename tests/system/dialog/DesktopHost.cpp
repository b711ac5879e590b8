#include "system/dialog/DesktopHost.h"

#include <gtest/gtest.h>

namespace
{

constexpr wchar_t kClass[] = L"kvHttpDesktopHost";
constexpr DWORD kTurnMs = 5;

struct DialogSearch
{
    HWND hOwner;  // null: any
    HWND hDialog = nullptr;
};

BOOL CALLBACK KeepDialogOfThisProcess(HWND hWnd, LPARAM lParam)
{
    const auto pSearch = reinterpret_cast<DialogSearch*>(lParam);
    DWORD dwProcessId = 0;
    GetWindowThreadProcessId(hWnd, &dwProcessId);
    if (dwProcessId != GetCurrentProcessId() || !IsWindowVisible(hWnd) ||
        CDesktopHost::ClassOf(hWnd) != L"#32770" ||
        (pSearch->hOwner != nullptr && GetWindow(hWnd, GW_OWNER) != pSearch->hOwner))
    {
        return TRUE;
    }
    pSearch->hDialog = hWnd;
    return FALSE;
}

BOOL CALLBACK KeepText(HWND hWnd, LPARAM lParam)
{
    reinterpret_cast<std::vector<std::wstring>*>(lParam)->push_back(CDesktopHost::TitleOf(hWnd));
    return TRUE;
}

bool IsRunning(unsigned long status)
{
    return status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING;
}

}  // namespace

CDesktopHost::CDesktopHost()
{
    WNDCLASSW wc = {};
    wc.lpfnWndProc = WindowProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hbrBackground = GetSysColorBrush(COLOR_WINDOW);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = kClass;
    RegisterClassW(&wc);  // fails when an earlier host of the process has done it
    m_hWnd = CreateWindowExW(0, kClass, L"The host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 100, 100, 500, 400,
                             nullptr, nullptr, wc.hInstance, nullptr);
    EXPECT_NE(m_hWnd, nullptr) << "no window of the host: error " << GetLastError();
    SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    UpdateWindow(m_hWnd);
}

CDesktopHost::~CDesktopHost()
{
    CloseWindow();
}

void CDesktopHost::CloseWindow()
{
    if (IsWindow(m_hWnd))
    {
        SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, 0);
        DestroyWindow(m_hWnd);
    }
}

HWND CDesktopHost::FindDialog(HWND hOwner)
{
    DialogSearch search{hOwner};
    EnumWindows(KeepDialogOfThisProcess, reinterpret_cast<LPARAM>(&search));
    return search.hDialog;
}

std::wstring CDesktopHost::TitleOf(HWND hWnd)
{
    wchar_t szTitle[1024] = {};
    GetWindowTextW(hWnd, szTitle, 1024);
    return szTitle;
}

std::wstring CDesktopHost::ClassOf(HWND hWnd)
{
    wchar_t szClass[256] = {};
    GetClassNameW(hWnd, szClass, 256);
    return szClass;
}

std::vector<std::wstring> CDesktopHost::TextsOf(HWND hDialog)
{
    std::vector<std::wstring> texts;
    EnumChildWindows(hDialog, KeepText, reinterpret_cast<LPARAM>(&texts));
    return texts;
}

void CDesktopHost::Press(HWND hDialog, WORD wControlId)
{
    const HWND hControl = GetDlgItem(hDialog, wControlId);
    EXPECT_NE(hControl, nullptr) << "the dialog has no control " << wControlId;
    PostMessageW(hDialog, WM_COMMAND, MAKEWPARAM(wControlId, BN_CLICKED), reinterpret_cast<LPARAM>(hControl));
}

void CDesktopHost::Fill(HWND hDialog, int controlId, const std::wstring& text)
{
    const HWND hControl = GetDlgItem(hDialog, controlId);
    EXPECT_NE(hControl, nullptr) << "the dialog has no control " << controlId;
    SendMessageW(hControl, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

bool CDesktopHost::PumpUntil(CHttpRawHost& host, const std::function<bool(unsigned long status)>& condition)
{
    const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
    for (;;)
    {
        unsigned long status = 0;
        EXPECT_EQ(host->GetRequestStatus(&status), S_OK);
        if (condition(status))
        {
            return true;
        }
        if (GetTickCount64() >= deadline)
        {
            return false;
        }
        Turn();
    }
}

HWND CDesktopHost::AwaitDialog(CHttpRawHost& host, HWND hPrevious, HWND hOwner)
{
    HWND hDialog = nullptr;
    PumpUntil(host,
              [&](unsigned long status)
              {
                  const HWND hFound = FindDialog(hOwner);
                  hDialog = hFound != hPrevious ? hFound : nullptr;
                  return hDialog != nullptr || !IsRunning(status);
              });
    return hDialog;
}

void CDesktopHost::Turn()
{
    MsgWaitForMultipleObjects(0, nullptr, FALSE, kTurnMs, QS_ALLINPUT);
    MSG msg = {};
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
    {
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
}

LRESULT CALLBACK CDesktopHost::WindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam)
{
    const auto pThis = reinterpret_cast<CDesktopHost*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    return pThis != nullptr ? pThis->OnMessage(hWnd, message, wParam, lParam)
                            : DefWindowProcW(hWnd, message, wParam, lParam);
}

LRESULT CDesktopHost::OnMessage(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
        case WM_PAINT:
        {
            ++m_cPaints;
            PAINTSTRUCT paint = {};
            BeginPaint(hWnd, &paint);
            EndPaint(hWnd, &paint);
            return 0;
        }
        case WM_ENTERIDLE:
            ++m_cIdles;
            return 0;
        case WM_COMMAND:
        case WM_TIMER:
        case WM_KEYDOWN:
            m_messages.push_back(message);
            return 0;
        case WM_APP:
            m_messages.push_back(message);
            return kAnswer + static_cast<LRESULT>(wParam);
        default:
            return DefWindowProcW(hWnd, message, wParam, lParam);
    }
}
