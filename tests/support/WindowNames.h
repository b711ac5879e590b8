// Made-up windows of the scripted platform.
#pragma once

#include <windows.h>

#include <string>

inline HWND FakeWindow(int number)
{
    return reinterpret_cast<HWND>(static_cast<INT_PTR>(0x120A00 + number));
}

// Number 0 stands for the desktop.
inline std::string WindowName(HWND hWnd)
{
    if (hWnd == nullptr)
    {
        return "null";
    }
    const INT_PTR number = reinterpret_cast<INT_PTR>(hWnd) - 0x120A00;
    return number == 0 ? "desktop" : "window" + std::to_string(number);
}
