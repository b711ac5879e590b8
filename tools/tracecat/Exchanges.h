// The exchanges of a trace. The records do not name theirs; it is told by their order: on the host's thread
// an exchange begins with the opening of the session before "Http Send request", and its worker is the next
// thread of the process that sets the status to 5 from outside any function. Where a process begins several
// exchanges at the same moment, their workers may be taken for one another's.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tracecat/Calls.h"

// A call, or a record within it.
struct Step
{
    std::int64_t nBegin;  // microseconds
    std::optional<std::int64_t> nTook;
    bool bCall;
    bool bWorker;
    size_t depth;
    unsigned long level;
    std::string strText;
};

struct Exchange
{
    std::string strDate;
    std::string strTime;
    unsigned long process = 0;
    unsigned long hostThread = 0;
    std::optional<unsigned long> workerThread;
    std::optional<int> nStatus;  // the last that was set
    bool bOver = false;
    std::vector<Step> steps;  // in the order of the trace

    std::int64_t Begin() const { return steps.front().nBegin; }
    std::int64_t End() const;
};

class CExchanges
{
public:
    // Takes the next entry of the trace.
    void Take(const TraceEntry& entry);

    // In the order of their beginnings.
    const std::deque<Exchange>& All() const { return m_exchanges; }

private:
    using Thread = std::pair<unsigned long, unsigned long>;

    // What a thread does at the moment.
    struct Role
    {
        Exchange* pExchange = nullptr;
        bool bWorker = false;
        bool bFinal = false;                                    // the worker has set its last status
        std::vector<std::pair<TraceEntry, CallPlace>> opening;  // what may turn out to belong to an exchange
    };

    void TakeOfNone(const TraceEntry& entry, const CallPlace& place, Role& role);
    Exchange* Find(const TraceEntry& entry, int status, bool& bWorker);
    static void Join(Exchange& exchange, bool bWorker, Role& role);
    static void Add(const TraceEntry& entry, const CallPlace& place, Role& role);

    CCalls m_calls;
    std::map<Thread, Role> m_roles;
    std::deque<Exchange> m_exchanges;
};
