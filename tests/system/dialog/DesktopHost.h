// The side of a host that the user sees: a window of its own, and the platform's dialog over it, which a
// test finds and answers as the user would. For one thread, the host's, whose messages it dispatches.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "system/HttpRawHost.h"

class CDesktopHost
{
public:
    // What the window answers to WM_APP with a number: that number and this.
    static constexpr LRESULT kAnswer = 1000;

    // Shows the window.
    CDesktopHost();
    ~CDesktopHost();
    CDesktopHost(const CDesktopHost&) = delete;
    CDesktopHost& operator=(const CDesktopHost&) = delete;

    HWND Window() const { return m_hWnd; }
    void CloseWindow();
    // How often the window has painted itself. Any thread.
    int Paints() const { return m_cPaints; }
    // How often a dialog over the window has told it that it waits for the user.
    int Idles() const { return m_cIdles; }
    // The messages that the window was handed, in order, of those that a test asks about.
    const std::vector<UINT>& Messages() const { return m_messages; }

    // The platform's dialog over that window, or over any; null when this process shows none.
    static HWND FindDialog(HWND hOwner = nullptr);
    static std::wstring TitleOf(HWND hWnd);
    static std::wstring ClassOf(HWND hWnd);
    // The texts of a dialog's controls, one after the other.
    static std::vector<std::wstring> TextsOf(HWND hDialog);
    // As when the user presses it: the dialog hears of it from its queue.
    static void Press(HWND hDialog, WORD wControlId);
    static void Fill(HWND hDialog, int controlId, const std::wstring& text);

    // A host's loop: asks for the status, dispatches messages, until the condition, which is told the
    // status, comes true. False when it does not within kPatienceMs.
    static bool PumpUntil(CHttpRawHost& host, const std::function<bool(unsigned long status)>& condition);
    // The dialog of a running exchange, other than the previous one; null when the exchange ends without.
    static HWND AwaitDialog(CHttpRawHost& host, HWND hPrevious = nullptr, HWND hOwner = nullptr);
    // One turn of the loop without a poll: waits a moment for messages and dispatches what is there.
    static void Turn();

private:
    static LRESULT CALLBACK WindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT OnMessage(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_hWnd = nullptr;
    std::atomic<int> m_cPaints = 0;
    int m_cIdles = 0;
    std::vector<UINT> m_messages;
};
