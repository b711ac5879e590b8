// The window: a dialog of the platform that stays open, so that tab, access keys, Enter and Escape do what
// users expect.
#pragma once

#include <windows.h>

#include <optional>

#include "CommandLine.h"
#include "Controls.h"
#include "Exchange.h"
#include "Layout.h"

class CMainWindow
{
public:
    CMainWindow(CExchange& exchange, const CommandLine& line) : m_exchange(exchange), m_line(line) {}
    ~CMainWindow() { DeleteObject(m_hFont); }
    CMainWindow(const CMainWindow&) = delete;
    CMainWindow& operator=(const CMainWindow&) = delete;

    bool Create();
    HWND Handle() const { return m_hWnd; }

private:
    static INT_PTR CALLBACK DialogProc(HWND hWnd, UINT nMessage, WPARAM wParam, LPARAM lParam);
    INT_PTR OnMessage(UINT nMessage, WPARAM wParam, LPARAM lParam);
    void OnInit();
    void OnCommand(int id);
    void OnPost();
    void OnPoll();
    void OnStop();
    void OnBrowse();
    void OnClose();
    void OnOtherScreen(int dpi, const RECT& place);

    void TakeSystemFont();
    INT_PTR ColorOf(HDC hContext, HWND hControl) const;
    void LimitSize(MINMAXINFO& info) const;
    void PlaceInitially();

    std::optional<Form> ReadForm();
    std::optional<Form> Refuse(ControlId id, const wchar_t* pszReason);

    // False when the window was closed meanwhile: nothing is left to be shown then.
    bool ReleaseExchange();

    CExchange& m_exchange;
    const CommandLine m_line;
    HWND m_hWnd = nullptr;
    HFONT m_hFont = nullptr;
    int m_dpi = SystemDpi();
    std::optional<CLayout> m_layout;
    bool m_bReleasing = false;
    bool m_bCloseAsked = false;
};
