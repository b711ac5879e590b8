// The interface as it is, without the helper: create, post, poll while messages are dispatched, take the
// answer, release.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <cwchar>

#include "kvHttp/HttpRaw.h"

namespace
{

// The platform's error dialog is shown over a window of this thread, whose messages must not rest.
void DispatchMessages()
{
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
    for (MSG msg = {}; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
    {
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
}

// Prints the answer and gives the status with which the exchange has ended.
unsigned long Post(IHttpRaw& http, const wchar_t* pszUrl, const wchar_t* pszData)
{
    unsigned long nStatus = REQ_STATUS_FAILED;
    http.SetTimeout(30);
    HRESULT hr = http.PostRequest(pszUrl, pszData);
    while (SUCCEEDED(hr))
    {
        // The time-out counts only while somebody asks.
        hr = http.GetRequestStatus(&nStatus);
        if (nStatus != REQ_STATUS_SENDING && nStatus != REQ_STATUS_RECEIVING)
        {
            break;
        }
        DispatchMessages();
    }
    BSTR bstrAnswer = nullptr;
    // An empty answer counts as none.
    if (nStatus == REQ_STATUS_DONE && SUCCEEDED(http.GetResponseData(&bstrAnswer)))
    {
        std::wprintf(L"%ls\n", bstrAnswer);
        SysFreeString(bstrAnswer);
    }
    return nStatus;
}

}  // namespace

int main()
{
    int count = 0;
    wchar_t** const ppszArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (count != 3)
    {
        std::wprintf(L"usage: RawPost URL DATA\n");
        return 2;
    }
    _setmode(_fileno(stdout), _O_U8TEXT);  // answers are in every script
    // Only threads of a single-threaded apartment can create the component.
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    void* pHttp = nullptr;
    const HRESULT hr = CoCreateInstance(CLSID_HttpRaw, nullptr, CLSCTX_INPROC_SERVER, IID_IHttpRaw, &pHttp);
    if (FAILED(hr))
    {
        std::wprintf(L"The component could not be created (0x%08lX): regsvr32 kvHttp.dll registers it.\n",
                     static_cast<unsigned long>(hr));
        return 3;
    }
    IHttpRaw* const pHttpRaw = static_cast<IHttpRaw*>(pHttp);
    const unsigned long nStatus = Post(*pHttpRaw, ppszArguments[1], ppszArguments[2]);
    // On the same thread, before CoUninitialize; waits for a worker that still runs.
    pHttpRaw->Release();
    CoUninitialize();
    std::wprintf(L"status %lu\n", nStatus);
    return nStatus == REQ_STATUS_DONE ? 0 : 1;
}
