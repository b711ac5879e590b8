// Where the trace library writes to: what the file "qnztraceX64.ini" beside the library says, and the
// environment of the process, which wins.
//
//   qnztraceX64.ini   environment         meaning
//   file=PATH         QNZTRACE_FILE       the file; none: no file is written. Names of environment variables
//                                         between percent signs are replaced. A relative path begins in the
//                                         library's folder.
//   limit=SIZE        QNZTRACE_LIMIT      bytes, or with K, M or G behind; the file is set aside before it
//                                         grows beyond. 0: it may grow without end. 10M where nothing is
//                                         said.
//   keep=COUNT        QNZTRACE_KEEP       how many files set aside are kept, as PATH.1 and so on; 3 by
//   default debugger=1        QNZTRACE_DEBUGGER   lines go to the debugger, too
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct TraceSettings
{
    std::wstring strFile;
    ULONGLONG nLimit = ULONGLONG{10} * 1024 * 1024;
    unsigned nKeep = 3;
    bool bDebugger = false;
    std::vector<std::string> complaints;  // what made no sense and was left out, in plain ASCII
};

// Takes what the text of an .ini file says, in UTF-8: "name=value" lines, empty ones, and comments behind "#"
// or ";". Names in square brackets are left alone.
void TakeIniText(std::string_view text, TraceSettings& settings);

// Takes one setting by its name in the .ini file; false when name or value make no sense.
bool TakeSetting(std::string_view name, std::wstring_view value, TraceSettings& settings);

// Reads file and environment. hLibrary is the module that the .ini file lies beside.
TraceSettings ReadTraceSettings(HMODULE hLibrary);
