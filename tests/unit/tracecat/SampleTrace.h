// Entries of a trace as tests make them.
#pragma once

#include <string>

#include "tracecat/TraceEntry.h"

constexpr unsigned long kProcess = 10;
constexpr unsigned long kHost = 11;
constexpr unsigned long kWorker = 12;

// At so many microseconds, of process 10.
inline TraceEntry Entry(std::int64_t when, unsigned long thread, const std::string& text,
                        unsigned long level = 2)
{
    return {"2026-01-02", "03:04:05.000006", when, level, kProcess, thread, text};
}
