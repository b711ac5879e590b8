#include "CommandLine.h"

#include <windows.h>

#include <shellapi.h>

namespace
{

std::wstring* Find(CommandLine& line, const std::wstring& name)
{
    struct Option
    {
        const wchar_t* pszName;
        std::wstring CommandLine::* pText;
    };
    constexpr Option kOptions[] = {{L"--url", &CommandLine::strUrl},
                                   {L"--data", &CommandLine::strData},
                                   {L"--file", &CommandLine::strFile},
                                   {L"--timeout", &CommandLine::strTimeout}};
    for (const Option& option : kOptions)
    {
        if (name == option.pszName)
        {
            return &(line.*option.pText);
        }
    }
    return nullptr;
}

}  // namespace

std::optional<CommandLine> ParseCommandLine()
{
    int count = 0;
    wchar_t** const ppszArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    CommandLine line;
    bool bGood = ppszArguments != nullptr;
    for (int index = 1; bGood && index < count; index += 2)
    {
        std::wstring* const pText = Find(line, ppszArguments[index]);
        bGood = pText != nullptr && index + 1 < count;
        if (bGood)
        {
            *pText = ppszArguments[index + 1];
        }
    }
    LocalFree(ppszArguments);
    return bGood ? std::optional(line) : std::nullopt;
}
