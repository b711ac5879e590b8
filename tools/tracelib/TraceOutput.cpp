#include "tracelib/TraceOutput.h"

#include "tracelib/TraceLine.h"

CTraceOutput::CTraceOutput(const TraceSettings& settings)
    : m_strPath(settings.strFile),
      m_bFile(!settings.strFile.empty()),
      m_bDebugger(settings.bDebugger),
      m_file(settings.strFile, settings.nLimit, settings.nKeep)
{
}

bool CTraceOutput::Write(const std::string& lines)
{
    const bool bWritten = !m_bFile || m_file.Append(lines);
    if (!bWritten && m_file.Error() != m_dwToldError)
    {
        m_dwToldError = m_file.Error();
        TellDebugger("qnztraceX64: error " + std::to_string(m_dwToldError) + " at the file " +
                     ToUtf8(m_strPath) + "\n");
    }
    if (m_bDebugger)
    {
        TellDebugger(lines);
    }
    return bWritten;
}

void TellDebugger(std::string_view lines)
{
    while (!lines.empty())
    {
        const size_t end = lines.find('\n') + 1;
        OutputDebugStringW(ToWide(CP_UTF8, lines.substr(0, end)).c_str());
        lines.remove_prefix(end);
    }
}
