// The viewer of trace files on the command line. docs/tracing.md shows what it shows.
#include <windows.h>

#include <shellapi.h>

#include <string>
#include <string_view>
#include <vector>

#include "tracecat/Exchanges.h"
#include "tracecat/Options.h"
#include "tracecat/TimeLine.h"
#include "tracecat/TraceReader.h"
#include "tracecat/TraceView.h"

namespace
{

constexpr int kGood = 0;
constexpr int kNothingToShow = 1;
constexpr int kBadCommandLine = 2;
constexpr DWORD kPollMs = 200;

std::string ToUtf8(std::wstring_view text)
{
    const int cch = static_cast<int>(text.size());
    const int cb = WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(cb), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, utf8.data(), cb, nullptr, nullptr);
    return utf8;
}

std::wstring ToWide(std::string_view text)
{
    const int cb = static_cast<int>(text.size());
    const int cch = MultiByteToWideChar(CP_UTF8, 0, text.data(), cb, nullptr, 0);
    std::wstring wide(static_cast<size_t>(cch), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), cb, wide.data(), cch);
    return wide;
}

// To a console as text, whatever its code page is; anywhere else as UTF-8. False when nobody takes it.
bool Print(std::string_view text, DWORD dwStream = STD_OUTPUT_HANDLE)
{
    const HANDLE hStream = GetStdHandle(dwStream);
    DWORD dwMode = 0;
    DWORD dwWritten = 0;
    if (GetConsoleMode(hStream, &dwMode))
    {
        const std::wstring wide = ToWide(text);
        return WriteConsoleW(hStream, wide.data(), static_cast<DWORD>(wide.size()), &dwWritten, nullptr) !=
               FALSE;
    }
    return text.empty() ||
           WriteFile(hStream, text.data(), static_cast<DWORD>(text.size()), &dwWritten, nullptr) != FALSE;
}

void Complain(const std::string& complaint)
{
    Print("tracecat: " + complaint + "\n", STD_ERROR_HANDLE);
}

// The next whole line, which is taken out of the bytes; false when there is none.
bool TakeLine(std::string_view& bytes, std::string_view& line)
{
    const size_t end = bytes.find('\n');
    if (end == std::string_view::npos)
    {
        return false;
    }
    line = bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    return true;
}

// Shows the whole lines of the bytes, and leaves the rest.
bool ShowLines(std::string& bytes, CTraceView& view)
{
    std::string_view left = bytes;
    std::string_view line;
    std::string shown;
    while (TakeLine(left, line))
    {
        shown += view.Show(line);
    }
    bytes.erase(0, bytes.size() - left.size());
    return Print(shown);
}

int Show(const Options& options, CTraceReader& reader, std::string& bytes)
{
    CTraceView view(options);
    while (ShowLines(bytes, view) && options.bFollow)
    {
        Sleep(kPollMs);
        reader.Read(bytes);
    }
    // A last line without its end: its writer is at it, or was ended.
    Print(bytes.empty() ? "" : view.Show(bytes));
    return kGood;
}

int ShowTimeLine(const Options& options, std::string_view bytes)
{
    CExchanges exchanges;
    std::string_view line;
    while (TakeLine(bytes, line))
    {
        if (const std::optional<TraceEntry> entry = ParseEntry(line))
        {
            exchanges.Take(*entry);
        }
    }
    const std::string drawing = DrawTimeLine(exchanges.All(), options.nExchange, options.bDecode);
    if (drawing.empty())
    {
        Complain("there is no such exchange in the file; it has " + std::to_string(exchanges.All().size()));
        return kNothingToShow;
    }
    Print(drawing);
    return kGood;
}

std::vector<std::string> Arguments()
{
    std::vector<std::string> arguments;
    int count = 0;
    wchar_t** const ppArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int index = 1; ppArguments != nullptr && index < count; ++index)
    {
        arguments.push_back(ToUtf8(ppArguments[index]));
    }
    LocalFree(ppArguments);
    return arguments;
}

}  // namespace

int main()
{
    Options options;
    const std::string complaint = ReadOptions(Arguments(), options);
    if (!complaint.empty())
    {
        Complain(complaint + "; --help tells more");
        return kBadCommandLine;
    }
    if (options.bHelp)
    {
        Print(kUsage);
        return kGood;
    }
    CTraceReader reader(ToWide(options.strFile));
    std::string bytes;
    if (options.bOld)
    {
        reader.ReadOld(bytes);
    }
    // A file that is to be followed may come later.
    if (!reader.Read(bytes) && !options.bFollow)
    {
        Complain(options.strFile + " cannot be read");
        return kNothingToShow;
    }
    return options.bTimeLine ? ShowTimeLine(options, bytes) : Show(options, reader, bytes);
}
