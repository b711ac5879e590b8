#include "system/window/SampleWindow.h"

#include <gtest/gtest.h>

#include <array>

namespace
{

constexpr DWORD kPatienceMs = 10000;
constexpr DWORD kTurnMs = 10;
constexpr UINT kResponseMs = 1000;

struct Search
{
    DWORD dwProcessId;
    HWND hKnown;
    HWND hFound;
};

BOOL CALLBACK KeepDialogOfProcess(HWND hWnd, LPARAM lParam)
{
    Search& search = *reinterpret_cast<Search*>(lParam);
    DWORD dwProcessId = 0;
    GetWindowThreadProcessId(hWnd, &dwProcessId);
    std::array<wchar_t, 40> szClass{};
    GetClassNameW(hWnd, szClass.data(), static_cast<int>(szClass.size()));
    if (dwProcessId != search.dwProcessId || hWnd == search.hKnown || !IsWindowVisible(hWnd) ||
        std::wstring(szClass.data()) != L"#32770")
    {
        return TRUE;
    }
    search.hFound = hWnd;
    return FALSE;
}

BOOL CALLBACK KeepChild(HWND hWnd, LPARAM lParam)
{
    reinterpret_cast<std::vector<HWND>*>(lParam)->push_back(hWnd);
    return TRUE;
}

std::wstring SamplePath()
{
    std::array<wchar_t, MAX_PATH> szPath{};
    GetModuleFileNameW(nullptr, szPath.data(), static_cast<DWORD>(szPath.size()));
    const std::wstring path = szPath.data();
    return path.substr(0, path.find_last_of(L'\\') + 1) + L"PostFormWindow.exe";
}

}  // namespace

CSampleWindow::CSampleWindow(const std::vector<std::wstring>& arguments)
{
    std::wstring command = L"\"" + SamplePath() + L"\"";
    for (const std::wstring& argument : arguments)
    {
        command += L" \"" + argument + L"\"";
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &m_process))
        << "error " << GetLastError();
    EXPECT_TRUE(Await([this] { return (m_hWnd = FindWindowBut(nullptr)) != nullptr; }))
        << "there is no window";
}

CSampleWindow::~CSampleWindow()
{
    TerminateProcess(m_process.hProcess, 1);
    WaitForSingleObject(m_process.hProcess, kPatienceMs);
    CloseHandle(m_process.hThread);
    CloseHandle(m_process.hProcess);
}

bool CSampleWindow::Await(const std::function<bool()>& condition) const
{
    const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
    while (!condition())
    {
        if (GetTickCount64() >= deadline)
        {
            return false;
        }
        Sleep(kTurnMs);
    }
    return true;
}

bool CSampleWindow::AwaitStatus(const std::wstring& begin) const
{
    return Await([&] { return Text(ID_STATUS).starts_with(begin); });
}

int CSampleWindow::Focus() const
{
    GUITHREADINFO info = {};
    info.cbSize = sizeof(info);
    GetGUIThreadInfo(m_process.dwThreadId, &info);
    return GetDlgCtrlID(info.hwndFocus);
}

void CSampleWindow::SetText(int id, const std::wstring& text) const
{
    SendMessageW(Control(id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

void CSampleWindow::Click(int id) const
{
    PostMessageW(Control(id), BM_CLICK, 0, 0);
}

void CSampleWindow::PressKey(WORD key) const
{
    const HWND hFocus = GetDlgItem(m_hWnd, Focus());
    PostMessageW(hFocus, WM_KEYDOWN, key, 1);
    PostMessageW(hFocus, WM_KEYUP, key, LPARAM{0xC0000001});
}

void CSampleWindow::PressAccessKey(wchar_t letter) const
{
    PostMessageW(GetDlgItem(m_hWnd, Focus()), WM_SYSCHAR, letter, LPARAM{0x20000001});
}

void CSampleWindow::MoveToScreen(int dpi, const RECT& place) const
{
    constexpr UINT kDpiChanged = 0x02E0;
    // The message brings an address, which must be one of that process.
    void* const pPlace =
        VirtualAllocEx(m_process.hProcess, nullptr, sizeof(place), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    EXPECT_TRUE(WriteProcessMemory(m_process.hProcess, pPlace, &place, sizeof(place), nullptr));
    SendMessageW(m_hWnd, kDpiChanged, static_cast<WPARAM>(MAKELONG(dpi, dpi)),
                 reinterpret_cast<LPARAM>(pPlace));
    VirtualFreeEx(m_process.hProcess, pPlace, 0, MEM_RELEASE);
}

bool CSampleWindow::IsResponsive() const
{
    DWORD_PTR result = 0;
    return SendMessageTimeoutW(m_hWnd, WM_NULL, 0, 0, SMTO_NORMAL, kResponseMs, &result) != 0;
}

std::optional<DWORD> CSampleWindow::AwaitExit() const
{
    DWORD dwCode = 0;
    if (WaitForSingleObject(m_process.hProcess, kPatienceMs) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(m_process.hProcess, &dwCode))
    {
        return std::nullopt;
    }
    return dwCode;
}

HWND CSampleWindow::FindDialog() const
{
    return FindWindowBut(m_hWnd);
}

HWND CSampleWindow::FindWindowBut(HWND hKnown) const
{
    Search search = {m_process.dwProcessId, hKnown, nullptr};
    EnumWindows(KeepDialogOfProcess, reinterpret_cast<LPARAM>(&search));
    return search.hFound;
}

std::wstring CSampleWindow::TextOf(HWND hWnd)
{
    std::wstring text(static_cast<size_t>(SendMessageW(hWnd, WM_GETTEXTLENGTH, 0, 0)) + 1, L'\0');
    text.resize(static_cast<size_t>(
        SendMessageW(hWnd, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()))));
    return text;
}

std::vector<HWND> CSampleWindow::ChildrenOf(HWND hWnd)
{
    std::vector<HWND> children;
    EnumChildWindows(hWnd, KeepChild, reinterpret_cast<LPARAM>(&children));
    return children;
}
