// A trace library for people: prints each record with its level on the standard output, in UTF-8.
#include <windows.h>

#include <cstring>
#include <string>
#include <string_view>

namespace
{

SRWLOCK g_lock = SRWLOCK_INIT;
bool g_bInsideRecord = false;  // a long record comes in pieces, and only the last ends with a line feed

std::string ToUtf8(std::string_view ansi)
{
    const int cchAnsi = static_cast<int>(ansi.size());
    const int cch = MultiByteToWideChar(CP_ACP, 0, ansi.data(), cchAnsi, nullptr, 0);
    std::wstring wide(static_cast<size_t>(cch), L'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi.data(), cchAnsi, wide.data(), cch);
    const int cb = WideCharToMultiByte(CP_UTF8, 0, wide.data(), cch, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(cb), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), cch, utf8.data(), cb, nullptr, nullptr);
    return utf8;
}

}  // namespace

extern "C" void WINAPI QNZTRACERAWA(unsigned long level, unsigned long, unsigned long, const char* text)
{
    AcquireSRWLockExclusive(&g_lock);
    std::string line;
    if (!g_bInsideRecord)
    {
        line = (level >= 8 ? "  [trace, error] " : "  [trace] ");
    }
    std::string_view record(text);
    g_bInsideRecord = record.empty() || record.back() != '\n';
    if (!g_bInsideRecord)
    {
        // Some names bring a line feed of their own.
        record.remove_suffix(record.size() - (record.find_last_not_of(" \n") + 1));
    }
    if (!record.empty() && record.front() == ' ')
    {
        record.remove_prefix(1);  // an empty message leaves its blank
    }
    line += ToUtf8(record);
    // A line feed within a record is shown, so that a record stays one line.
    for (size_t feed = line.find('\n'); feed != std::string::npos; feed = line.find('\n', feed))
    {
        line.replace(feed, 1, "\\n");
    }
    line += g_bInsideRecord ? "" : "\n";
    DWORD dwWritten = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line.data(), static_cast<DWORD>(line.size()), &dwWritten,
              nullptr);
    ReleaseSRWLockExclusive(&g_lock);
}
