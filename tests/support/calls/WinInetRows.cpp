// The rows of WinINet, as the scripted one plays it.
#include <windows.h>
#include <wininet.h>

#include <cstring>

#include "support/calls/CallRows.h"

namespace
{

constexpr DWORD kNoMemory = ERROR_NOT_ENOUGH_MEMORY;

BOOL RefuseQuery(DWORD dwError, LPVOID buffer, LPDWORD pcb, DWORD cbNeeded)
{
    constexpr wchar_t kLeftover[] = L"404";
    std::memcpy(buffer, kLeftover, sizeof(kLeftover));
    *pcb = cbNeeded;
    SetLastError(dwError);
    return FALSE;
}

auto QueryFails(const char* label, DWORD dwError)
{
    return Does(
        label, [dwError](auto*, HINTERNET, DWORD, LPVOID buffer, LPDWORD pcb, LPDWORD)
        { return RefuseQuery(dwError, buffer, pcb, *pcb + 2); }, "9");
}

auto ReadFails(const char* label, DWORD dwError)
{
    return Does(
        label,
        [dwError](auto*, HINTERNET, LPVOID buffer, DWORD cb, LPDWORD pcbRead)
        {
            std::memset(buffer, 'X', cb);
            *pcbRead = 7;
            SetLastError(dwError);
            return FALSE;
        },
        "9s");
}

void AddSendRow(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"HttpSendRequestW", decltype(HttpSendRequestW)>(
        CMeeting{}, Fails("no error code", FALSE, ERROR_SUCCESS, "7"),
        Fails("timed out", FALSE, ERROR_INTERNET_TIMEOUT, "7"),
        Fails("pending", FALSE, ERROR_IO_PENDING, "7"),
        Fails("refused", FALSE, ERROR_INTERNET_CANNOT_CONNECT, "2"),
        Fails("connection lost", FALSE, ERROR_INTERNET_CONNECTION_RESET, "2"),
        Fails("no memory", FALSE, kNoMemory, "2"),
        Fails("wrong state", FALSE, ERROR_INTERNET_INCORRECT_HANDLE_STATE, "2"),
        Fails("client certificate", FALSE, ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED, "2"),
        Fails("to be sent again", FALSE, ERROR_INTERNET_FORCE_RETRY, "9"),
        Fails("unknown authority", FALSE, ERROR_INTERNET_INVALID_CA, "39"),
        Fails("redirect to confirm", FALSE, ERROR_HTTP_REDIRECT_NEEDS_CONFIRMATION, "39")));
}

}  // namespace

void AddWinInetRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"InternetOpenW", decltype(InternetOpenW)>(
        CMeeting{}, Fails("no handle", nullptr, ERROR_INTERNET_OUT_OF_HANDLES, "2")));
    rows.push_back(Row<"InternetConnectW", decltype(InternetConnectW)>(
        CMeeting{}, Fails("no handle", nullptr, ERROR_INTERNET_OUT_OF_HANDLES, "2"),
        Fails("no memory", nullptr, kNoMemory, "2")));
    rows.push_back(Row<"HttpOpenRequestW", decltype(HttpOpenRequestW)>(
        CMeeting{}, Fails("no handle", nullptr, ERROR_INTERNET_OUT_OF_HANDLES, "2"),
        Fails("bad URL", nullptr, ERROR_INTERNET_INVALID_URL, "2")));
    AddSendRow(rows);
    rows.push_back(Row<"HttpQueryInfoW", decltype(HttpQueryInfoW)>(
        CMeeting{}, QueryFails("no such header", ERROR_HTTP_HEADER_NOT_FOUND),
        QueryFails("too long", ERROR_INSUFFICIENT_BUFFER),
        QueryFails("wrong state", ERROR_INTERNET_INCORRECT_HANDLE_STATE)));
    rows.push_back(Row<"InternetReadFile", decltype(InternetReadFile)>(
        CMeeting{}, ReadFails("timed out", ERROR_INTERNET_TIMEOUT),
        ReadFails("connection lost", ERROR_INTERNET_CONNECTION_RESET), ReadFails("no memory", kNoMemory),
        Does(
            "short count", [](auto* pfnNext, HINTERNET hRequest, LPVOID buffer, DWORD, LPDWORD pcbRead)
            { return pfnNext(hRequest, buffer, 1, pcbRead); }, "9")));
    rows.push_back(Row<"InternetQueryOptionW", decltype(InternetQueryOptionW)>(
        CMeeting{}, Does(
                        "wrong state",
                        [](auto*, HINTERNET, DWORD, LPVOID buffer, LPDWORD pcb)
                        {
                            std::memset(buffer, 0xA5, *pcb);
                            SetLastError(ERROR_INTERNET_INCORRECT_HANDLE_STATE);
                            return FALSE;
                        },
                        "9")));
    rows.push_back(Row<"InternetSetOptionW", decltype(InternetSetOptionW)>(
        CMeeting{}, Fails("wrong type", FALSE, ERROR_INTERNET_INCORRECT_HANDLE_TYPE, "9"),
        Fails("no memory", FALSE, kNoMemory, "9")));
    rows.push_back(Row<"InternetCloseHandle", decltype(InternetCloseHandle)>(
        CMeeting{}, Lies("says it is not open", FALSE, ERROR_INVALID_HANDLE, "9")));
    rows.push_back(Row<"InternetGetConnectedState", decltype(InternetGetConnectedState)>(
        CMeeting{}, Fails("not connected", FALSE, ERROR_SUCCESS, "3")));
    rows.push_back(Row<"InternetErrorDlg", decltype(InternetErrorDlg)>(
        CMeeting{}, Fails("cancelled", DWORD{ERROR_CANCELLED}, ERROR_SUCCESS, "3"),
        Fails("bad handle", DWORD{ERROR_INVALID_HANDLE}, ERROR_SUCCESS, "2"),
        Fails("no memory", kNoMemory, kNoMemory, "2"),
        Fails("no display", DWORD{0xFFFFFFFF}, ERROR_SUCCESS, "2"),
        Fails("to be sent again", DWORD{ERROR_INTERNET_FORCE_RETRY}, ERROR_SUCCESS, "9")));
    // Without its parts a URL names no host, and connecting to none is refused.
    rows.push_back(Row<"InternetCrackUrlW", decltype(InternetCrackUrlW)>(
        Fails("no URL", FALSE, ERROR_INTERNET_INVALID_URL, "2"), Fails("no memory", FALSE, kNoMemory, "2")));
}
