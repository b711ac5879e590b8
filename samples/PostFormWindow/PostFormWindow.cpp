// A host with a window: posts the form that its fields show, and shows how far that is and what comes back.
#include <windows.h>

#include <cwchar>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "Exchange.h"
#include "MainWindow.h"

namespace
{

enum ExitCode
{
    EXIT_USAGE = 2,
    EXIT_NO_COMPONENT = 3,
    EXIT_NO_WINDOW = 4
};

class CComApartment
{
public:
    CComApartment() : m_hr(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~CComApartment()
    {
        if (SUCCEEDED(m_hr))
        {
            CoUninitialize();
        }
    }
    CComApartment(const CComApartment&) = delete;
    CComApartment& operator=(const CComApartment&) = delete;

private:
    HRESULT m_hr;
};

void ShowError(const std::wstring& text)
{
    MessageBoxW(nullptr, text.c_str(), L"PostFormWindow", MB_OK | MB_ICONERROR);
}

void ShowNoComponent(HRESULT hr)
{
    wchar_t szResult[20] = {};
    std::swprintf(szResult, sizeof(szResult) / sizeof(szResult[0]), L"0x%08lX",
                  static_cast<unsigned long>(hr));
    ShowError(std::wstring(L"The component could not be created (") + szResult +
              L").\n\nRegister its module, as administrator, and start again:\n\nregsvr32 kvHttp.dll");
}

// The component is polled by a timer of the window, and its error dialog belongs to the window: an ordinary
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
    const CComApartment apartment;
    CExchange exchange;
    // Now rather than at the first post, so that a missing module is told at once.
    const HRESULT hr = exchange.Prepare();
    if (FAILED(hr))
    {
        ShowNoComponent(hr);
        return EXIT_NO_COMPONENT;
    }
    CMainWindow window(exchange, *line);
    if (!window.Create())
    {
        return EXIT_NO_WINDOW;
    }
    ShowWindow(window.Handle(), nShow);
    return PumpMessages(window.Handle());
}
