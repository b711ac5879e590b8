#include "tracecat/Exchanges.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace
{

constexpr std::string_view kProcessBegins = "trace begins: ";
constexpr std::string_view kSession = "--> CHttpSession::OpenInternet().";
constexpr std::string_view kSend = "Http Send request,";
constexpr std::string_view kStatusEntry = "--> CHttpRequest::UpdateRequestStatus";
constexpr std::string_view kStatusName = "CHttpRequest::UpdateRequestStatus";
constexpr std::string_view kStatus = "emStatus=";
constexpr size_t kArrowLength = 4;
constexpr int kSending = 5;
constexpr int kReceiving = 6;

std::optional<int> StatusOf(const TraceEntry& entry)
{
    int status = 0;
    const std::string& text = entry.strText;
    if (!text.starts_with(kStatus) ||
        std::from_chars(text.data() + kStatus.size(), text.data() + text.size(), status).ec != std::errc())
    {
        return std::nullopt;
    }
    return status;
}

}  // namespace

std::int64_t Exchange::End() const
{
    std::int64_t end = Begin();
    for (const Step& step : steps)
    {
        end = std::max(end, step.nBegin + step.nTook.value_or(0));
    }
    return end;
}

void CExchanges::Take(const TraceEntry& entry)
{
    if (entry.level == 0)
    {
        if (entry.strText.starts_with(kProcessBegins))
        {
            std::erase_if(m_roles, [&](const auto& role) { return role.first.first == entry.process; });
        }
        m_calls.Take(entry);
        return;
    }
    const CallPlace place = m_calls.Take(entry);
    Role& role = m_roles[{entry.process, entry.thread}];
    if (role.pExchange != nullptr)
    {
        Add(entry, place, role);
    }
    else
    {
        TakeOfNone(entry, place, role);
    }
}

// An entry of a thread that is in no exchange yet.
void CExchanges::TakeOfNone(const TraceEntry& entry, const CallPlace& place, Role& role)
{
    const bool bOutermost = place.depth == 0 && place.kind == CallPlace::Kind::ENTRY;
    if (bOutermost && (entry.strText == kSession || entry.strText == kStatusEntry))
    {
        role.opening.clear();
    }
    else if (role.opening.empty() && entry.strText != kSend)
    {
        return;
    }
    role.opening.emplace_back(entry, place);
    if (entry.strText == kSend)
    {
        const TraceEntry& first = role.opening.front().first;
        m_exchanges.push_back({first.strDate, first.strTime, entry.process, entry.thread, {}, {}, false, {}});
        Join(m_exchanges.back(), false, role);
    }
    else if (const std::optional<int> status = StatusOf(entry))
    {
        bool bWorker = false;
        if (Exchange* const pExchange = Find(entry, *status, bWorker))
        {
            Join(*pExchange, bWorker, role);
        }
    }
}

// The exchange that a status is of which a thread sets from outside any function: that of a new worker, or
// the last one of a host that has polled too long.
Exchange* CExchanges::Find(const TraceEntry& entry, int status, bool& bWorker)
{
    bWorker = status == kSending;
    if (bWorker)
    {
        const auto found = std::find_if(m_exchanges.begin(), m_exchanges.end(),
                                        [&](const Exchange& exchange)
                                        {
                                            return exchange.process == entry.process && !exchange.bOver &&
                                                   !exchange.workerThread &&
                                                   exchange.hostThread != entry.thread;
                                        });
        return found != m_exchanges.end() ? &*found : nullptr;
    }
    const auto found = std::find_if(m_exchanges.rbegin(), m_exchanges.rend(),
                                    [&](const Exchange& exchange)
                                    {
                                        return exchange.process == entry.process &&
                                               exchange.hostThread == entry.thread && !exchange.bOver;
                                    });
    return found != m_exchanges.rend() ? &*found : nullptr;
}

void CExchanges::Join(Exchange& exchange, bool bWorker, Role& role)
{
    role.pExchange = &exchange;
    role.bWorker = bWorker;
    role.bFinal = false;
    const auto opening = std::exchange(role.opening, {});
    if (bWorker)
    {
        exchange.workerThread = opening.front().first.thread;
    }
    for (const auto& [entry, place] : opening)
    {
        Add(entry, place, role);
    }
}

void CExchanges::Add(const TraceEntry& entry, const CallPlace& place, Role& role)
{
    Exchange& exchange = *role.pExchange;
    if (place.kind != CallPlace::Kind::EXIT)
    {
        const bool bCall = place.kind == CallPlace::Kind::ENTRY;
        exchange.steps.push_back({entry.nMicroseconds,
                                  {},
                                  bCall,
                                  role.bWorker,
                                  place.depth,
                                  entry.level,
                                  bCall ? place.calls.back().strName : entry.strText});
    }
    else
    {
        const auto call = std::find_if(exchange.steps.rbegin(), exchange.steps.rend(),
                                       [&](const Step& step)
                                       {
                                           return step.bCall && step.bWorker == role.bWorker &&
                                                  step.depth == place.depth && !step.nTook;
                                       });
        if (call != exchange.steps.rend())
        {
            call->nTook = place.nTook;
        }
    }
    if (const std::optional<int> status = StatusOf(entry))
    {
        exchange.nStatus = status;
        role.bFinal = *status != kSending && *status != kReceiving;
    }
    // The worker is done behind its last status; the host's part is over behind any.
    const bool bOutermostExit = place.kind == CallPlace::Kind::EXIT && place.depth == 0;
    const bool bStatusExit =
        entry.strText.substr(std::min(kArrowLength, entry.strText.size())) == kStatusName;
    if (bOutermostExit && (role.bWorker ? role.bFinal : bStatusExit))
    {
        exchange.bOver = exchange.bOver || role.bWorker || (role.bFinal && !exchange.workerThread);
        role.pExchange = nullptr;
    }
}
