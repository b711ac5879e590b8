// A host with a window: posts the form that its fields show, and shows how far that is and what comes back.
#include <windows.h>

#include <cwchar>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "kvHttp/Client.h"
#include "MainWindow.h"

namespace
{

enum ExitCode
{
    EXIT_USAGE = 2,
    EXIT_NO_COMPONENT = 3,
    EXIT_NO_WINDOW = 4
};

void ShowError(const std::wstring& text)
{
    MessageBoxW(nullptr, text.c_str(), L"PostFormWindow", MB_OK | MB_ICONERROR);
}

void ShowNoComponent(kvHttp::Outcome outcome, HRESULT hr)
{
    wchar_t szResult[20] = {};
    std::swprintf(szResult, sizeof(szResult) / sizeof(szResult[0]), L"0x%08lX",
                  static_cast<unsigned long>(hr));
    ShowError(Describe(outcome) + (L"\n\n(" + std::wstring(szResult) + L")"));
}

// The client looks after its exchange by a timer, and its error dialog belongs to the window: an ordinary
// message loop is all that it needs.
int PumpMessages(HWND hWnd)
{
    MSG msg = {};
    while (GetMessageW(&msg, nullptr, 0, 0) > 0)
    {
        if (!IsDialogMessageW(hWnd, &msg))
        {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
    }
    return static_cast<int>(msg.wParam);
}

}  // namespace

int WINAPI WinMain(HINSTANCE /*hInstance*/, HINSTANCE /*hPrevious*/, LPSTR /*pszLine*/, int nShow)
{
    const std::optional<CommandLine> line = ParseCommandLine();
    if (!line)
    {
        ShowError(std::wstring(L"The command line makes no sense. It can be:\n\n") + kUsage);
        return EXIT_USAGE;
    }
    kvHttp::CClient client;
    // Now rather than at the first post, so that a missing module is told at once.
    const kvHttp::Outcome outcome = client.Open();
    if (outcome != kvHttp::Outcome::Idle)
    {
        ShowNoComponent(outcome, client.Result());
        return EXIT_NO_COMPONENT;
    }
    CMainWindow window(client, *line);
    if (!window.Create())
    {
        return EXIT_NO_WINDOW;
    }
    ShowWindow(window.Handle(), nShow);
    return PumpMessages(window.Handle());
}
