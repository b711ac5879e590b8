#include "tracecat/TimeLine.h"

#include <algorithm>
#include <cstdio>

namespace
{

constexpr size_t kWidth = 40;
constexpr size_t kTextLength = 80;

const char* StatusName(int status)
{
    constexpr const char* kNames[] = {"REQ_STATUS_HTTP_ERROR",
                                      "REQ_STATUS_IDLE",
                                      "REQ_STATUS_FAILED",
                                      "REQ_STATUS_NOT_CONNECTED",
                                      "?",
                                      "REQ_STATUS_SENDING",
                                      "REQ_STATUS_RECEIVING",
                                      "REQ_STATUS_TIMEOUT",
                                      "?",
                                      "REQ_STATUS_DONE"};
    return status >= 0 && status < 10 ? kNames[status] : "?";
}

// Where in the bar a moment is.
size_t Column(std::int64_t moment, std::int64_t length)
{
    return length == 0 ? 0 : static_cast<size_t>(moment * static_cast<std::int64_t>(kWidth - 1) / length);
}

std::string Bar(const Step& step, const Exchange& exchange)
{
    const std::int64_t length = exchange.End() - exchange.Begin();
    const std::int64_t begin = step.nBegin - exchange.Begin();
    std::string bar(kWidth, ' ');
    const size_t first = std::min(Column(begin, length), kWidth - 1);
    const size_t last = std::min(Column(begin + step.nTook.value_or(0), length), kWidth - 1);
    const char mark = step.level >= 8 ? '!' : step.bCall ? '=' : '.';
    std::fill(bar.begin() + static_cast<std::ptrdiff_t>(first),
              bar.begin() + static_cast<std::ptrdiff_t>(last + 1), mark);
    if (step.bCall && !step.nTook)
    {
        bar[first] = '>';  // its end is not in the trace
    }
    return bar;
}

std::string RightAligned(const std::string& text, size_t length)
{
    return std::string(length - std::min(length, text.size()), ' ') + text;
}

std::string Head(const Exchange& exchange, size_t number, size_t count)
{
    std::string head =
        "exchange " + std::to_string(number) + " of " + std::to_string(count) + ": process " +
        std::to_string(exchange.process) + ", host's thread " + std::to_string(exchange.hostThread) + ", " +
        (exchange.workerThread ? "worker " + std::to_string(*exchange.workerThread)
                               : std::string("no worker")) +
        "\nbegan " + exchange.strDate + " " + exchange.strTime + " UTC, " +
        (exchange.bOver ? "took " : "not over after ") + FormatDuration(exchange.End() - exchange.Begin());
    if (exchange.nStatus)
    {
        head += ", last status " + std::to_string(*exchange.nStatus) + " " + StatusName(*exchange.nStatus);
    }
    return head + "\n\n";
}

}  // namespace

std::string DrawTimeLine(const std::deque<Exchange>& exchanges, int number, bool bDecode)
{
    const size_t chosen = number == 0 ? exchanges.size() : static_cast<size_t>(number);
    if (chosen == 0 || chosen > exchanges.size())
    {
        return "";
    }
    const Exchange& exchange = exchanges[chosen - 1];
    std::string drawing = Head(exchange, chosen, exchanges.size()) + "      begins         took  thread\n";
    std::vector<Step> steps = exchange.steps;
    std::stable_sort(steps.begin(), steps.end(),
                     [](const Step& a, const Step& b) { return a.nBegin < b.nBegin; });
    for (const Step& step : steps)
    {
        drawing += RightAligned(FormatDuration(step.nBegin - exchange.Begin()), 12) + " " +
                   RightAligned(step.nTook ? FormatDuration(*step.nTook) : "", 12) + "  " +
                   (step.bWorker ? "worker" : "host  ") + " |" + Bar(step, exchange) + "| " +
                   std::string(2 * step.depth, ' ') +
                   Shortened(bDecode ? DecodePercent(step.strText) : step.strText, kTextLength) + "\n";
    }
    return drawing;
}
