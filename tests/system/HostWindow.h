// A window of the host's thread that keeps which messages reach it. It is message-only, so that it needs
// no display.
#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <vector>

class CHostWindow
{
public:
    CHostWindow();
    ~CHostWindow();
    CHostWindow(const CHostWindow&) = delete;
    CHostWindow& operator=(const CHostWindow&) = delete;

    HWND Handle() const { return m_hWnd; }
    void Post(UINT message) const;
    void Post(const std::vector<UINT>& messages) const;

    // What the window does when the message reaches it.
    void On(UINT message, std::function<void()> act);

    // The messages that have reached it, in their order.
    const std::vector<UINT>& Seen() const { return m_seen; }
    // Forgets them, and throws away what waits in the thread's queue.
    void Clear();

private:
    static LRESULT CALLBACK Receive(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_hWnd = nullptr;
    std::map<UINT, std::function<void()>> m_acts;
    std::vector<UINT> m_seen;
};
