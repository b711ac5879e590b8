// The command line of tracecat.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Options
{
    std::string strFile;
    bool bHelp = false;
    bool bFollow = false;
    bool bOld = false;
    bool bDecode = false;
    bool bTimeLine = false;
    int nExchange = 0;  // 0: the last one
    std::optional<unsigned long> level;
    std::vector<unsigned long> processes;
    std::vector<unsigned long> threads;
    std::string strFunction;
    std::string strText;
};

extern const char kUsage[];

// Reads the arguments behind the program's name, in UTF-8. The complaint about a command line that makes no
// sense, or an empty text.
std::string ReadOptions(const std::vector<std::string>& arguments, Options& options);
