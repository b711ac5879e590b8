// The sample with a window, as its user has it: a process, what its controls show, and input that arrives in
// its queue as from keyboard and mouse.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "PostFormWindow/Controls.h"

class CSampleWindow
{
public:
    // Starts it and waits for its window: its own, or the box with which it refuses to start.
    explicit CSampleWindow(const std::vector<std::wstring>& arguments);
    // Ends the process when the test has not.
    ~CSampleWindow();
    CSampleWindow(const CSampleWindow&) = delete;
    CSampleWindow& operator=(const CSampleWindow&) = delete;

    HWND Handle() const { return m_hWnd; }
    HWND Control(int id) const { return GetDlgItem(m_hWnd, id); }
    std::wstring Text(int id) const { return TextOf(Control(id)); }
    bool IsEnabled(int id) const { return IsWindowEnabled(Control(id)) != FALSE; }

    // False when it does not come true in time.
    bool Await(const std::function<bool()>& condition) const;
    // The same for the status line.
    bool AwaitStatus(const std::wstring& begin) const;

    // Of the controls, 0 where it is nowhere.
    int Focus() const;
    void SetText(int id, const std::wstring& text) const;
    void Click(int id) const;
    void PressKey(WORD key) const;
    // With Alt held.
    void PressAccessKey(wchar_t letter) const;
    // As the platform does with a window that comes onto a screen of that resolution.
    void MoveToScreen(int dpi, const RECT& place) const;
    void Close() const { PostMessageW(m_hWnd, WM_CLOSE, 0, 0); }

    // Whether its thread takes messages, now.
    bool IsResponsive() const;
    // Nothing when it does not end in time.
    std::optional<DWORD> AwaitExit() const;

    // A dialog of that process over its window, or none.
    HWND FindDialog() const;

    static std::wstring TextOf(HWND hWnd);
    static std::vector<HWND> ChildrenOf(HWND hWnd);

private:
    HWND FindWindowBut(HWND hKnown) const;

    PROCESS_INFORMATION m_process = {};
    HWND m_hWnd = nullptr;
};
