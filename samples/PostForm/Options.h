// The command line.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

struct Options
{
    std::wstring strUrl;
    std::wstring strData;
    std::wstring strExpectedText;    // in the first answer; empty: not checked
    std::wstring strFile;            // of the second exchange; empty: there is none
    std::wstring strFileUrl;         // of the second exchange; empty: the first one's
    std::wstring strExpectedSha256;  // of the file; empty: not checked
    std::wstring strModule;          // where kvHttp.dll is; empty: the registered one
    unsigned long nTimeout = 30;     // in seconds
    size_t nMaxAnswer = 2000;        // characters
    bool bHelp = false;
};

// Nothing, with the reason on the standard error stream, when the command line makes no sense.
std::optional<Options> ParseCommandLine();

void PrintUsage();
