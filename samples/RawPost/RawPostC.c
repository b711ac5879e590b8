/* The same in C: COBJMACROS makes the macros of the methods. */
#define COBJMACROS
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <stdio.h>

#include "kvHttp/HttpRaw.h"

/* The platform's error dialog is shown over a window of this thread, whose messages must not rest. */
static void DispatchMessages(void)
{
    MSG msg;
    MsgWaitForMultipleObjects(0, NULL, FALSE, 50, QS_ALLINPUT);
    while (PeekMessageW(&msg, NULL, 0, 0, PM_REMOVE))
    {
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
}

/* Prints the answer and gives the status with which the exchange has ended. */
static unsigned long Post(IHttpRaw* pHttp, const wchar_t* pszUrl, const wchar_t* pszData)
{
    unsigned long nStatus = REQ_STATUS_FAILED;
    BSTR bstrAnswer = NULL;
    HRESULT hr;
    IHttpRaw_SetTimeout(pHttp, 30);
    hr = IHttpRaw_PostRequest(pHttp, pszUrl, pszData);
    while (SUCCEEDED(hr))
    {
        /* The time-out counts only while somebody asks. */
        hr = IHttpRaw_GetRequestStatus(pHttp, &nStatus);
        if (nStatus != REQ_STATUS_SENDING && nStatus != REQ_STATUS_RECEIVING)
        {
            break;
        }
        DispatchMessages();
    }
    /* An empty answer counts as none. */
    if (nStatus == REQ_STATUS_DONE && SUCCEEDED(IHttpRaw_GetResponseData(pHttp, &bstrAnswer)))
    {
        wprintf(L"%ls\n", bstrAnswer);
        SysFreeString(bstrAnswer);
    }
    return nStatus;
}

int main(void)
{
    int count = 0;
    wchar_t** const ppszArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    void* pHttp = NULL;
    unsigned long nStatus;
    HRESULT hr;
    if (count != 3)
    {
        wprintf(L"usage: RawPostC URL DATA\n");
        return 2;
    }
    _setmode(_fileno(stdout), _O_U8TEXT); /* answers are in every script */
    /* Only threads of a single-threaded apartment can create the component. */
    CoInitializeEx(NULL, COINIT_APARTMENTTHREADED);
    hr = CoCreateInstance(&CLSID_HttpRaw, NULL, CLSCTX_INPROC_SERVER, &IID_IHttpRaw, &pHttp);
    if (FAILED(hr))
    {
        wprintf(L"The component could not be created (0x%08lX): regsvr32 kvHttp.dll registers it.\n",
                (unsigned long)hr);
        return 3;
    }
    nStatus = Post(pHttp, ppszArguments[1], ppszArguments[2]);
    /* On the same thread, before CoUninitialize; waits for a worker that still runs. */
    IHttpRaw_Release((IHttpRaw*)pHttp);
    CoUninitialize();
    wprintf(L"status %lu\n", nStatus);
    return nStatus == REQ_STATUS_DONE ? 0 : 1;
}
