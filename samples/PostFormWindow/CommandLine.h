// What the command line fills into the fields.
#pragma once

#include <optional>
#include <string>

struct CommandLine
{
    std::wstring strUrl;
    std::wstring strData;
    std::wstring strFile;
    std::wstring strTimeout = L"30";
};

inline constexpr wchar_t kUsage[] =
    L"PostFormWindow [--url URL] [--data DATA] [--file PATH] [--timeout SECONDS]";

// Nothing when it makes no sense.
std::optional<CommandLine> ParseCommandLine();
