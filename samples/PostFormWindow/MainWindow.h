// The window: a dialog of the platform that stays open, so that tab, access keys, Enter and Escape do what
// users expect.
#pragma once

#include <windows.h>

#include <optional>

#include "CommandLine.h"
#include "Controls.h"
#include "kvHttp/Client.h"
#include "Layout.h"

class CMainWindow
{
public:
    // The client must outlive the window.
    CMainWindow(kvHttp::CClient& client, const CommandLine& line) : m_client(client), m_line(line) {}
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
    void OnChange(const kvHttp::Progress& progress);
    void OnTick();
    void OnBrowse();
    void OnClose();
    void OnOtherScreen(int dpi, const RECT& place);

    void TakeSystemFont();
    INT_PTR ColorOf(HDC hContext, HWND hControl) const;
    void LimitSize(MINMAXINFO& info) const;
    void PlaceInitially();

    // The time-out is set in the client.
    std::optional<kvHttp::Form> ReadForm();
    std::optional<kvHttp::Form> Refuse(ControlId id, const wchar_t* pszReason);
    void EndClient();

    kvHttp::CClient& m_client;
    const CommandLine m_line;
    HWND m_hWnd = nullptr;
    HFONT m_hFont = nullptr;
    int m_dpi = SystemDpi();
    std::optional<CLayout> m_layout;
    bool m_bFile = false;     // the answer goes to one
    bool m_bWaiting = false;  // messages are dispatched in a call of the client
    bool m_bCloseAsked = false;
};
