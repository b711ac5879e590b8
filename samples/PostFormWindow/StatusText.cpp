#include "StatusText.h"

#include <windows.h>

#include <shlwapi.h>

#include "kvHttp/HttpRaw.h"

namespace
{

struct StatusText
{
    unsigned long nStatus;
    const wchar_t* pszName;
    const wchar_t* pszMeaning;
};

constexpr StatusText kTexts[] = {
    {REQ_STATUS_HTTP_ERROR, L"REQ_STATUS_HTTP_ERROR",
     L"The server answered 400, 401, 404 or 405. Check the path of the URL, and whether that page takes this "
     L"form without a login."},
    {REQ_STATUS_IDLE, L"REQ_STATUS_IDLE", L"Nothing has been sent yet."},
    {REQ_STATUS_FAILED, L"REQ_STATUS_FAILED",
     L"The server could not be reached, or broke off. Check the URL (http://host:port/path), and that the "
     L"server runs."},
    {REQ_STATUS_NOT_CONNECTED, L"REQ_STATUS_NOT_CONNECTED",
     L"This machine has no network connection, or the error dialog was cancelled."},
    {REQ_STATUS_SENDING, L"REQ_STATUS_SENDING", L"The form is on its way; no answer yet."},
    {REQ_STATUS_RECEIVING, L"REQ_STATUS_RECEIVING", L"The answer is arriving."},
    {REQ_STATUS_TIMEOUT, L"REQ_STATUS_TIMEOUT",
     L"It took too long, or was redirected in a circle. Try a longer time-out; with a target file, check "
     L"also that it can be written."},
    {REQ_STATUS_DONE, L"REQ_STATUS_DONE", L"The answer is complete."},
};

constexpr StatusText kUnknown = {0, L"(a status without a name)", L"Try again."};

const StatusText& Find(unsigned long status)
{
    for (const StatusText& text : kTexts)
    {
        if (text.nStatus == status)
        {
            return text;
        }
    }
    return kUnknown;
}

}  // namespace

const wchar_t* NameOf(unsigned long status)
{
    return Find(status).pszName;
}

const wchar_t* MeaningOf(unsigned long status)
{
    return Find(status).pszMeaning;
}

std::wstring FormatElapsed(unsigned long long milliseconds)
{
    return std::to_wstring(milliseconds / 1000) + L"." + std::to_wstring(milliseconds / 100 % 10) + L" s";
}

std::wstring FormatSize(unsigned long long size)
{
    wchar_t szSize[40] = {};
    StrFormatByteSizeW(static_cast<LONGLONG>(size), szSize, sizeof(szSize) / sizeof(szSize[0]));
    return szSize;
}

std::wstring WithFieldLineEnds(const std::wstring& text)
{
    std::wstring result;
    result.reserve(text.size());
    for (size_t index = 0; index < text.size(); ++index)
    {
        if (text[index] == L'\r' && index + 1 < text.size() && text[index + 1] == L'\n')
        {
            continue;  // the line feed that follows stands for both
        }
        if (text[index] == L'\r' || text[index] == L'\n')
        {
            result += L"\r\n";
        }
        else
        {
            result += text[index];
        }
    }
    return result;
}
