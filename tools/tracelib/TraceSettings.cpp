#include "tracelib/TraceSettings.h"

#include <algorithm>

#include "base/ScopedHandle.h"
#include "tracelib/TraceLine.h"

namespace
{

constexpr DWORD kMaxIniBytes = 0x10000;
constexpr DWORD kMaxPath = 0x8000;
constexpr unsigned kMaxKeep = 99;
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

std::string_view Trimmed(std::string_view text)
{
    constexpr char kBlanks[] = " \t\r";
    const size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool ToNumber(std::wstring_view text, ULONGLONG& number)
{
    constexpr size_t kMaxDigits = 15;
    if (text.empty() || text.size() > kMaxDigits)
    {
        return false;
    }
    ULONGLONG value = 0;
    for (const wchar_t digit : text)
    {
        if (digit < L'0' || digit > L'9')
        {
            return false;
        }
        value = value * 10 + static_cast<ULONGLONG>(digit - L'0');
    }
    number = value;
    return true;
}

bool ToSize(std::wstring_view text, ULONGLONG& size)
{
    constexpr std::wstring_view kUnits = L"KMG";
    int shift = 0;
    const size_t unit = text.empty() ? std::wstring_view::npos : kUnits.find(text.back());
    if (unit != std::wstring_view::npos)
    {
        shift = 10 * static_cast<int>(unit + 1);
        text.remove_suffix(1);
    }
    ULONGLONG number = 0;
    if (!ToNumber(text, number) || number > (MAXULONGLONG >> shift))
    {
        return false;
    }
    size = number << shift;
    return true;
}

bool ToSwitch(std::wstring_view text, bool& bOn)
{
    if (text != L"0" && text != L"1")
    {
        return false;
    }
    bOn = text == L"1";
    return true;
}

std::wstring Environment(const wchar_t* pszName)
{
    std::wstring value(kMaxPath, L'\0');
    value.resize(GetEnvironmentVariableW(pszName, value.data(), kMaxPath));
    return value;
}

std::wstring Expanded(const std::wstring& text)
{
    std::wstring expanded(kMaxPath, L'\0');
    const DWORD cch = ExpandEnvironmentStringsW(text.c_str(), expanded.data(), kMaxPath);
    if (cch == 0 || cch > kMaxPath)
    {
        return text;
    }
    expanded.resize(cch - 1);
    return expanded;
}

// With its last backslash.
std::wstring FolderOf(HMODULE hModule)
{
    std::wstring path(kMaxPath, L'\0');
    path.resize(GetModuleFileNameW(hModule, path.data(), kMaxPath));
    path.resize(path.find_last_of(L'\\') + 1);
    return path;
}

bool IsRelative(std::wstring_view path)
{
    const bool bRooted = path.starts_with(L'\\') || path.starts_with(L'/');
    return !bRooted && (path.size() < 2 || path[1] != L':');
}

std::string ReadIni(const std::wstring& path)
{
    const CFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                       nullptr, OPEN_EXISTING, 0, nullptr));
    std::string text(kMaxIniBytes, '\0');
    DWORD cb = 0;
    if (!file || !ReadFile(file.Get(), text.data(), kMaxIniBytes, &cb, nullptr))
    {
        cb = 0;
    }
    text.resize(cb);
    return text;
}

}  // namespace

bool TakeSetting(std::string_view name, std::wstring_view value, TraceSettings& settings)
{
    ULONGLONG keep = 0;
    if (name == "file")
    {
        settings.strFile = value;
        return true;
    }
    if (name == "limit")
    {
        return ToSize(value, settings.nLimit);
    }
    if (name == "keep" && ToNumber(value, keep) && keep <= kMaxKeep)
    {
        settings.nKeep = static_cast<unsigned>(keep);
        return true;
    }
    return name == "debugger" && ToSwitch(value, settings.bDebugger);
}

void TakeIniText(std::string_view text, TraceSettings& settings)
{
    if (text.starts_with(kByteOrderMark))
    {
        text.remove_prefix(sizeof(kByteOrderMark) - 1);
    }
    for (int number = 1; !text.empty(); ++number)
    {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = Trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.front() == '#' || line.front() == ';' || line.front() == '[')
        {
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos ||
            !TakeSetting(Trimmed(line.substr(0, equals)), ToWide(CP_UTF8, Trimmed(line.substr(equals + 1))),
                         settings))
        {
            settings.complaints.push_back("qnztraceX64.ini: line " + std::to_string(number) +
                                          " makes no sense");
        }
    }
}

TraceSettings ReadTraceSettings(HMODULE hLibrary)
{
    struct Variable
    {
        const char* pszSetting;
        const wchar_t* pszVariable;
    };
    constexpr Variable kVariables[] = {{"file", L"QNZTRACE_FILE"},
                                       {"limit", L"QNZTRACE_LIMIT"},
                                       {"keep", L"QNZTRACE_KEEP"},
                                       {"debugger", L"QNZTRACE_DEBUGGER"}};
    TraceSettings settings;
    const std::wstring folder = FolderOf(hLibrary);
    TakeIniText(ReadIni(folder + L"qnztraceX64.ini"), settings);
    for (const Variable& variable : kVariables)
    {
        const std::wstring value = Environment(variable.pszVariable);
        if (!value.empty() && !TakeSetting(variable.pszSetting, value, settings))
        {
            settings.complaints.push_back(ToUtf8(variable.pszVariable) + " makes no sense");
        }
    }
    settings.strFile = Expanded(settings.strFile);
    if (!settings.strFile.empty() && IsRelative(settings.strFile))
    {
        settings.strFile.insert(0, folder);
    }
    return settings;
}
