#include "tracelib/TraceLine.h"

#include <algorithm>
#include <cstdio>

namespace
{

constexpr size_t kPieceLength = 2047;

// UTF-16 characters that end a line or steer a terminal somewhere.
wchar_t Visible(wchar_t character)
{
    if (character < 0x20)
    {
        return static_cast<wchar_t>(0x2400 + character);
    }
    if (character == 0x7F)
    {
        return 0x2421;
    }
    const bool bSteers = (character > 0x7F && character < 0xA0) || character == 0x2028 || character == 0x2029;
    return bSteers ? L'\uFFFD' : character;
}

using GetTime = void(WINAPI*)(LPFILETIME);

// Windows 7 and older have the coarse clock only.
GetTime FindClock()
{
    const HMODULE hKernel = GetModuleHandleW(L"kernel32.dll");
    void* const pPrecise = reinterpret_cast<void*>(GetProcAddress(hKernel, "GetSystemTimePreciseAsFileTime"));
    return pPrecise != nullptr ? reinterpret_cast<GetTime>(pPrecise) : GetSystemTimeAsFileTime;
}

// Found while the library is loaded: to look for it takes the loader's lock.
const GetTime g_getTime = FindClock();

}  // namespace

ULONGLONG TimeNow()
{
    FILETIME time = {};
    g_getTime(&time);
    return (ULONGLONG{time.dwHighDateTime} << 32) + time.dwLowDateTime;
}

bool IsLastPiece(std::string_view piece)
{
    return piece.size() != kPieceLength || piece.ends_with(",\n") || piece.ends_with(" \n");
}

std::string LineText(std::string_view record)
{
    record = record.substr(0, record.find_last_not_of(" \n") + 1);
    if (record.starts_with(' '))
    {
        record.remove_prefix(1);
    }
    std::wstring text = ToWide(CP_ACP, record);
    std::transform(text.begin(), text.end(), text.begin(), Visible);
    return ToUtf8(text);
}

std::string MakeLine(const LineHead& head, std::string_view text)
{
    const FILETIME time = {static_cast<DWORD>(head.time), static_cast<DWORD>(head.time >> 32)};
    SYSTEMTIME date = {};
    FileTimeToSystemTime(&time, &date);
    char szHead[96] = {};
    const int cch = std::snprintf(szHead, sizeof(szHead), "%04d-%02d-%02dT%02d:%02d:%02d.%06luZ %lu %lu %lu ",
                                  date.wYear, date.wMonth, date.wDay, date.wHour, date.wMinute, date.wSecond,
                                  static_cast<unsigned long>(head.time / 10 % 1000000), head.level,
                                  head.dwProcess, head.dwThread);
    std::string line(szHead, static_cast<size_t>(cch));
    line.reserve(line.size() + text.size() + 1);
    return line.append(text).append(1, '\n');
}

std::string ToUtf8(std::wstring_view text)
{
    const int cch = static_cast<int>(text.size());
    const int cb = WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(cb), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, utf8.data(), cb, nullptr, nullptr);
    return utf8;
}

std::wstring ToWide(UINT codePage, std::string_view text)
{
    const int cb = static_cast<int>(text.size());
    const int cch = MultiByteToWideChar(codePage, 0, text.data(), cb, nullptr, 0);
    std::wstring wide(static_cast<size_t>(cch), L'\0');
    MultiByteToWideChar(codePage, 0, text.data(), cb, wide.data(), cch);
    return wide;
}
