// One line of a trace file, taken apart. tools/tracelib/TraceLine.h has the form of a line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct TraceEntry
{
    std::string strDate;         // "2026-11-21"
    std::string strTime;         // "22:09:18.123456"
    std::int64_t nMicroseconds;  // since some midnight
    unsigned long level;
    unsigned long process;
    unsigned long thread;
    std::string strText;
};

// Nothing when the line, given without its line feed, is none of a trace.
std::optional<TraceEntry> ParseEntry(std::string_view line);

// "0.123 ms", or in seconds from one second on.
std::string FormatDuration(std::int64_t nMicroseconds);

// Each run of "%XX" in the text as the characters that it stands for; control characters by their pictures.
std::string DecodePercent(std::string_view text);

// The first characters of a text, with three dots where it goes on. Counts bytes, and cuts no character.
std::string Shortened(std::string_view text, size_t length);
