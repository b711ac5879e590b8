#include "Output.h"

#include <windows.h>

namespace
{

void Write(DWORD dwStream, std::wstring_view text)
{
    const HANDLE hStream = GetStdHandle(dwStream);
    DWORD dwMode = 0;
    if (GetConsoleMode(hStream, &dwMode))
    {
        DWORD dwWritten = 0;
        WriteConsoleW(hStream, text.data(), static_cast<DWORD>(text.size()), &dwWritten, nullptr);
        return;
    }
    const std::string bytes = ToUtf8(text);
    for (size_t begin = 0; begin < bytes.size();)
    {
        DWORD dwWritten = 0;
        if (!WriteFile(hStream, bytes.data() + begin, static_cast<DWORD>(bytes.size() - begin), &dwWritten,
                       nullptr) ||
            dwWritten == 0)
        {
            return;
        }
        begin += dwWritten;
    }
}

}  // namespace

std::string ToUtf8(std::wstring_view text)
{
    const int cch = static_cast<int>(text.size());
    const int cb = WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<size_t>(cb), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, bytes.data(), cb, nullptr, nullptr);
    return bytes;
}

void Print(std::wstring_view text)
{
    Write(STD_OUTPUT_HANDLE, text);
}

void PrintError(std::wstring_view text)
{
    Write(STD_ERROR_HANDLE, std::wstring(text) + L"\n");
}
