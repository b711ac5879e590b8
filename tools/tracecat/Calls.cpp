#include "tracecat/Calls.h"

#include <algorithm>

namespace
{

constexpr std::string_view kEntry = "--> ";
constexpr std::string_view kExit = "<-- ";
// A note of the trace library: the process is a new one, whatever the number was used for before.
constexpr std::string_view kBegin = "trace begins: ";

}  // namespace

CallPlace CCalls::Take(const TraceEntry& entry)
{
    if (entry.level == 0 && entry.strText.starts_with(kBegin))
    {
        std::erase_if(m_threads, [&](const auto& thread) { return thread.first.first == entry.process; });
    }
    std::vector<Call>& calls = m_threads[{entry.process, entry.thread}];
    CallPlace place;
    place.depth = calls.size();
    if (entry.strText.starts_with(kEntry))
    {
        calls.push_back({entry.strText.substr(kEntry.size()), entry.nMicroseconds});
        place.kind = CallPlace::Kind::ENTRY;
        place.calls = calls;
    }
    else if (entry.strText.starts_with(kExit))
    {
        place.kind = CallPlace::Kind::EXIT;
        const std::string name = entry.strText.substr(kExit.size());
        const auto found = std::find_if(calls.rbegin(), calls.rend(),
                                        [&](const Call& call) { return call.strName == name; });
        // What is above it has lost its exit. An exit without its entry changes nothing.
        if (found != calls.rend())
        {
            calls.erase(found.base(), calls.end());
            place.nTook = entry.nMicroseconds - calls.back().nBegin;
            place.depth = calls.size() - 1;
            place.calls = calls;
            calls.pop_back();
        }
        else
        {
            place.calls = calls;
        }
    }
    else
    {
        place.calls = calls;
    }
    return place;
}
