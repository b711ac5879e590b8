#include "Options.h"

#include <windows.h>

#include <shellapi.h>

#include <cwchar>
#include <vector>

#include "Output.h"

namespace
{

constexpr unsigned long kMaxTimeout = 86400;
constexpr unsigned long kMaxAnswer = 1000000000;

constexpr wchar_t kUsage[] =
    L"usage: PostForm [options] URL DATA\n"
    L"Posts the form data DATA to URL and prints the answer. DATA is sent as it stands, in UTF-8.\n"
    L"  --file PATH          then post once more, and write that answer to the file PATH\n"
    L"  --file-url URL       where that second post goes (as a rule to the same URL)\n"
    L"  --module PATH        use this kvHttp.dll, registered or not (the registered one)\n"
    L"  --timeout SECONDS    how long each exchange may take (30)\n"
    L"  --max-answer N       print at most N characters of the answer (2000)\n"
    L"  --expect-text TEXT   the answer must contain TEXT\n"
    L"  --expect-sha256 HEX  the file must have this SHA-256 checksum\n"
    L"  --help               print this\n"
    L"Exit code: 0 all went well; 1 an exchange failed, or its content is not the expected one;\n"
    L"2 the command line makes no sense; 3 the component could not be created.\n";

// The arguments as UTF-16: those that main gets have gone through the code page.
std::vector<std::wstring> GetArguments()
{
    int count = 0;
    wchar_t** const ppszArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::wstring> arguments;
    for (int index = 1; ppszArguments != nullptr && index < count; ++index)
    {
        arguments.emplace_back(ppszArguments[index]);
    }
    LocalFree(ppszArguments);
    return arguments;
}

std::optional<unsigned long> ParseNumber(const std::wstring& text, unsigned long maximum)
{
    if (text.empty() || text.size() > 10 || text.find_first_not_of(L"0123456789") != std::wstring::npos)
    {
        return std::nullopt;
    }
    const unsigned long long number = std::wcstoull(text.c_str(), nullptr, 10);
    if (number < 1 || number > maximum)
    {
        return std::nullopt;
    }
    return static_cast<unsigned long>(number);
}

std::optional<Options> Refuse(const std::wstring& reason)
{
    PrintError(L"PostForm: " + reason + L"; --help tells more");
    return std::nullopt;
}

// False when there is no option of that name or the value is no good.
bool SetOption(Options& options, const std::wstring& name, const std::wstring& value)
{
    struct TextOption
    {
        const wchar_t* pszName;
        std::wstring Options::* pText;
    };
    constexpr TextOption kTextOptions[] = {{L"--file", &Options::strFile},
                                           {L"--file-url", &Options::strFileUrl},
                                           {L"--module", &Options::strModule},
                                           {L"--expect-text", &Options::strExpectedText},
                                           {L"--expect-sha256", &Options::strExpectedSha256}};
    for (const TextOption& option : kTextOptions)
    {
        if (name == option.pszName)
        {
            options.*option.pText = value;
            return !value.empty();
        }
    }
    const bool bTimeout = name == L"--timeout";
    if (!bTimeout && name != L"--max-answer")
    {
        return false;
    }
    const std::optional<unsigned long> number = ParseNumber(value, bTimeout ? kMaxTimeout : kMaxAnswer);
    if (bTimeout)
    {
        options.nTimeout = number.value_or(0);
    }
    else
    {
        options.nMaxAnswer = number.value_or(0);
    }
    return number.has_value();
}

}  // namespace

std::optional<Options> ParseCommandLine()
{
    Options options;
    const std::vector<std::wstring> arguments = GetArguments();
    size_t index = 0;
    for (; index < arguments.size() && arguments[index].starts_with(L"--"); ++index)
    {
        const std::wstring& name = arguments[index];
        if (name == L"--help")
        {
            options.bHelp = true;
            return options;
        }
        if (index + 1 == arguments.size())
        {
            return Refuse(L"there is no option \"" + name + L"\", or its value is missing");
        }
        ++index;
        if (!SetOption(options, name, arguments[index]))
        {
            return Refuse(L"\"" + name + L" " + arguments[index] + L"\" makes no sense");
        }
    }
    if (arguments.size() - index != 2)
    {
        return Refuse(L"a URL and form data are needed");
    }
    options.strUrl = arguments[index];
    options.strData = arguments[index + 1];
    if (options.strUrl.empty() || options.strData.empty())
    {
        return Refuse(L"neither the URL nor the form data may be empty");
    }
    return options;
}

void PrintUsage()
{
    Print(kUsage);
}
