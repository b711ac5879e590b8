#include "system/HostWindow.h"

#include <gtest/gtest.h>

#include <utility>

namespace
{

constexpr wchar_t kClassName[] = L"KvHttpHostWindow";

}  // namespace

CHostWindow::CHostWindow()
{
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = Receive;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kClassName;
    RegisterClassW(&windowClass);
    m_hWnd = CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, windowClass.hInstance,
                             nullptr);
    EXPECT_NE(m_hWnd, nullptr);
    SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

CHostWindow::~CHostWindow()
{
    SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, 0);
    DestroyWindow(m_hWnd);
}

void CHostWindow::Post(UINT message) const
{
    EXPECT_TRUE(PostMessageW(m_hWnd, message, 0, 0)) << "message " << message;
}

void CHostWindow::Post(const std::vector<UINT>& messages) const
{
    for (const UINT message : messages)
    {
        Post(message);
    }
}

void CHostWindow::On(UINT message, std::function<void()> act)
{
    m_acts[message] = std::move(act);
}

void CHostWindow::Clear()
{
    MSG msg = {};
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
    {
    }
    m_seen.clear();
}

LRESULT CALLBACK CHostWindow::Receive(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* const pThis = reinterpret_cast<CHostWindow*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    if (pThis == nullptr)
    {
        return DefWindowProcW(hWnd, message, wParam, lParam);
    }
    pThis->m_seen.push_back(message);
    const auto act = pThis->m_acts.find(message);
    if (act == pThis->m_acts.end())
    {
        return 0;
    }
    act->second();
    return 1;
}
