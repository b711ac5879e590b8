// The trace as lines for people: those that the options ask for, indented by entry and exit.
#pragma once

#include <string>
#include <string_view>

#include "tracecat/Calls.h"
#include "tracecat/Options.h"

class CTraceView
{
public:
    explicit CTraceView(const Options& options) : m_options(options) {}

    // The lines that the next line of the file, given without its line feed, is to be shown as; empty when it
    // is not asked for. What is no line of a trace is shown as it stands.
    std::string Show(std::string_view line);

private:
    bool IsWanted(const TraceEntry& entry, const CallPlace& place) const;

    const Options m_options;
    CCalls m_calls;
    std::string m_strDate;  // of the last entry shown
};
