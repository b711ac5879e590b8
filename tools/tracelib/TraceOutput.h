// Where lines go in the end: the file and the debugger, as the settings say. Used by one thread at a time.
#pragma once

#include <string>
#include <string_view>

#include "tracelib/TraceFile.h"
#include "tracelib/TraceSettings.h"

class CTraceOutput
{
public:
    explicit CTraceOutput(const TraceSettings& settings);

    // False when nothing that is written here goes anywhere.
    bool IsWanted() const { return m_bFile || m_bDebugger; }

    // Whole lines. False when a file is wanted and they are not in it. The debugger learns once why.
    bool Write(const std::string& lines);

    void Unlock() { m_file.Unlock(); }

private:
    const std::wstring m_strPath;
    const bool m_bFile;
    const bool m_bDebugger;
    DWORD m_dwToldError = ERROR_SUCCESS;
    CTraceFile m_file;
};

// One or more lines to the debugger, if there is one.
void TellDebugger(std::string_view lines);
