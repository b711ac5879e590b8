// Which functions each thread is in, as their entry and exit records tell.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tracecat/TraceEntry.h"

struct Call
{
    std::string strName;
    std::int64_t nBegin;  // microseconds
};

// An entry's place among the calls of its thread.
struct CallPlace
{
    enum class Kind
    {
        ENTRY,
        EXIT,
        WITHIN
    };
    Kind kind = Kind::WITHIN;
    size_t depth = 0;                   // of the line itself: an entry and its exit have the same
    std::optional<std::int64_t> nTook;  // of an exit whose entry was seen
    std::vector<Call> calls;            // the outermost first; of an entry or exit with its own call last
};

class CCalls
{
public:
    // Takes the next entry of the trace.
    CallPlace Take(const TraceEntry& entry);

private:
    std::map<std::pair<unsigned long, unsigned long>, std::vector<Call>> m_threads;
};
